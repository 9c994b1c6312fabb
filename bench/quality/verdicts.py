"""Compares Sylvora with the best peer, from the metrics of all seeds."""

import statistics
from dataclasses import dataclass

from cases import CASES, OURS, variants

WORSE, EQUAL, BETTER = "worse", "equal", "better"


@dataclass(frozen=True)
class Verdict:
    """`values` has by side the values of all seeds. `difference` has, by seed, by how much we are
    worse than the best peer."""
    data: str
    case: object
    metric: object
    values: dict
    peer: str
    difference: tuple

    def mean(self):
        return statistics.mean(self.difference)

    def spread(self):
        return statistics.stdev(self.difference)

    def word(self):
        if abs(self.mean()) <= self.spread():
            return EQUAL
        return WORSE if self.mean() > 0 else BETTER


def verdict(data, case, metric, values):
    """The best peer is the one with the best mean. All sides have the same splits, so differences
    are taken seed by seed. There is no verdict on a metric that is only shown."""
    peers = {side: metric.sign * statistics.mean(found)
             for side, found in values.items() if side != OURS}
    if not peers or not metric.sign:
        return Verdict(data, case, metric, values, "", ())
    best = min(peers, key=peers.get)
    difference = tuple(metric.sign * (ours - theirs)
                       for ours, theirs in zip(values[OURS], values[best]))
    return Verdict(data, case, metric, values, best, difference)


def verdicts(data, found):
    """`found` has one dictionary per seed, as `sides.results` returns it."""
    for case in [case for case in CASES if case.task == data.task] + list(variants(data)):
        keys = {side: (case.name, case.variant, side) for side in (OURS, *case.peers)}
        for metric in case.metrics:
            values = {side: [one[key][metric.name] for one in found]
                      for side, key in keys.items() if key in found[0]}
            yield verdict(data.name, case, metric, values)
