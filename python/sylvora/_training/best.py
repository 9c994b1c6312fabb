"""Which round is the best one. Needs no NumPy, as callbacks do not."""

from __future__ import annotations

import math
from collections.abc import Iterator, Sequence
from typing import Optional


def is_better(
    value: float, best: Optional[float], larger: bool, min_delta: float = 0.0
) -> bool:
    """Whether a value is better than the best one before it, by more than `min_delta`.

    It is the library's rule for earlyStop: the first value (`best` is None) must be finite, NaN is
    never better, and of equal values the first one counts.
    """
    if best is None:
        return math.isfinite(value)
    return (value - best if larger else best - value) > min_delta


def best_rounds(values: Sequence[float], larger: bool) -> Iterator[int]:
    """After each round, the best one so far, from 1; 0 as long as no value is finite."""
    best, best_value = 0, None
    for number, value in enumerate(values, 1):
        if is_better(value, best_value, larger):
            best, best_value = number, value
        yield best


def best_round(values: Sequence[float], larger: bool) -> int:
    """The best of all rounds, from 1; 0 if no value is finite."""
    best = 0
    for best in best_rounds(values, larger):
        pass
    return best
