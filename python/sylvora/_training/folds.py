"""Folds of a cross-validation."""

from __future__ import annotations

import operator
from collections.abc import Iterator
from typing import TYPE_CHECKING, Any, Optional

import numpy as np

if TYPE_CHECKING:
    from numpy.typing import NDArray

    from .._data.dataset import Dataset

    Rows = NDArray[np.intp]
    Fold = tuple[Rows, Rows]


def folds_of(
    folds: Any,
    labels: NDArray[np.float64],
    queries: Optional[NDArray[np.int32]],
    *,
    stratified: bool,
    shuffle: bool,
    seed: int,
) -> list[Fold]:
    """Pairs of training and test rows, both ascending if `folds` is a number."""
    num_rows = len(labels)
    if hasattr(folds, "split") and not isinstance(folds, str):
        folds = folds.split(np.zeros((num_rows, 1)), labels, queries)
    elif not hasattr(folds, "__iter__"):
        return list(_made(_number_of(folds), labels, queries, stratified, shuffle, seed))
    made = [_checked(number, fold, num_rows) for number, fold in enumerate(folds)]
    if not made:
        raise ValueError("folds: there are none")
    return made


def _number_of(folds: Any) -> int:
    try:
        number = operator.index(folds)
    except TypeError:
        raise TypeError(
            "folds must be a number, pairs of training and test rows, or an object with a method "
            f"split, got {folds!r}"
        ) from None
    if number < 2:
        raise ValueError(f"folds must be at least 2, got {number}")
    return int(number)


def _made(
    number: int,
    labels: NDArray[np.float64],
    queries: Optional[NDArray[np.int32]],
    stratified: bool,
    shuffle: bool,
    seed: int,
) -> Iterator[Fold]:
    """Units are rows, or queries with all their rows. Unit i of a stratum, in the order drawn, is
    tested in fold i modulo `number`; strata go on where the one before ended."""
    rows = np.arange(len(labels))
    unit_of_row = queries if queries is not None else rows
    num_units = int(unit_of_row[-1]) + 1
    if number > num_units:
        what = "queries" if queries is not None else "rows"
        raise ValueError(f"folds: there are only {num_units} {what} for {number} folds")
    units = np.arange(num_units)
    if shuffle:
        # The stream of RandomState is the same in all versions of NumPy.
        units = np.random.RandomState(seed).permutation(num_units)
    if stratified and queries is None:
        units = units[np.argsort(labels[units], kind="stable")]
    fold_of_unit = np.empty(num_units, dtype=np.intp)
    if shuffle or stratified:
        fold_of_unit[units] = np.arange(num_units) % number
    else:
        fold_of_unit[:] = np.arange(num_units) * number // num_units
    fold_of_row = fold_of_unit[unit_of_row]
    for fold in range(number):
        yield rows[fold_of_row != fold], rows[fold_of_row == fold]


def _checked(number: int, fold: Any, num_rows: int) -> Fold:
    try:
        train, test = fold
    except (TypeError, ValueError):
        raise TypeError(f"folds: fold {number} must be a pair of training and test rows") from None
    return (
        _rows_of(train, f"folds: training rows of fold {number}", num_rows),
        _rows_of(test, f"folds: test rows of fold {number}", num_rows),
    )


def _rows_of(rows: Any, where: str, num_rows: int) -> Rows:
    array = np.asarray(rows)
    if array.dtype.kind == "b" and array.shape == (num_rows,):
        array = np.flatnonzero(array)
    if array.ndim != 1 or array.dtype.kind not in "iu":
        raise TypeError(f"{where} must be row numbers, or a mask of {num_rows} rows")
    if len(array) == 0:
        raise ValueError(f"{where}: there are none")
    if array.min() < 0 or array.max() >= num_rows:
        raise ValueError(f"{where} must be from 0 to {num_rows - 1}")
    return array.astype(np.intp)


def rows_of(X: Any, rows: Rows, dataset: Dataset) -> Any:
    """A copy of some rows of data of any kind that `as_table` takes, of which `dataset` is made."""
    if hasattr(X, "iloc"):
        return X.iloc[rows]
    if hasattr(X, "tocsr"):
        return X.tocsr()[rows]
    if isinstance(X, np.ndarray):
        return X[rows]
    if hasattr(X, "__arrow_c_stream__") or hasattr(X, "__arrow_c_array__"):
        # A stream may have an end, and no way to pick rows.
        values = np.empty((len(rows), dataset.num_columns), order="F")
        for column in range(dataset.num_columns):
            values[:, column] = dataset._column(column)[rows]
        return values
    if isinstance(X, (list, tuple)):
        return [X[row] for row in rows]
    return np.asarray(X)[rows]
