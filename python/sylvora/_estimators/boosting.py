"""Gradient boosting for regression; the names of the other estimators that boost."""

from __future__ import annotations

from collections.abc import Callable, Mapping, Sequence
from typing import Any, Optional

import numpy as np
from sklearn.base import RegressorMixin

from .classifier import SylvoraClassifier
from .documentation import documented
from .ranker import SylvoraRanker
from .scores import StagedScores

# mypy: allow-subclassing-any

__all__ = ["SylvoraClassifier", "SylvoraRanker", "SylvoraRegressor"]


@documented
class SylvoraRegressor(RegressorMixin, StagedScores):
    """Gradient boosting for regression.

    Parameters
    ----------
    delta : float
        Of the loss "huber": the residual from which on it grows linearly, above 0.
    quantile : float
        Of the loss "quantile": the share of labels below the prediction, in (0, 1).
    {others}

    Attributes
    ----------
    {others}

    Examples
    --------
    >>> from sylvora import SylvoraRegressor
    >>> X = [[float(i % 10)] for i in range(100)]
    >>> y = [2.0 * row[0] for row in X]
    >>> regressor = SylvoraRegressor(n_estimators=200).fit(X, y)
    >>> regressor.predict([[3.0]]).round(2)
    array([6.])
    """

    _fixed = {"model": "gbdt"}
    _choices = {"loss": ("squared_error", "absolute_error", "huber", "quantile")}

    def __init__(
        self,
        *,
        loss: str = "squared_error",
        n_estimators: int = 500,
        learning_rate: float = 0.09,
        max_depth: int = 4,
        max_leaf_nodes: int = 20,
        min_samples_split: int = 6,
        subsample: float = 0.6,
        max_features: float = 0.6,
        delta: float = 1.0,
        quantile: float = 0.5,
        objective: Optional[Callable[..., Any]] = None,
        base_score: Optional[float] = None,
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
        self.delta = delta
        self.quantile = quantile
        self.objective = objective
        self.base_score = base_score
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
        sample_weight: Any = None,
        *,
        eval_set: Optional[Mapping[str, Any] | list[Any]] = None,
    ) -> SylvoraRegressor:
        """Train a model.

        Parameters
        ----------
        {training X}
        y : array-like of shape (n_samples,)
            Labels: finite numbers.
        {weights}
        {eval_set}

        Returns
        -------
        self

        {training errors}
        """
        settings, options = self._settings(), self._options()
        return self._fit(X, y, sample_weight, eval_set, settings=settings, **options)
