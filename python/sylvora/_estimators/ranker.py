"""Gradient boosting for ranking."""

from __future__ import annotations

from collections.abc import Mapping, Sequence
from typing import Any, Optional

import numpy as np

from .base import number_column
from .._data.tables import as_queries
from .documentation import documented
from .ndcg import mean_ndcg
from .scores import StagedScores


@documented
class SylvoraRanker(StagedScores):
    """Gradient boosting on pairs of rows of the same query, for ranking.

    It needs the queries of the rows, which the common checks of scikit-learn cannot give.

    Parameters
    ----------
    loss
        What the training minimises over the pairs.
    margin : float
        Difference of scores that the loss asks of a pair.
    subsample_unit
        Whether single rows or whole queries are drawn for each tree.
    eval_metric : str, callable or list of these
        What is measured on `eval_set` after each round, see :class:`SylvoraRegressor`. None:
        "ndcg@10" and "pairs".
    {others}

    Attributes
    ----------
    {others}

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
        {training X}
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

        {training errors}
        """
        settings, options = self._settings(), self._options()
        dataset = self._dataset(X)
        queries = as_queries(group, dataset.num_rows, qid=qid)
        return self._fit(
            dataset, y, eval_set=eval_set, settings=settings, queries=queries, **options
        )

    def score(self, X: Any, y: Any, *, group: Any = None, qid: Any = None) -> float:
        """Return the mean NDCG of the first 10 places of each query.

        The gain of a row is 2**y - 1. Rows with equal scores get the mean of their gains. Queries
        without a gain above 0 are left out.

        {data}
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
        queries = as_queries(group, len(scores), qid=qid)
        return mean_ndcg(number_column(y, len(scores)), scores, queries, 10)

    def _more_tags(self) -> dict[str, Any]:
        # The common checks fit without queries.
        return {**super()._more_tags(), "_skip_test": True}

    def __sklearn_tags__(self) -> Any:
        tags = super().__sklearn_tags__()
        tags._skip_test = True
        return tags
