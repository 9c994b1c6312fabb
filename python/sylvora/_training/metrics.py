"""Names and directions of metrics."""

from __future__ import annotations

import re
from collections.abc import Callable, Sequence
from typing import Any, Union

from . import facts
from .._data.names import checked_text

Metric = Union[str, Callable[..., float]]


def name_of(metric: Metric) -> str:
    """The name under which a metric is recorded."""
    name = metric if isinstance(metric, str) else getattr(metric, "__name__", None)
    return checked_text(name if isinstance(name, str) else type(metric).__name__, "eval_metric")


def check_metric(metric: Any) -> None:
    """Raises TypeError or ValueError unless it is a metric of the library or a function."""
    if callable(metric):
        return
    if not isinstance(metric, str):
        raise TypeError(f"eval_metric must be names or functions, got {metric!r}")
    places = re.fullmatch("ndcg@0*[1-9][0-9]*", metric)
    if not places and (metric not in facts.METRICS or metric == "ndcg"):
        known = ", ".join(name for name in facts.METRICS if name != "ndcg")
        raise ValueError(
            f"eval_metric: there is no metric {metric!r}: choose from {known} and ndcg@K (such as "
            "ndcg@10), or give a function of labels and scores"
        )


def needs_queries(metric: Metric) -> bool:
    """Whether it is a metric of the library for ranking."""
    return isinstance(metric, str) and metric.partition("@")[0] in ("ndcg", "pairs")


def is_larger_better(name: str, metrics: Sequence[Metric] = ()) -> bool:
    """Whether larger values are better of the metric of this name: one of the program's functions
    in `metrics`, or one of the library."""
    for metric in metrics:
        if not isinstance(metric, str) and name_of(metric) == name:
            return bool(getattr(metric, "greater_is_better", False))
    return facts.is_larger_better(name)
