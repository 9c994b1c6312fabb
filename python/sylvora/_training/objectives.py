"""Objectives of a program's own, and what they are built from."""

from __future__ import annotations

from collections.abc import Callable
from typing import TYPE_CHECKING, Any, Optional

import numpy as np

from .. import _core
from .._data.tables import as_labels, as_weights

if TYPE_CHECKING:
    from numpy.typing import NDArray


def expit(x: Any) -> Any:
    """The logistic function 1 / (1 + e^-x) as the loss LogLoss has it, bit for bit.

    The exponential is correctly rounded, so the results are the same on every machine. Their
    relative error is at most 4e-16; below about -709 they are 0.

    Parameters
    ----------
    x : array-like of any shape

    Returns
    -------
    ndarray of float64, or float64 for a number

    Examples
    --------
    >>> import sylvora
    >>> sylvora.expit([0.0, 2.0, -800.0]).tolist()
    [0.5, 0.8807970779778823, 0.0]
    """
    scores = np.array(x, dtype=np.float64, order="C")
    flat = scores.reshape(-1)
    _core.expit(flat, flat)
    return scores[()]


def log_odds(y: Any, sample_weight: Any = None) -> float:
    """The logarithm of the ratio of rows whose label is above 0 to the others: where LogLoss
    starts.

    Parameters
    ----------
    y : array-like, shape (n_rows,)
    sample_weight : array-like of whole numbers, shape (n_rows,), optional

    Raises
    ------
    ValueError
        If all labels are on one side.

    Examples
    --------
    >>> import sylvora
    >>> sylvora.log_odds([0, 1, 1, 1])
    1.0986122886681098
    """
    num_rows = np.size(y)
    labels = as_labels(y, num_rows)
    return _core.log_odds(labels, as_weights(sample_weight, num_rows))


class Objective:
    """Calls a program's objective once per round and checks what it returns.

    The library takes second derivatives or does not; which it is shows in the first result, which
    is made before the run and used in the first round.
    """

    def __init__(
        self, function: Callable[..., Any], labels: NDArray[np.float64], start: float
    ) -> None:
        self._function = function
        self._labels = read_only(labels)
        self.scores = np.full(len(labels), start)
        self.gradients = np.empty_like(labels)
        self.hessians: Optional[NDArray[np.float64]] = None
        self._seen_scores = read_only(self.scores)
        first = self._call(1)
        if first[1] is not None:
            self.hessians = np.empty_like(labels)
        self._first: Optional[tuple[Any, Any]] = first

    def fill(self, number: int) -> None:
        """Fills the gradients, and hessians, of round `number`, from 1."""
        result, self._first = self._first if number == 1 else None, None
        gradients, hessians = result if result is not None else self._call(number)
        if (hessians is None) != (self.hessians is None):
            raise ValueError(
                f"objective: round {number}: hessians must be returned in all rounds or in none"
            )
        self.gradients[:] = gradients
        if self.hessians is not None:
            self.hessians[:] = hessians

    def _call(self, number: int) -> tuple[Any, Any]:
        result = self._function(self._labels, self._seen_scores)
        if isinstance(result, (tuple, list)):
            if len(result) != 2:
                raise ValueError(
                    f"objective: round {number}: it must return gradients, or a pair of gradients "
                    f"and hessians, got {len(result)} values"
                )
            gradients, hessians = result
            return (
                self._checked("gradients", gradients, number),
                self._checked("hessians", hessians, number),
            )
        return self._checked("gradients", result, number), None

    def _checked(self, what: str, values: Any, number: int) -> NDArray[np.float64]:
        where = f"objective: round {number}: {what}"
        array = np.asarray(values)
        if array.dtype.kind not in "fiub":
            raise TypeError(f"{where} must be real numbers, got {array.dtype}")
        if array.shape != self._labels.shape:
            raise ValueError(
                f"{where} must have the shape ({len(self._labels)},), got {array.shape}"
            )
        finite = np.isfinite(array)
        if what == "hessians":
            finite &= array >= 0
        if not finite.all():
            row = int(np.argmin(finite))
            wanted = "finite" if what == "gradients" else "finite and not negative"
            raise ValueError(f"{where} must be {wanted}, but that of row {row} is {array[row]}")
        return np.asarray(array, dtype=np.float64)


def read_only(array: NDArray[np.float64]) -> NDArray[np.float64]:
    view = array.view()
    view.flags.writeable = False
    return view
