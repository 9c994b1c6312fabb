"""Turns the runs of a workload into rows, one per peer, and keeps them in a file."""

import json
import statistics

from machine import DISTURBED


def summary(values):
    """The median and the spread, (largest - smallest) / median, of a side's runs."""
    middle = statistics.median(values)
    return {"median": middle, "spread": (max(values) - min(values)) / middle}


def median_of(measurements, field):
    values = [getattr(measurement, field) for measurement in measurements]
    return None if None in values else statistics.median(values)


def row(workload, threads, peer, sides, note):
    """The row of one peer. `sides` has the runs of both sides, turn by turn. The ratio is the
    median of the turns' ratios, so whatever slows down a whole turn does not count."""
    ours, theirs = sides
    unit, factor = workload.unit()
    ratios = [one.seconds / other.seconds for one, other in zip(ours, theirs)]
    fields = ("prepare", "cell_bytes", "megabytes", "misfit")
    return {
        "workload": workload.name, "threads": threads, "peer": peer.name,
        "job": "package" if workload.of_package else
               "forest" if workload.is_forest() else workload.job,
        "unit": unit,
        "times": [summary([m.seconds * factor for m in side]) if side else None for side in sides],
        "cpu": [median_of(side, "cpu") * factor if side else None for side in sides],
        "ratio": summary(ratios) if ratios else None,
        **{field: [median_of(side, field) if side else None for side in sides]
           for field in fields},
        "runs": max(len(ours), len(theirs)),
        "disturbed": sum(any(m.others > DISTURBED for m in turn)
                         for turn in zip(*[side for side in sides if side])),
        "note": note,
    }


def stand_in_row(workload, threads, peer, ours, hist):
    """The row of a peer that is not installed. Its ratio, if `hist` has runs of XGBoost's histogram
    method, is that to XGBoost's time times `peer.stand_in`."""
    new = row(workload, threads, peer, [ours, []], "not installed")
    ratios = [one.seconds / (other.seconds * peer.stand_in) for one, other in zip(ours, hist)
              if peer.stand_in]
    if not ratios:
        return new
    return {**new, "ratio": summary(ratios), "stand_in": peer.stand_in,
            "note": f"not installed; XGBoost's time times {peer.stand_in:g} instead"}


def merged(old, new, key=("workload", "threads", "peer")):
    """The old rows and the new ones, which replace old ones with the same fields `key`. A stand-in
    replaces no measurement."""
    kept = {tuple(one[k] for k in key): one for one in old}
    for one in new:
        name = tuple(one[k] for k in key)
        if not one.get("stand_in") or name not in kept or kept[name].get("stand_in"):
            kept.pop(name, None)
            kept[name] = one
    return list(kept.values())


class Results:
    """All rows measured so far, kept in a file. A new row replaces the old one of the same
    workload, number of threads and peer."""

    def __init__(self, path):
        self.path = path
        self.rows = json.loads(path.read_text()) if path.exists() else []

    def add(self, new):
        self.rows = merged(self.rows, [new])
        temporary = self.path.with_suffix(".part")
        temporary.write_text(json.dumps(self.rows, indent=1))
        temporary.rename(self.path)
