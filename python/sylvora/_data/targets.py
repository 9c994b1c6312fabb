"""Labels, queries and weights of rows as arrays."""

from __future__ import annotations

from typing import Any, Optional

import numpy as np
import numpy.typing as npt

from .numbers import Array, as_numbers, is_instance, is_missing, mask_of

_NUMBERS_ONLY = "numbers are needed"
_CLASSES = "use a classifier, such as SylvoraClassifier, or number the classes 0, 1, ..."
_LARGEST_WEIGHT = 2**31 - 1


def as_labels(y: Any, num_rows: int, *, argument: str = "y") -> npt.NDArray[np.float64]:
    """Return finite labels, one per row, contiguous; may be `y` itself.

    Parameters
    ----------
    y : array-like of shape (num_rows,) or (num_rows, 1)
        Numbers.
    num_rows : int
        Rows of the data.
    argument : str
        What errors call it.

    Raises
    ------
    ValueError
        Another shape or length; a NaN or an infinite value, by row.
    TypeError
        A label that is no number, by row.
    """
    values = _vector(y, argument)
    labels = np.ascontiguousarray(_numbers(values, argument, f"{_NUMBERS_ONLY}: {_CLASSES}"))
    _check_length(labels, num_rows, argument)
    finite = np.isfinite(labels)
    if not finite.all():
        row = int(finite.argmin())
        fault = "NaN" if np.isnan(labels[row]) else "infinite (inf)"
        raise ValueError(f"{argument}: row {row} is {fault}; labels must be finite numbers")
    return labels


def as_weights(sample_weight: Any, num_rows: int) -> Optional[npt.NDArray[np.int32]]:
    """Return whole weights, one per row, or None for None.

    Raises
    ------
    ValueError
        Not one-dimensional or another length; a weight that is no whole number from 0 to
        2147483647, by row; no weight above 0.
    TypeError
        A weight that is no number, by row.
    """
    if sample_weight is None:
        return None
    argument = "sample_weight"
    values = _numbers(_vector(sample_weight, argument, columns=False), argument)
    _check_length(values, num_rows, argument)
    whole = (values >= 0) & (values <= _LARGEST_WEIGHT) & (np.floor(values) == values)
    if not whole.all():
        row = int(whole.argmin())
        raise ValueError(
            f"sample_weight: row {row} is {values[row]}; weights must be whole numbers from 0 to "
            f"{_LARGEST_WEIGHT}; scale and round them, for example numpy.rint(100 * sample_weight)"
        )
    if not values.any():
        raise ValueError("sample_weight: all weights are 0; at least one must be above 0")
    return values.astype(np.int32)


def as_queries(
    group: Any, num_rows: int, *, qid: Any = None, argument: str = "group"
) -> npt.NDArray[np.int32]:
    """Return the number of the query of each row, from 0 in the order of the rows.

    Parameters
    ----------
    group : array-like of shape (n_queries,) or None
        Number of rows of each query, in order; they add up to `num_rows`.
    num_rows : int
        Rows of the data.
    qid : array-like of shape (num_rows,) or None
        Instead of `group`: a query id per row, numbers or text. The rows of one query are together.
    argument : str
        What errors call `group`.

    Raises
    ------
    ValueError
        Neither or both are given; counts that do not fit; rows of a query that are not together.
    TypeError
        Counts that are no numbers.
    """
    if (group is None) == (qid is None):
        raise ValueError(
            "pass either group (number of rows of each query) or qid (query id of each row): "
            "ranking needs one of them"
        )
    if qid is not None:
        return _queries_of_ids(_vector(qid, "qid", columns=False), num_rows)
    counts = _numbers(_vector(group, argument, columns=False), argument)
    usable = (counts >= 0) & (counts <= num_rows) & (np.floor(counts) == counts)
    if not usable.all():
        query = int(usable.argmin())
        raise ValueError(
            f"{argument}: query {query} has {counts[query]} rows; counts must be whole numbers "
            f"from 0 to {num_rows}, the number of rows"
        )
    whole = counts.astype(np.int64)
    if whole.sum() != num_rows:
        raise ValueError(
            f"{argument}: its counts add up to {whole.sum()}, but X has {num_rows} rows"
        )
    return np.repeat(np.arange(len(whole), dtype=np.int32), whole)


def _queries_of_ids(ids: Array, num_rows: int) -> npt.NDArray[np.int32]:
    _check_length(ids, num_rows, "qid")
    if ids.dtype.kind == "O":
        absent = np.fromiter(map(is_missing, ids), np.bool_, num_rows)
    else:
        absent = ids != ids  # NaN
    if absent.any():
        raise ValueError(f"qid: row {int(absent.argmax())} is missing; each row needs a query id")
    is_first = np.ones(num_rows, dtype=np.bool_)
    is_first[1:] = ids[1:] != ids[:-1]
    seen: dict[Any, int] = {}
    for row in np.flatnonzero(is_first).tolist():
        first = seen.setdefault(ids[row], row)
        if first != row:
            raise ValueError(
                f"qid: the rows of query {ids[row]} are not together (rows {first} and {row}, with "
                "another query between them); sort X, y and qid by query"
            )
    return np.cumsum(is_first, dtype=np.int32) - np.int32(1)


def _vector(values: Any, argument: str, columns: bool = True) -> Array:
    """One-dimensional values; with `columns` also from one column."""
    if values is None:
        raise ValueError(
            f"{argument}: Expected array-like (array or non-string sequence), got None"
        )
    array = _array(values, argument)
    if columns and array.ndim == 2 and array.shape[1] == 1:
        return array.reshape(-1)
    if array.ndim == 1:
        return array
    if array.ndim == 0 and array.dtype.kind == "O":
        kind = type(values).__name__
        raise TypeError(f"{argument} must be an array or a list, with one item per row, not {kind}")
    raise ValueError(
        f"{argument} should be a 1d array, got an array of shape {array.shape} instead"
    )


def _array(values: Any, argument: str) -> Array:
    if is_instance(values, "pandas", "Series"):
        return np.asarray(values.to_numpy())
    if isinstance(values, np.ma.MaskedArray) and mask_of(values).any():
        row = int(np.argwhere(mask_of(values))[0, 0])
        raise ValueError(f"{argument}: row {row} is masked; each row needs a value")
    try:
        array = np.asarray(values)
    except ValueError as error:
        raise ValueError(f"{argument} should be a 1d array of numbers: {error}") from None
    # NumPy turns numbers into text if there is text beside them.
    if array.dtype.kind in "US" and not hasattr(values, "dtype"):
        array = np.asarray(values, dtype=object)
    return array


def _numbers(
    values: Array, argument: str, text_advice: str = _NUMBERS_ONLY
) -> npt.NDArray[np.float64]:
    return as_numbers(values, lambda _: argument, text_advice).astype(np.float64, copy=False)


def _check_length(values: Array, num_rows: int, argument: str) -> None:
    if len(values) != num_rows:
        raise ValueError(f"{argument} has {len(values)} values, but X has {num_rows} rows")
