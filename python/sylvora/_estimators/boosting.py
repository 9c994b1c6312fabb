"""Gradient boosting for regression; the names of the other estimators that boost."""

from __future__ import annotations

from collections.abc import Callable, Iterator, Mapping, Sequence
from typing import Any, Optional

import numpy as np
from sklearn.base import RegressorMixin

from .base import SylvoraBase, number_column
from .classifier import SylvoraClassifier
from .._data.numbers import Array
from .ranker import SylvoraRanker
from .._training.train import evaluation_data, fit_model

# mypy: allow-subclassing-any

__all__ = ["SylvoraClassifier", "SylvoraRanker", "SylvoraRegressor"]


class SylvoraRegressor(RegressorMixin, SylvoraBase):
    """Gradient boosting for regression.

    Parameters
    ----------
    loss : {"squared_error", "absolute_error", "huber", "quantile"}, default="squared_error"
        What the training minimises.
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
    delta : float, default=1.0
        Of the loss "huber": the residual from which on it grows linearly, above 0.
    quantile : float, default=0.5
        Of the loss "quantile": the share of labels below the prediction, in (0, 1).
    objective : callable, default=None
        Function of labels and scores, of shape (n_samples,), that returns the negative gradient of
        a loss, or a tuple of it and the second derivative. It is called once per round, and `loss`
        is then not used. The arrays are reused from round to round.
    base_score : float, default=None
        Score that the first round starts from; only with `objective`.
    early_stopping_rounds : int, default=None
        Rounds without a better value of the first metric on the last set of `eval_set` that end
        the training; the model is then cut to its best round.
    eval_metric : str, callable or list of these, default=None
        What is measured on `eval_set` after each round: metrics of the library such as "rmse" or
        "auc", or functions of labels and scores that return a float. Smaller is better unless the
        function has the attribute ``greater_is_better = True``. None: those that suit the loss.
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
        X : array-like of shape (n_samples, n_features) or sylvora.Dataset
            Training data: an array, a data frame, an Arrow table, a sparse matrix or lists.
        y : array-like of shape (n_samples,)
            Labels: finite numbers.
        sample_weight : array-like of shape (n_samples,), default=None
            Whole numbers of 0 or more. Rows of weight 0 are left out. If not all weights are 1, the
            training takes the rows in the order of their values instead of that in X, so neither
            their order nor rows of weight 0 decide which rows are drawn.
        eval_set : mapping of str to (X, y), or list of (X, y), default=None
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
        rows, weights = self._rows_and_weights(dataset, labels, sample_weight)
        result = fit_model(
            dataset if rows is None else dataset.subset(rows),
            labels if rows is None else labels[rows],
            settings=settings,
            weights=weights,
            evaluation=evaluation_data(eval_set, dataset),
            **options,
        )
        self._finish(dataset, [result])
        return self

    def predict(self, X: Any) -> Array:
        """Return the predictions.

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
        """Yield the predictions after each round.

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
