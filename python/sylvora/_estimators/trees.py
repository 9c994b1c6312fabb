"""Single trees."""

from __future__ import annotations

from typing import Any, Optional

import numpy as np

from .documentation import documented
from .forest_base import OfNumbers, OfVotes


class TreeParameters:
    """The parameters of a single tree.

    Parameters
    ----------
    subsample : float
        Share of the rows that is drawn for the tree, without replacement, in (0, 1].
    """

    def __init__(
        self,
        *,
        max_depth: int = 4,
        max_leaf_nodes: int = 20,
        min_samples_split: int = 6,
        subsample: float = 0.6,
        max_features: float = 0.6,
        missing: Optional[float] = np.nan,
        random_state: Any = 1,
        n_jobs: Optional[int] = 1,
        verbose: int = 0,
    ) -> None:
        self.max_depth = max_depth
        self.max_leaf_nodes = max_leaf_nodes
        self.min_samples_split = min_samples_split
        self.subsample = subsample
        self.max_features = max_features
        self.missing = missing
        self.random_state = random_state
        self.n_jobs = n_jobs
        self.verbose = verbose


@documented
class SylvoraTreeRegressor(TreeParameters, OfNumbers):
    """A single tree for regression.

    Parameters
    ----------
    {others}

    Attributes
    ----------
    {others}

    Examples
    --------
    >>> from sylvora import SylvoraTreeRegressor
    >>> X = [[float(i % 10)] for i in range(100)]
    >>> y = [2.0 * row[0] for row in X]
    >>> SylvoraTreeRegressor(max_depth=9).fit(X, y).predict([[3.0]]).round(2)
    array([6.])
    """

    _fixed = {"model": "tree", "task": "regression"}


@documented
class SylvoraTreeClassifier(TreeParameters, OfVotes):
    """A single tree for classification.

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
    >>> from sylvora import SylvoraTreeClassifier
    >>> X = [[float(i % 10)] for i in range(100)]
    >>> y = ["large" if row[0] > 4 else "small" for row in X]
    >>> SylvoraTreeClassifier().fit(X, y).predict([[3.0], [8.0]])
    array(['small', 'large'], dtype='<U5')
    """

    _fixed = {"model": "tree", "task": "classification"}
