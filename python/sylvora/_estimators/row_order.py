"""An order of rows that depends on their values alone."""

from __future__ import annotations

from collections.abc import Iterator
import numpy as np

from .._data.dataset import Dataset
from .._data.numbers import Array


def _keys(dataset: Dataset, labels: Array, weights: Array) -> Iterator[Array]:
    for column in range(dataset.num_columns):
        yield dataset._column(column)
    yield labels
    yield weights


def in_order_of_values(dataset: Dataset, labels: Array, weights: Array, rows: Array) -> Array:
    """Return `rows`, ordered by the first column, then by the second, ..., label and weight.

    Only rows that are equal in all columns so far are compared in the next one.

    Parameters
    ----------
    dataset : Dataset
    labels, weights : ndarray of shape (num_rows,)
        Of all rows of the data set.
    rows : ndarray of int
        The rows to order, each once.
    """
    # The place where the rows that are equal to this one begin.
    place = np.zeros(dataset.num_rows, dtype=np.int64)
    tied = rows
    for key in _keys(dataset, labels, weights):
        values = key[tied]
        order = np.lexsort((values, place[tied]))
        tied, values = tied[order], values[order]
        places = place[tied]
        # Numbers the rows of each tie from its place on; equal rows then share the lowest number.
        is_first = np.ones(len(tied), dtype=bool)
        is_first[1:] = places[1:] != places[:-1]
        begin = np.maximum.accumulate(np.where(is_first, np.arange(len(tied)), 0))
        numbers = places + np.arange(len(tied)) - begin
        is_first[1:] |= values[1:] != values[:-1]
        place[tied] = np.maximum.accumulate(np.where(is_first, numbers, 0))
        is_single = is_first & np.append(is_first[1:], True)
        tied = tied[~is_single]
        if not tied.size:
            break
    ordered: Array = rows[np.argsort(place[rows], kind="stable")]
    return ordered
