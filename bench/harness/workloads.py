"""The table of workloads: what is measured, on which data, against which peers."""

from dataclasses import dataclass, field
from typing import Dict, Tuple


@dataclass(frozen=True)
class Peer:
    """A peer in a workload. Both dictionaries are by number of threads: `rounds`, where the full
    number would take too long (figures are per round); `aim`, the highest acceptable ratio."""
    name: str
    rounds: Dict[int, int] = field(default_factory=dict)
    aim: Dict[int, float] = field(default_factory=dict)
    note: str = ""


@dataclass(frozen=True)
class Workload:
    """`job` is a job of the driver. `data` names a synthetic set and `size` is its size
    (`quick_size` with --quick). `rounds` are boosting rounds or trees of a forest. `share` is both the share of
    columns per node and of rows per tree. `kernel` forces one of our kernels."""
    name: str
    job: str
    data: str
    size: int
    quick_size: int
    peers: Tuple[Peer, ...]
    model: str = "GBDT"
    rounds: int = 100
    quick_rounds: int = 5
    share: float = 1.0
    threads: Tuple[int, ...] = (1, 4)
    kernel: str = ""
    of_package: bool = False  # our side is the Python package

    def is_forest(self):
        return self.model.startswith("RandomForest")

    def unit(self):
        """The unit of the figures, and the factor that converts seconds to it."""
        if self.job == "train":
            return ("ms per tree" if self.is_forest() else "ms per round"), 1e3
        return {"batch": ("µs per row", 1e6), "single": ("µs per row", 1e6),
                "predict": ("µs per row", 1e6), "fit": ("s", 1.0),
                "load": ("ms", 1e3), "read": ("s", 1.0)}[self.job]


DEPTH, LEAVES, BOUND, SHRINK = 6, 64, 5, 0.1
SCORING = {"data": "continuous", "size": 100_000, "quick_size": 2_000,
           "rounds": 500, "quick_rounds": 20}


def boosted(name, data, sizes, full, sampled, exact=None, model="GBDT"):
    """Two workloads on a data set: with all rows and columns, and with 60 % of both. `full` and
    `sampled` are the aims against the histogram method, `exact` those against the exact method,
    which is measured on all rows only."""
    few = {1: 4, 4: 8}
    peers = (Peer("xgboost-hist", aim=full),)
    if exact is not None:
        peers += (Peer("xgboost-exact", few, exact),)
    common = {"job": "train", "data": data, "size": sizes[0], "quick_size": sizes[1],
              "model": model}
    return (Workload(name=name + "-full", peers=peers, **common),
            Workload(name=name + "-sampled", peers=(Peer("xgboost-hist", aim=sampled),),
                     share=0.6, **common))


def forest(name, model):
    """A forest of trees of unlimited depth. All trees take about the same time, so slow peers with
    one thread grow fewer."""
    few = {1: 20}
    aim = {1: 0.5, 4: 0.5}
    peers = (Peer("ranger", few, aim),
             Peer("sklearn", few, note="its rows are drawn with replacement"))
    return Workload(name, "train", name, 100_000, 2_000, peers, model=model, share=0.6)


def batch(kernel, aim):
    """Batch scoring with the kernel `kernel`, or with the one that the library chooses if empty."""
    name = "score-batch" + ("-" + kernel if kernel else "")
    return Workload(name, "batch", peers=(Peer("xgboost", aim=aim),), kernel=kernel, **SCORING)


def package(name, job, aim, note, **common):
    """A job of the Python package beside the same job of our C++ library and of peers' packages."""
    peers = (Peer("library", aim=aim, note=note), Peer("xgboost"), Peer("sklearn"))
    return Workload(name, job, peers=peers, of_package=True, **common)


WORKLOADS = (
    *boosted("continuous", "continuous", (1_000_000, 5_000), {1: 1.4, 4: 1.6}, {1: 0.85, 4: 1.0},
             exact={1: 0.04, 4: 0.05}),
    *boosted("coarse", "coarse", (1_000_000, 5_000), {1: 0.8, 4: 0.95}, {1: 0.6, 4: 0.75},
             exact={}),
    *boosted("mixed", "mixed", (200_000, 4_000), {}, {1: 0.7, 4: 0.8}, exact={}),
    *boosted("ranking", "ranking", (2_000, 40), {}, {}, model="GBRank"),
    forest("forest-regression", "RandomForest REG"),
    forest("forest-classification", "RandomForest CLS"),
    batch("", {4: 0.2}),
    batch("avx512", {1: 0.12}),
    batch("avx2", {1: 0.2}),
    batch("baseline", {1: 0.35}),
    Workload("score-single", "single", threads=(1,),
             peers=(Peer("xgboost", note="called from Python"),), **SCORING),
    Workload("load-model", "load", threads=(1,), peers=(Peer("xgboost", note="JSON"),), **SCORING),
    package("package-fit", "fit", {1: 1.03, 4: 1.03}, "", data="continuous", size=1_000_000,
            quick_size=5_000, share=0.6),
    package("package-predict", "predict", {1: 1.05, 4: 1.05}, "", **SCORING),
    package("package-row", "single", {}, "", threads=(1,), **SCORING),
    Workload("read-text", "read", "continuous", 1_000_000, 5_000,
             (Peer("xgboost", aim={1: 0.5, 4: 0.4}),)),
)
