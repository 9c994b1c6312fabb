"""Names and directions of metrics."""

from __future__ import annotations

from collections.abc import Callable, Sequence
from typing import Union

from . import facts
from .._data.names import checked_text

Metric = Union[str, Callable[..., float]]


def name_of(metric: Metric) -> str:
    """The name under which a metric is recorded."""
    name = metric if isinstance(metric, str) else getattr(metric, "__name__", None)
    return checked_text(name if isinstance(name, str) else type(metric).__name__, "eval_metric")


def is_larger_better(name: str, metrics: Sequence[Metric] = ()) -> bool:
    """Whether larger values are better of the metric of this name: one of the program's functions
    in `metrics`, or one of the library."""
    for metric in metrics:
        if not isinstance(metric, str) and name_of(metric) == name:
            return bool(getattr(metric, "greater_is_better", False))
    return facts.is_larger_better(name)
