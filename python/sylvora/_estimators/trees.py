"""Single trees."""

from __future__ import annotations

from typing import Any, Optional

import numpy as np

from .forest_base import OfNumbers, OfVotes


class SylvoraTreeRegressor(OfNumbers):
    """A single tree for regression.

    Parameters
    ----------
    max_depth : int, default=4
        Largest depth of a tree, 1 or more.
    max_leaf_nodes : int, default=20
        Largest number of leaves of a tree, 1 or more.
    min_samples_split : int, default=6
        A node below the root is split if it has at least this many rows, 2 or more.
    subsample : float, default=0.6
        Share of the rows that is drawn for the tree, without replacement, in (0, 1].
    max_features : float, default=0.6
        Share of the features that is drawn for each node, in (0, 1].
    missing : float or None, default=nan
        A value that is read as missing, beside NaN. None: NaN is an error. A
        :class:`sylvora.Dataset` brings its own.
    random_state : int, RandomState, Generator or None, default=1
        Seed, from 0 to 2**32 - 1. None is the same as 1. A generator is asked for a seed.
    n_jobs : int or None, default=1
        Number of threads, up to 256; None is 1, and -1 all usable processors. The result does not
        depend on it.
    verbose : int or bool, default=0
        Whether the training prints its progress.

    Attributes
    ----------
    model_ : sylvora.Model
        The trained model.
    n_features_in_ : int
        Number of features.
    feature_names_in_ : ndarray of str
        Names of the features; only if X has names.
    feature_importances_ : ndarray of shape (n_features,)
        Gain of the splits on each feature, as shares of their sum.

    Examples
    --------
    >>> from sylvora import SylvoraTreeRegressor
    >>> X = [[float(i % 10)] for i in range(100)]
    >>> y = [2.0 * row[0] for row in X]
    >>> SylvoraTreeRegressor(max_depth=9).fit(X, y).predict([[3.0]]).round(2)
    array([6.])
    """

    _fixed = {"model": "tree", "task": "regression"}

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

    def fit(self, X: Any, y: Any, sample_weight: Any = None) -> SylvoraTreeRegressor:
        """Train a model.

        Parameters
        ----------
        X : array-like of shape (n_samples, n_features) or sylvora.Dataset
            Training data: an array, a data frame, an Arrow table, a sparse matrix or lists.
        y : array-like of shape (n_samples,)
            Labels: finite numbers.
        sample_weight : array-like of shape (n_samples,), default=None
            Whole numbers of 0 or more. Rows of weight 0 are left out. If not all weights are 1, the
            training takes the rows in the order of their values instead of that in X, so neither
            their order nor rows of weight 0 decide which rows are drawn.

        Returns
        -------
        self

        Raises
        ------
        ValueError, TypeError
            If a parameter, the data, the labels or the weights are not usable. The estimator is
            then what it was before.
        sylvora.error
            If the training fails.
        """
        self._fit(X, y, sample_weight)
        return self


class SylvoraTreeClassifier(OfVotes):
    """A single tree for classification.

    There is no parameter `class_weight`: weights are whole numbers of repetitions here, so pass
    them as `sample_weight`.

    Parameters
    ----------
    max_depth : int, default=4
        Largest depth of a tree, 1 or more.
    max_leaf_nodes : int, default=20
        Largest number of leaves of a tree, 1 or more.
    min_samples_split : int, default=6
        A node below the root is split if it has at least this many rows, 2 or more.
    subsample : float, default=0.6
        Share of the rows that is drawn for the tree, without replacement, in (0, 1].
    max_features : float, default=0.6
        Share of the features that is drawn for each node, in (0, 1].
    missing : float or None, default=nan
        A value that is read as missing, beside NaN. None: NaN is an error. A
        :class:`sylvora.Dataset` brings its own.
    random_state : int, RandomState, Generator or None, default=1
        Seed, from 0 to 2**32 - 1. None is the same as 1. A generator is asked for a seed.
    n_jobs : int or None, default=1
        Number of threads, up to 256; None is 1, and -1 all usable processors. The result does not
        depend on it.
    verbose : int or bool, default=0
        Whether the training prints its progress.

    Attributes
    ----------
    classes_ : ndarray of shape (n_classes,)
        The classes, sorted: those of the rows whose weight is above 0.
    model_ : sylvora.Model
        The trained model. It predicts indices into `classes_`.
    n_features_in_ : int
        Number of features.
    feature_names_in_ : ndarray of str
        Names of the features; only if X has names.
    feature_importances_ : ndarray of shape (n_features,)
        Training rows that the splits on each feature divide, as shares of their sum. Votes have no
        gain.

    Examples
    --------
    >>> from sylvora import SylvoraTreeClassifier
    >>> X = [[float(i % 10)] for i in range(100)]
    >>> y = ["large" if row[0] > 4 else "small" for row in X]
    >>> SylvoraTreeClassifier().fit(X, y).predict([[3.0], [8.0]])
    array(['small', 'large'], dtype='<U5')
    """

    _fixed = {"model": "tree", "task": "classification"}

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

    def fit(self, X: Any, y: Any, sample_weight: Any = None) -> SylvoraTreeClassifier:
        """Train a model.

        Parameters
        ----------
        X : array-like of shape (n_samples, n_features) or sylvora.Dataset
            Training data: an array, a data frame, an Arrow table, a sparse matrix or lists.
        y : array-like of shape (n_samples,)
            Classes of any kind that can be sorted.
        sample_weight : array-like of shape (n_samples,), default=None
            Whole numbers of 0 or more: the training sees each row so many times, and also draws
            from as many rows. If not all weights are 1, it takes the rows in the order of their
            values instead of that in X, so neither their order nor rows of weight 0 decide
            which rows are drawn.

        Returns
        -------
        self

        Raises
        ------
        ValueError, TypeError
            If a parameter, the data, the labels or the weights are not usable. The estimator is
            then what it was before.
        sylvora.error
            If the training fails.
        """
        self._fit(X, y, sample_weight)
        return self
