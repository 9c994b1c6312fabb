"""Names and directions of metrics."""

from __future__ import annotations

from collections.abc import Callable, Sequence
from typing import Union

Metric = Union[str, Callable[..., float]]


def name_of(metric: Metric) -> str:
    """The name under which a metric is recorded."""
    if isinstance(metric, str):
        return metric
    return getattr(metric, "__name__", None) or type(metric).__name__


def is_larger_better(name: str, metrics: Sequence[Metric] = ()) -> bool:
    """Whether larger values are better of the metric of this name: one of the program's functions
    in `metrics`, or one of the library."""
    for metric in metrics:
        if not isinstance(metric, str) and name_of(metric) == name:
            return bool(getattr(metric, "greater_is_better", False))
    return name in ("auc", "accuracy", "pairs") or name.startswith("ndcg@")
