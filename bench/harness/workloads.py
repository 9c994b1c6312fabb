"""The table of workloads: what is measured, on which data, against which peers."""

from dataclasses import dataclass, field
from typing import Dict, Tuple

THREADS = (1, 2, 4)


@dataclass(frozen=True)
class Peer:
    """A peer in a workload. Both dictionaries are by number of threads: `rounds`, where the full
    number would take too long (figures are per round); `aim`, the highest acceptable ratio. It is
    measured with `threads` only, or with all numbers of threads of the workload if empty. Where it
    cannot be installed, XGBoost's time times `stand_in` takes the place of its time."""
    name: str
    rounds: Dict[int, int] = field(default_factory=dict)
    aim: Dict[int, float] = field(default_factory=dict)
    note: str = ""
    threads: Tuple[int, ...] = ()
    stand_in: float = 0.0


@dataclass(frozen=True)
class Workload:
    """`job` is a job of the driver. `data` names a synthetic set and `size` is its size
    (`quick_size` with --quick), or else a set of BUNDLED. `columns` is given for the set "wide"
    only. `rounds` are boosting rounds or trees of a forest. `share` is both the share of columns per
    node and of rows per tree. `kernel` forces one of our kernels."""
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
    threads: Tuple[int, ...] = THREADS
    kernel: str = ""
    columns: int = 0
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


def everywhere(aim):
    """The same aim for all numbers of threads, or none."""
    return dict.fromkeys(THREADS, aim) if aim else {}


def boosted(name, size, quick_size, full=0, sampled=0, stand_ins=(0, 0), exact=None,
            model="GBDT"):
    """Two workloads on a data set: with all rows and columns, and with 60 % of both. `full` and
    `sampled` are the aims against XGBoost's histogram method, `stand_ins` the factors for LightGBM
    (see Peer), and `exact` the aims against the exact method, which is slow and so measured on all
    rows only."""
    def peers(aim, beside_lightgbm, stand_in):
        return (Peer("xgboost-hist", aim=everywhere(aim)),
                Peer("lightgbm", aim=everywhere(beside_lightgbm if stand_in else 0),
                     stand_in=stand_in))
    slow = () if exact is None else (Peer("xgboost-exact", {1: 4, 4: 8}, exact, threads=(1, 4)),)
    common = {"job": "train", "data": name, "size": size, "quick_size": quick_size, "model": model}
    return (Workload(name=name + "-full", peers=peers(full, 1.3, stand_ins[0]) + slow, **common),
            Workload(name=name + "-sampled", peers=peers(sampled, 1.0, stand_ins[1]), share=0.6,
                     **common))


def forest(name, model, data, size, quick_size, aim=0):
    """A forest of trees of unlimited depth. All trees take about the same time, so slow peers with
    one thread grow fewer."""
    few = {1: 20, 2: 40}
    peers = (Peer("ranger", few, {1: aim} if aim else {}),
             Peer("sklearn", few, note="its rows are drawn with replacement"))
    return Workload(name, "train", data, size, quick_size, peers, model=model, share=0.6)


def scored(name, job, kernel, **common):
    """Scoring with the kernels for one instruction set, or for the best if `kernel` is empty."""
    return Workload(name + ("-" + kernel if kernel else ""), job, kernel=kernel, **common,
                    **SCORING)


def batch(kernel, aim):
    return scored("score-batch", "batch", kernel, peers=(Peer("xgboost", aim=everywhere(aim)),))


def single(kernel):
    """One row per call. The aim, 1.5 µs, is a time: most of the peer's is that of the call."""
    return scored("score-single", "single", kernel, threads=(1,),
                  peers=(Peer("xgboost", note="called from Python"),))


def package(name, job, aim, **common):
    """A job of the Python package beside the same job of our C++ library and of peers' packages."""
    peers = (Peer("library", aim=everywhere(aim)), Peer("xgboost"), Peer("sklearn"))
    return Workload(name, job, peers=peers, of_package=True, **common)


BUNDLED = ("bike", "wdbc", "mushroom", "letter", "letter-classes", "rank")  # see bundled.py

WORKLOADS = (
    *boosted("continuous", 1_000_000, 5_000, 1.4, 1.0, (1, 1), exact={1: 0.04, 4: 0.05}),
    *boosted("coarse", 1_000_000, 5_000, 0.9, 0.6, (1, 1), exact={}),
    *boosted("mixed", 200_000, 4_000, 1.1, 0.85, (1, 1), exact={}),
    *boosted("flights", 262_000, 4_000, 1.1, 0.85, (1, 1)),
    *boosted("onehot", 50_000, 2_000, 0.7, 0.5, (0.44, 0.48)),
    *boosted("census", 23_000, 2_000, 0.7, 0.5, (0.44, 0.48)),
    *boosted("diamonds", 43_000, 2_000, 1.0, 0.8, (1, 1)),
    *boosted("prices", 17_000, 2_000, 1.0, 0.8, (0.62, 0.88)),
    *boosted("physics", 7_000, 2_000, 1.0, 0.8, (0.42, 0.67)),
    *(workload for name in ("bike", "wdbc", "mushroom", "letter")
      for workload in boosted(name, 0, 0)),
    *boosted("ranking", 2_000, 40, 1.0, 1.0, (1, 1), model="GBRank"),
    *boosted("rank", 0, 0, model="GBRank"),
    forest("forest-regression", "RandomForest REG", "forest-regression", 100_000, 2_000, 0.1),
    forest("forest-classification", "RandomForest CLS", "forest-classification", 100_000, 2_000,
           0.1),
    forest("forest-letter", "RandomForest CLS", "letter-classes", 0, 0),
    batch("", 0.1),
    batch("avx512", 0.1),
    batch("avx2", 0.2),
    batch("baseline", 0.35),
    *(single(kernel) for kernel in ("", "avx512", "avx2", "baseline")),
    Workload("load-model", "load", threads=(1,), peers=(Peer("xgboost", note="JSON"),), **SCORING),
    package("package-fit", "fit", 1.03, data="continuous", size=1_000_000, quick_size=5_000,
            share=0.6),
    package("package-predict", "predict", 1.05, **SCORING),
    package("package-row", "single", 0, threads=(1,), **SCORING),
    Workload("read-text", "read", "continuous", 1_000_000, 5_000,
             (Peer("xgboost", aim={1: 0.5, 2: 0.5, 4: 0.4}),)),
)


def aim_of(name, threads, peer):
    """The aim of a workload, by their names; None if it has none."""
    return next((found.aim.get(threads) for workload in WORKLOADS if workload.name == name
                 for found in workload.peers if found.name == peer), None)
