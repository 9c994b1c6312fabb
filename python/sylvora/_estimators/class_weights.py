"""Weights of rows from weights of classes. The library takes whole numbers."""

from __future__ import annotations

import math
import numbers
from collections.abc import Mapping
from fractions import Fraction
from typing import Any, Optional

import numpy as np

from .._data.numbers import Array

_INT_MAX = 2**31 - 1
# Of "balanced": below this weight of a row, rounding would change it by more than 3 %.
_SMALLEST_ROUNDED = 16


def _is_number(value: Any) -> bool:
    return isinstance(value, numbers.Real) and not isinstance(value, (bool, np.bool_))


def _given(class_weight: Mapping[Any, Any], classes: list[Any]) -> list[int]:
    for label, weight in class_weight.items():
        if label not in classes:
            raise ValueError(f"class_weight has the class {label!r}, which is not in y: {classes}")
        if not _is_number(weight):
            raise TypeError(f"class_weight[{label!r}] must be a number, got {weight!r}")
        if not 0 < weight < math.inf or weight != int(weight):
            raise ValueError(
                f"class_weight[{label!r}] must be a whole number above 0, got {weight!r}: only the"
                " ratios of the weights count, so multiply all by the same number and round them"
            )
    return [int(class_weight.get(label, 1)) for label in classes]


def _balanced(counts: list[int], totals: list[int]) -> list[int]:
    """Return whole weights proportional to 1 / count, or as near to it as their sum allows.

    `counts` has the number of rows of each class, `totals` the sum of their sample weights.
    """
    multiple = math.lcm(*counts)
    exact = [multiple // count for count in counts]
    if sum(weight * total for weight, total in zip(exact, totals)) <= _INT_MAX:
        return exact
    # A rounded weight is at most 1/2 above its share.
    room = Fraction(_INT_MAX) - Fraction(sum(totals), 2)
    scale = room / sum(Fraction(total, count) for total, count in zip(totals, counts))
    rounded = [math.floor(scale / count + Fraction(1, 2)) for count in counts]
    if min(rounded) < _SMALLEST_ROUNDED:
        raise ValueError(
            "class_weight='balanced' needs weights whose sum exceeds 2**31 - 1: give a dict of"
            " small whole numbers instead"
        )
    return rounded


def combine(
    class_weight: Any,
    classes: list[Any],
    codes: Array,
    sample_weight: Optional[Array],
) -> Optional[Array]:
    """Return the weight of each row: that of its class times its own.

    Parameters
    ----------
    class_weight : mapping, "balanced" or None
        Whole numbers by class, 1 for those not given. "balanced": proportional to 1 / number of
        rows of the class.
    classes : list
        The classes, in the order of their codes.
    codes : ndarray of shape (n_samples,)
        The class of each row, as an index into `classes`. Each class has a row.
    sample_weight : ndarray of shape (n_samples,) or None
        Whole numbers above 0.

    Returns
    -------
    ndarray of int32 and shape (n_samples,), or None if all weights are 1

    Raises
    ------
    ValueError, TypeError
        If weights are not whole, or their sum exceeds 2**31 - 1.
    """
    if class_weight is None:
        return sample_weight
    counts = np.bincount(codes, minlength=len(classes))
    totals = counts
    if sample_weight is not None:
        # A sum of whole numbers below 2**53 is exact.
        totals = np.bincount(codes, weights=sample_weight, minlength=len(classes)).astype(np.int64)
    if isinstance(class_weight, str) and class_weight == "balanced":
        weights = _balanced(counts.tolist(), totals.tolist())
    elif isinstance(class_weight, Mapping):
        weights = _given(class_weight, classes)
    else:
        raise TypeError(
            f"class_weight must be None, 'balanced' or a mapping of classes, got {class_weight!r}"
        )
    total = sum(weight * total for weight, total in zip(weights, totals.tolist()))
    if total > _INT_MAX:
        raise ValueError(
            f"class_weight times sample_weight sums to {total} over the rows, more than 2**31 - 1:"
            " use smaller numbers"
        )
    by_row: Array = np.asarray(weights, dtype=np.int64)[codes]
    if sample_weight is not None:
        by_row *= sample_weight
    return by_row.astype(np.int32)
