"""Gradient boosting for ranking."""

from __future__ import annotations

from collections.abc import Iterator, Mapping, Sequence
from typing import Any, Optional

import numpy as np

from .base import SylvoraBase, number_column
from .._data.tables import as_queries
from .ndcg import mean_ndcg
from .._data.numbers import Array
from .._training.train import evaluation_data, fit_model


class SylvoraRanker(SylvoraBase):
    """Gradient boosting on pairs of rows of the same query, for ranking.

    It needs the queries of the rows, which the common checks of scikit-learn cannot give.

    Parameters
    ----------
    loss : {"cross_entropy", "squared_hinge"}, default="cross_entropy"
        What the training minimises over the pairs.
    n_estimators : int, default=500
        Number of boosting rounds, 1 or more.
    learning_rate : float, default=0.09
        Share of each tree's output that is added to the score, above 0.
    max_depth : int, default=4
        Largest depth of a tree, 1 or more.
    max_leaf_nodes : int, default=20
        Largest number of leaves of a tree, 1 or more.
    min_samples_split : int, default=6
        A node below the root is split if it has at least this many rows, 2 or more.
    subsample : float, default=0.6
        Share of the rows that is drawn for each tree, without replacement, in (0, 1].
    max_features : float, default=0.6
        Share of the features that is drawn for each node, in (0, 1].
    margin : float, default=0.5
        Difference of scores that the loss asks of a pair.
    subsample_unit : {"row", "query"}, default="row"
        Whether single rows or whole queries are drawn for each tree.
    early_stopping_rounds : int, default=None
        Rounds without a better value of the first metric on the last set of `eval_set` that end
        the training; the model is then cut to its best round.
    eval_metric : str, callable or list of these, default=None
        What is measured on `eval_set` after each round, see :class:`SylvoraRegressor`. None:
        "ndcg@10" and "pairs".
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
    callbacks : sequence of sylvora.callbacks.Callback, default=None
        Called after every round.

    Attributes
    ----------
    model_ : sylvora.Model
        The trained model.
    best_iteration_ : int or None
        The best round on `eval_set`, from 1. None without `eval_set`.
    best_score_ : float or None
        The value of the first metric on the last set in that round.
    evals_result_ : dict
        ``evals_result_[set][metric]`` is the list of values by round.
    n_features_in_ : int
        Number of features.
    feature_names_in_ : ndarray of str
        Names of the features; only if X has names.
    feature_importances_ : ndarray of shape (n_features,)
        Gain of the splits on each feature, as shares of their sum.

    Examples
    --------
    >>> from sylvora import SylvoraRanker
    >>> X = [[float(i % 10)] for i in range(100)]
    >>> y = [row[0] // 4 for row in X]
    >>> ranker = SylvoraRanker(n_estimators=50).fit(X, y, group=[10] * 10)
    >>> ranker.score(X, y, group=[10] * 10)
    1.0
    """

    _fixed = {"model": "ranking"}
    _choices = {
        "loss": ("cross_entropy", "squared_hinge"),
        "subsample_unit": ("row", "query"),
    }

    def __init__(
        self,
        *,
        loss: str = "cross_entropy",
        n_estimators: int = 500,
        learning_rate: float = 0.09,
        max_depth: int = 4,
        max_leaf_nodes: int = 20,
        min_samples_split: int = 6,
        subsample: float = 0.6,
        max_features: float = 0.6,
        margin: float = 0.5,
        subsample_unit: str = "row",
        early_stopping_rounds: Optional[int] = None,
        eval_metric: Any = None,
        missing: Optional[float] = np.nan,
        random_state: Any = 1,
        n_jobs: Optional[int] = 1,
        verbose: int = 0,
        callbacks: Optional[Sequence[Any]] = None,
    ) -> None:
        self.loss = loss
        self.n_estimators = n_estimators
        self.learning_rate = learning_rate
        self.max_depth = max_depth
        self.max_leaf_nodes = max_leaf_nodes
        self.min_samples_split = min_samples_split
        self.subsample = subsample
        self.max_features = max_features
        self.margin = margin
        self.subsample_unit = subsample_unit
        self.early_stopping_rounds = early_stopping_rounds
        self.eval_metric = eval_metric
        self.missing = missing
        self.random_state = random_state
        self.n_jobs = n_jobs
        self.verbose = verbose
        self.callbacks = callbacks

    def fit(
        self,
        X: Any,
        y: Any,
        *,
        group: Any = None,
        qid: Any = None,
        eval_set: Optional[Mapping[str, Any] | list[Any]] = None,
    ) -> SylvoraRanker:
        """Train a model.

        Parameters
        ----------
        X : array-like of shape (n_samples, n_features) or sylvora.Dataset
            Training data: an array, a data frame, an Arrow table, a sparse matrix or lists.
        y : array-like of shape (n_samples,)
            Relevance: finite numbers, larger is better.
        group : array-like of shape (n_queries,), default=None
            Number of rows of each query; the rows of a query stand together. Either `group` or
            `qid` must be given.
        qid : array-like of shape (n_samples,), default=None
            The query of each row; the rows of a query stand together.
        eval_set : mapping of str to (X, y, group), or list of (X, y, group), default=None
            Sets to evaluate after each round. In a list they are called eval_0, eval_1, ...

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
        settings, options = self._settings(), self._options()
        dataset = self._dataset(X)
        labels = number_column(y, dataset.num_rows)
        queries = _queries(group, qid, dataset.num_rows)
        result = fit_model(
            dataset,
            labels,
            settings=settings,
            queries=queries,
            evaluation=evaluation_data(eval_set, dataset),
            **options,
        )
        self._finish(dataset, [result])
        return self

    def predict(self, X: Any) -> Array:
        """Return the scores; within a query, a larger one means a better place.

        Parameters
        ----------
        X : array-like of shape (n_samples, n_features)
            Data. Columns with names are matched by name.

        Returns
        -------
        ndarray of float64 and shape (n_samples,)

        Raises
        ------
        sklearn.exceptions.NotFittedError
            Before `fit`.
        ValueError, TypeError
            If X does not fit the training data.
        """
        scores: Array = self._scores(X)[0]
        return scores

    def staged_predict(self, X: Any) -> Iterator[Array]:
        """Yield the scores after each round.

        Parameters
        ----------
        X : array-like of shape (n_samples, n_features)
            Data. Columns with names are matched by name.

        Yields
        ------
        ndarray of float64 and shape (n_samples,)
        """
        for scores in self._staged(X):
            yield scores[0]

    def score(self, X: Any, y: Any, *, group: Any = None, qid: Any = None) -> float:
        """Return the mean NDCG of the first 10 places of each query.

        The gain of a row is 2**y - 1. Rows with equal scores get the mean of their gains. Queries
        without a gain above 0 are left out.

        Parameters
        ----------
        X : array-like of shape (n_samples, n_features)
            Data. Columns with names are matched by name.
        y : array-like of shape (n_samples,)
            Relevance.
        group, qid : array-like, default=None
            The queries, as for `fit`.

        Returns
        -------
        float
            From 0 to 1, larger is better.

        Raises
        ------
        ValueError
            If no query has a gain above 0, or the arguments do not fit together.
        """
        scores = self.predict(X)
        queries = _queries(group, qid, len(scores))
        return mean_ndcg(number_column(y, len(scores)), scores, queries, 10)

    def _more_tags(self) -> dict[str, Any]:
        # The common checks fit without queries.
        return {**super()._more_tags(), "_skip_test": True}

    def __sklearn_tags__(self) -> Any:
        tags = super().__sklearn_tags__()
        tags._skip_test = True
        return tags


def _queries(group: Any, qid: Any, num_rows: int) -> Array:
    if (group is None) == (qid is None):
        raise ValueError(
            "a ranker needs the queries of the rows: pass either group, the number of rows of each"
            " query, or qid, the query of each row"
        )
    return as_queries(group, num_rows, qid=qid)
