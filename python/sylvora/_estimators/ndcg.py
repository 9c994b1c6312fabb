"""The quality of a ranking."""

from __future__ import annotations

import numpy as np

from .._data.numbers import Array


def _ndcg(labels: Array, scores: Array, places: int) -> float:
    """Return the NDCG of one query, NaN if it has no gain above 0."""
    gains = np.exp2(labels) - 1
    discounts = np.zeros(len(labels))
    shown = min(places, len(labels))
    discounts[:shown] = 1 / np.log2(np.arange(2, shown + 2))
    best = float(np.sort(gains)[::-1] @ discounts)
    if best <= 0:
        return float("nan")
    # Rows with equal scores share the discounts of their places.
    _, tied, counts = np.unique(-scores, return_inverse=True, return_counts=True)
    ends = np.cumsum(counts)
    sums = np.concatenate([[0.0], np.cumsum(discounts)])
    shares = (sums[ends] - sums[ends - counts]) / counts
    # Rounding must not lift a perfect ranking above 1.
    return min(float(gains @ shares[tied]) / best, 1.0)


def mean_ndcg(labels: Array, scores: Array, queries: Array, places: int) -> float:
    """Return the mean NDCG of the first `places` places over the queries with a gain above 0.

    Parameters
    ----------
    labels, scores : ndarray of shape (n_samples,)
        Relevance, and what the rows are ordered by.
    queries : ndarray of shape (n_samples,)
        The query of each row; the rows of a query stand together.
    places : int
        Number of places that count, 1 or more.

    Raises
    ------
    ValueError
        If no query has a gain above 0.
    """
    begins = np.flatnonzero(np.diff(queries)) + 1
    parts = zip(np.split(labels, begins), np.split(scores, begins))
    values = [_ndcg(part, part_scores, places) for part, part_scores in parts]
    known = [value for value in values if not np.isnan(value)]
    if not known:
        raise ValueError("no query has a label above 0: NDCG is not defined")
    return float(np.mean(known))
