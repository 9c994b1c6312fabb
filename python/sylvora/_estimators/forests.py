"""Random forests; the names of the other estimators of the kind."""

from __future__ import annotations

from typing import Any, Optional

import numpy as np

from .documentation import documented
from .forest_base import OfNumbers, OfVotes
from .trees import SylvoraTreeClassifier, SylvoraTreeRegressor

__all__ = [
    "SylvoraForestClassifier",
    "SylvoraForestRegressor",
    "SylvoraTreeClassifier",
    "SylvoraTreeRegressor",
]


class ForestParameters:
    """The parameters of a forest.

    Parameters
    ----------
    n_estimators : int
        Number of trees, 1 or more.
    """

    def __init__(
        self,
        *,
        n_estimators: int = 500,
        min_samples_split: int = 6,
        subsample: float = 0.6,
        max_features: float = 0.6,
        missing: Optional[float] = np.nan,
        random_state: Any = 1,
        n_jobs: Optional[int] = 1,
        verbose: int = 0,
    ) -> None:
        self.n_estimators = n_estimators
        self.min_samples_split = min_samples_split
        self.subsample = subsample
        self.max_features = max_features
        self.missing = missing
        self.random_state = random_state
        self.n_jobs = n_jobs
        self.verbose = verbose


@documented
class SylvoraForestRegressor(ForestParameters, OfNumbers):
    """Random forest for regression.

    Parameters
    ----------
    {others}

    Attributes
    ----------
    {others}

    Examples
    --------
    >>> from sylvora import SylvoraForestRegressor
    >>> X = [[float(i % 10)] for i in range(100)]
    >>> y = [2.0 * row[0] for row in X]
    >>> SylvoraForestRegressor(n_estimators=20).fit(X, y).predict([[3.0]]).round(2)
    array([6.])
    """

    _fixed = {"model": "forest", "task": "regression"}


@documented
class SylvoraForestClassifier(ForestParameters, OfVotes):
    """Random forest for classification: each tree votes for a class.

    There is no parameter `class_weight`: weights are whole numbers of repetitions here, so pass
    them as `sample_weight`.

    Parameters
    ----------
    {others}

    Attributes
    ----------
    {others}

    Examples
    --------
    >>> from sylvora import SylvoraForestClassifier
    >>> X = [[float(i % 10)] for i in range(100)]
    >>> y = ["large" if row[0] > 4 else "small" for row in X]
    >>> SylvoraForestClassifier(n_estimators=20).fit(X, y).predict([[3.0], [8.0]])
    array(['small', 'large'], dtype='<U5')
    """

    _fixed = {"model": "forest", "task": "classification"}
