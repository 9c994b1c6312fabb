"""Facts about the library's losses and metrics. Needs no NumPy."""

from __future__ import annotations

from typing import NamedTuple


class Loss(NamedTuple):
    """A loss of boosting.

    Attributes
    ----------
    name : str
        The library's name.
    two_classes : bool
        Whether the labels are two classes.
    probabilities : bool
        Whether a score gives a probability.
    """

    name: str
    two_classes: bool = False
    probabilities: bool = False


# By the names of the package.
LOSSES = {
    "squared_error": Loss("Square"),
    "absolute_error": Loss("Absolute"),
    "huber": Loss("Huber"),
    "quantile": Loss("Quantile"),
    "log_loss": Loss("LogLoss", two_classes=True, probabilities=True),
    "logistic": Loss("Logistic", two_classes=True, probabilities=True),
    "exponential": Loss("Exponential", two_classes=True, probabilities=True),
    "squared_hinge": Loss("HingeSquare", two_classes=True),
    "cross_entropy": Loss("CrossEntropy"),
}
_BY_LIBRARY = {loss.name: loss for loss in LOSSES.values()}

# Whether larger values are better. The name ndcg is followed by @ and a number of places.
METRICS = {
    "rmse": False,
    "mae": False,
    "pinball": False,
    "logloss": False,
    "auc": True,
    "accuracy": True,
    "pairs": True,
    "ndcg": True,
}


def loss_facts(name: str) -> Loss:
    """The facts about a loss by its library's name. A loss that is not in the table, such as an
    objective of a program's own (USER), has neither classes nor probabilities."""
    return _BY_LIBRARY.get(name, Loss(name))


def is_larger_better(metric: str) -> bool:
    """Whether larger values of a metric are better; False for metrics that are not the library's.
    """
    return METRICS.get(metric.partition("@")[0], False)
