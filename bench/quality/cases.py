"""What is compared: for each loss, our settings, the models of the peers, and the measures."""

from dataclasses import dataclass, field, replace
from functools import partial
from typing import Dict, Tuple

import metrics

ROUNDS, RATE, DEPTH = 100, 0.1, 6
TREE_DEPTH = 12        # of a single tree
FOREST_ROWS = 0.632    # the share of distinct rows in a bootstrap sample
HUBER_DELTA = 50

OURS, PLAIN, DEFAULT, SKLEARN = "Sylvora", "XGBoost plain", "XGBoost default", "scikit-learn"
SIDES = (OURS, PLAIN, DEFAULT, SKLEARN)


@dataclass(frozen=True)
class Metric:
    """`sign` is 1 if smaller is better, -1 if larger is, and 0 if the metric is only shown."""
    name: str
    sign: int
    value: callable        # of labels, scores, and whatever `needs` names
    needs: str = ""        # "link", "queries" or nothing


@dataclass(frozen=True)
class Case:
    """A loss, or a model without one, on all sets of a task. `peers` has by side the settings of
    its model. The first metric is the one that the loss is made for. `links` has the functions from
    scores to probabilities, by side."""
    name: str
    task: str
    ours: Dict[str, object]
    peers: Dict[str, Dict[str, object]]
    metrics: Tuple[Metric, ...]
    links: Dict[str, str] = field(default_factory=dict)
    variant: str = ""      # what differs from the compared settings, empty if nothing

    def classifies(self):
        """Whether labels are the classes 0, 1, 2, ..., so that -1 becomes 0."""
        return self.ours.get("fRegCls") == "CLS"


RMSE = Metric("RMSE", 1, metrics.rmse)
MAE = Metric("MAE", 1, metrics.mae)
HUBER = Metric("Huber loss", 1, partial(metrics.huber, delta=HUBER_DELTA))
LOG_LOSS = Metric("log loss", 1, metrics.log_loss, "link")
AUC = Metric("AUC", -1, metrics.auc)
SIGN_ERROR = Metric("error", 1, metrics.sign_error)
CLASS_ERROR = Metric("error", 1, metrics.class_error)
RANKING = (Metric("NDCG@10", -1, metrics.ndcg, "queries"),
           Metric("ordered pairs", -1, metrics.ordered_pairs, "queries"))


def xgboost(objective, method="exact", **more):
    """Twice XGBoost: without regularisation, as we are, and with its defaults. The start value is
    ours in the plain model, which `start` names."""
    start = more.pop("start", "")
    common = {"objective": objective, "tree_method": method, "eta": RATE, "max_depth": DEPTH,
              **more}
    plain = {**common, "reg_lambda": 0, "min_child_weight": 0, "start": start}
    return {PLAIN: plain, DEFAULT: {**common, "reg_lambda": 1, "min_child_weight": 1}}


def sklearn(kind, **more):
    return {SKLEARN: {"kind": kind, **more}}


def sklearn_boosting(kind, loss, **more):
    return sklearn("GradientBoosting" + kind, loss=loss, criterion="squared_error",
                   n_estimators=ROUNDS, learning_rate=RATE, max_depth=DEPTH, **more)


def boosting(loss, task, peers, measures, links=None, model="GBDT", **more):
    ours = {"modelType": model, "lossFunc": loss, "numTree": ROUNDS, "valShrink": RATE,
            "maxDepth": DEPTH, "maxLeaf": 2 ** DEPTH, "valSmpRt": 1, "ratio": 1, **more}
    name = f"{loss} {more['quantile']}" if "quantile" in more else loss
    return Case(name, task, ours, peers, measures, links or {})


def quantile(q):
    pinball = Metric(f"pinball loss {q}", 1, partial(metrics.pinball, q=q))
    return boosting("Quantile", "regression",
                    sklearn_boosting("Regressor", "quantile", alpha=q),
                    (pinball, Metric(f"coverage (aim {q})", 0, metrics.coverage)), quantile=q)


def two_classes(loss, link, peer_loss="log_loss", peer_link="sigmoid"):
    peers = {**xgboost("binary:logistic", start="share"),
             **sklearn_boosting("Classifier", peer_loss)}
    measures = (LOG_LOSS, AUC, SIGN_ERROR) if link else (SIGN_ERROR, AUC)
    return boosting(loss, "two", peers, measures,
                    {OURS: link, PLAIN: "sigmoid", DEFAULT: "sigmoid", SKLEARN: peer_link})


def ranking(loss):
    return boosting(loss, "ranking", xgboost("rank:pairwise"), RANKING, model="GBRank")


def forest(task):
    kind, measures = ("REG", (RMSE, MAE)) if task == "regression" else ("CLS", (CLASS_ERROR,))
    ours = {"modelType": "RandomForest", "fRegCls": kind, "numTree": ROUNDS,
            "valSmpRt": FOREST_ROWS, "ratio": "drawn"}
    estimator = "RandomForest" + ("Regressor" if kind == "REG" else "Classifier")
    return Case("RandomForest " + kind, task, ours,
                sklearn(estimator, n_estimators=ROUNDS, max_features="drawn"), measures)


def single_tree(task):
    kind, measures = ("REG", (RMSE, MAE)) if task == "regression" else ("CLS", (CLASS_ERROR,))
    ours = {"modelType": "CART", "fRegCls": kind, "numTree": 1, "maxDepth": TREE_DEPTH,
            "maxLeaf": 2 ** TREE_DEPTH, "valSmpRt": 1, "ratio": 1}
    estimator = "DecisionTree" + ("Regressor" if kind == "REG" else "Classifier")
    return Case("CART " + kind, task, ours, sklearn(estimator, max_depth=TREE_DEPTH), measures)


CASES = (
    boosting("Square", "regression",
             {**xgboost("reg:squarederror", start="zero"),
              **sklearn_boosting("Regressor", "squared_error")}, (RMSE, MAE)),
    # XGBoost 1.7 sets the leaves of this loss with the method hist only; with as many bins as
    # values, it tries every split, too.
    boosting("Absolute", "regression",
             {**xgboost("reg:absoluteerror", "hist", max_bin=100_000, start="median"),
              **sklearn_boosting("Regressor", "absolute_error")}, (MAE, RMSE)),
    boosting("Huber", "regression",
             {**xgboost("reg:pseudohubererror", huber_slope=HUBER_DELTA, start="median"),
              **sklearn_boosting("Regressor", "huber", alpha=0.9)},
             (HUBER, MAE, RMSE), huberDelta=HUBER_DELTA),
    quantile(0.1),
    quantile(0.9),
    two_classes("LogLoss", "sigmoid"),
    two_classes("Logistic", "logistic"),
    two_classes("Exponential", "twice", "exponential", "twice"),
    two_classes("HingeSquare", ""),
    ranking("CrossEntropy"),
    ranking("HingeSquareRank"),
    *(make(task) for make in (forest, single_tree) for task in ("regression", "two", "classes")),
)

# Our side only, with other settings: by data set and case. They show what a difference comes from.
VARIANTS = {
    "bike": (("Square", {"randomSeed": 11}), ("Absolute", {"randomSeed": 11}),
             ("Quantile 0.9", {"randomSeed": 11}), ("Absolute", {"numBound": 20}),
             ("Quantile 0.9", {"numBound": 20})),
    "wdbc": (("LogLoss", {"numBound": 20}), ("LogLoss", {"maxDepth": 2})),
    "mushroom": (("Logistic", {"valShrink": 1}), ("Exponential", {"valShrink": 1})),
    "letter-halves": (("Logistic", {"valShrink": 1}), ("Exponential", {"valShrink": 0.5}),
                      ("HingeSquare", {"valShrink": 0.2})),
    "rank": (("CrossEntropy", {"maxDepth": 4}), ("HingeSquareRank", {"maxDepth": 4})),
}


def variants(data):
    """The variants on a data set, as cases without peers."""
    by_name = {case.name: case for case in CASES if case.task == data.task}
    for name, changes in VARIANTS.get(data.name, ()):
        text = ", ".join(f"`{key}` {value}" for key, value in changes.items())
        case = by_name[name]
        yield replace(case, ours={**case.ours, **changes}, peers={}, variant=text)
