"""The time of a round as rows and columns grow; see scripts/round-cost.

The data are those of the set "continuous" with any number of columns. A point is one size with one
share of rows and columns and one side:

    {"rows": N, "columns": N, "share": S, "side": NAME, "threads": N, "rounds": N, "turns": N,
     "milliseconds": MEDIAN, "least": MS, "most": MS, "date": DATE, "commit": COMMIT}
"""

import datetime
import statistics

import machine
from contestants import OURS, Failure
from workloads import Peer, Workload

COLUMNS_BY_ROWS, ROWS_BY_COLUMNS = 20, 50_000
SIZES = tuple((rows, COLUMNS_BY_ROWS) for rows in (10_000, 30_000, 100_000, 300_000, 1_000_000,
                                                   3_000_000, 10_000_000)) + \
    tuple((ROWS_BY_COLUMNS, columns) for columns in (10, 20, 50, 100, 200, 500, 1_000, 2_000))
QUICK_SIZES = ((1_000, 20), (3_000, 20), (2_000, 10), (2_000, 40))
SHARES = (1.0, 0.6)
PEERS = {"xgboost-hist": Peer("xgboost-hist"), "lightgbm": Peer("lightgbm"),
         "xgboost-exact": Peer("xgboost-exact", {1: 4})}
EXACT_CELLS = 6_000_000   # the exact method is measured up to this size, on all rows only
STEADY_CELLS = 50_000_000  # from this size on, one turn is enough
CELL_BYTES = 30           # memory that a training needs at most, with its data


def sides_at(rows, columns, share, present):
    """The sides that are measured at a size, ours first, each with its peer."""
    sides = {OURS: None}
    for name, peer in PEERS.items():
        exact = name.endswith("-exact")
        if name.partition("-")[0] in present and not (
                exact and (share < 1 or rows * columns > EXACT_CELLS)):
            sides[name] = peer
    return sides


def fits(rows, columns):
    return rows * columns * CELL_BYTES < machine.available_bytes()


def measure(rows, columns, share, options, shop, present):
    """Yields the points of a size and a share. The sides take turns. `options` are those of the
    script: turns, threads, rounds, commit."""
    threads = options.threads
    workload = Workload(f"rows-{rows}-columns-{columns}-share-{share}", "train", "wide", rows, rows,
                        (), rounds=options.rounds, share=share, columns=columns)
    sides = sides_at(rows, columns, share, present)
    times = {name: [] for name in sides}
    for turn in range(1 if rows * columns >= STEADY_CELLS else options.turns):
        for name, peer in sides.items():
            shop.progress.tell(f"{name}, {share:.0%} of both, turn {turn + 1}")
            try:
                times[name].append(1e3 * shop.measure(workload, threads, peer).seconds)
            except Failure as failure:
                shop.progress.clear()
                print(f"{workload.name}: {name} failed: {failure}", flush=True)
    for name, found in times.items():
        if found:
            yield {"rows": rows, "columns": columns, "share": share, "side": name,
                   "threads": threads, "rounds": shop.rounds(workload, sides[name], threads),
                   "turns": len(found), "milliseconds": statistics.median(found),
                   "least": min(found), "most": max(found),
                   "date": datetime.date.today().isoformat(), "commit": options.commit}
