"""Gradient boosting for classification."""

from __future__ import annotations

from collections.abc import Callable, Iterator, Mapping, Sequence
from functools import partial
from typing import Any, Optional

import numpy as np
from sklearn.base import ClassifierMixin
from sklearn.utils.metaestimators import available_if

from .base import SylvoraBase
from .class_weights import combine
from .._core import probabilities
from .labels import check_all_classes, class_names, codes_of, find_classes, kept_classes
from .._data.numbers import Array
from .one_vs_rest import Job, run_all
from .row_order import in_order_of_values
from .._training.train import evaluation_data

# mypy: allow-subclassing-any, allow-untyped-decorators

_LOSSES_WITH_PROBABILITIES = ("log_loss", "logistic", "exponential")


def _has_probabilities(classifier: Any) -> bool:
    return classifier.objective is None and classifier.loss in _LOSSES_WITH_PROBABILITIES


class SylvoraClassifier(ClassifierMixin, SylvoraBase):
    """Gradient boosting for classification.

    Labels may be of any kind that can be sorted: numbers, texts, booleans. For more than two
    classes one model is trained per class, against all others, on the same data and with the same
    seed.

    Parameters
    ----------
    loss : {"log_loss", "logistic", "exponential", "squared_hinge"}, default="log_loss"
        What the training minimises. "squared_hinge" has no probabilities. "logistic" is not the
        textbook loss; use "log_loss" for probabilities.
    multi_class : {"ovr"}, default="ovr"
        One model per class against all others.
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
    classes_ : ndarray of shape (n_classes,)
        The classes, sorted: those of the rows whose weight is above 0.
    model_ : sylvora.Model or list of sylvora.Model
        The trained model. For more than two classes a list, in the order of `classes_`; so are
        `best_iteration_`, `best_score_` and `evals_result_`, as each class is measured, and stopped
        early, on its own.
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

    Notes
    -----
    `objective` and functions in `eval_metric` get labels 0 and 1, where 1 is ``classes_[1]`` or,
    for more than two classes, the class at hand. With the losses other than "log_loss" the labels
    are -1 and 1. Callbacks see the training of one class after the other. With an objective there
    are no probabilities, and the metrics are "auc" and "accuracy" unless `eval_metric` names
    others.

    `class_weight` is an argument of `fit`, as it has to be whole numbers, which scikit-learn's
    tools do not expect of a parameter of that name.

    Examples
    --------
    >>> from sylvora import SylvoraClassifier
    >>> X = [[float(i % 10)] for i in range(100)]
    >>> y = ["large" if row[0] > 4 else "small" for row in X]
    >>> classifier = SylvoraClassifier(n_estimators=50).fit(X, y)
    >>> classifier.predict([[3.0], [8.0]])
    array(['small', 'large'], dtype='<U5')
    >>> classifier.predict_proba([[3.0]]).round(2)
    array([[0.01, 0.99]])
    """

    _fixed = {"model": "gbdt"}
    _choices = {
        "loss": ("log_loss", "logistic", "exponential", "squared_hinge"),
        "multi_class": ("ovr",),
    }

    def __init__(
        self,
        *,
        loss: str = "log_loss",
        multi_class: str = "ovr",
        n_estimators: int = 500,
        learning_rate: float = 0.09,
        max_depth: int = 4,
        max_leaf_nodes: int = 20,
        min_samples_split: int = 6,
        subsample: float = 0.6,
        max_features: float = 0.6,
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
        self.multi_class = multi_class
        self.n_estimators = n_estimators
        self.learning_rate = learning_rate
        self.max_depth = max_depth
        self.max_leaf_nodes = max_leaf_nodes
        self.min_samples_split = min_samples_split
        self.subsample = subsample
        self.max_features = max_features
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
        class_weight: Any = None,
        eval_set: Optional[Mapping[str, Any] | list[Any]] = None,
    ) -> SylvoraClassifier:
        """Train a model, or one per class.

        Parameters
        ----------
        X : array-like of shape (n_samples, n_features) or sylvora.Dataset
            Training data: an array, a data frame, an Arrow table, a sparse matrix or lists.
        y : array-like of shape (n_samples,)
            Classes, at least two.
        sample_weight : array-like of shape (n_samples,), default=None
            Whole numbers of 0 or more. Rows of weight 0 are left out. If not all weights are 1, the
            training takes the rows in the order of their values instead of that in X, so neither
            their order nor rows of weight 0 decide which rows are drawn.
        class_weight : mapping, "balanced" or None, default=None
            Weights by class: whole numbers, 1 for classes not given. "balanced" is proportional to
            1 / number of rows of the class: exactly if the weights' sum stays below 2**31,
            otherwise to the nearest whole numbers with such a sum. A row's weight is that of its
            class times its `sample_weight`, and has the same effect.
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
        classes, codes = find_classes(y, dataset.num_rows)
        rows, weights = self._rows_and_weights(dataset, codes, sample_weight)
        classes, codes = kept_classes(classes, codes, rows)
        if len(classes) < 2:
            raise ValueError(
                f"y has only one class, {classes[0]!r}, among the rows with a weight above 0: a"
                " classifier needs two"
            )
        weights = combine(class_weight, classes.tolist(), codes, weights)
        if rows is None and weights is not None:
            rows = in_order_of_values(dataset, codes, weights, np.arange(dataset.num_rows))
            codes, weights = codes[rows], weights[rows]
        evaluation = evaluation_data(eval_set, dataset, partial(codes_of, classes))
        if evaluation and self.objective is not None and not options["metrics"]:
            options["metrics"] = ["auc", "accuracy"]
        if not options["metrics"] or "auc" in options["metrics"]:
            check_all_classes(evaluation, classes)
        # The label of a row that is not of the class.
        other = 0.0 if self.objective is not None or self.loss == "log_loss" else -1.0
        data = dataset if rows is None else dataset.subset(rows)
        names = class_names(classes)
        job = Job(data, codes, other, settings, weights, evaluation, options, names)
        wanted = [1] if len(classes) == 2 else list(range(len(classes)))
        self._finish(dataset, run_all(job, wanted), classes_=classes)
        return self

    def _decisions(self, scores: Array) -> Array:
        decisions: Array = scores[0] if len(scores) == 1 else scores.T
        return decisions

    def _labels(self, scores: Array) -> Array:
        codes = (scores[0] > 0).astype(np.intp) if len(scores) == 1 else scores.argmax(axis=0)
        classes: Array = self.classes_[codes]
        return classes

    def _probabilities(self, scores: Array) -> Array:
        if len(scores) == 1:
            # 1 - p would lose the digits of a small probability.
            scores = np.stack([-scores[0], scores[0]])
        shares = np.empty_like(scores)
        for row, out in zip(scores, shares):
            probabilities(self._models()[0].loss, row, out)
        if len(self.classes_) == 2:
            return np.ascontiguousarray(shares.T)
        sums = shares.sum(axis=0)
        even = sums == 0
        sums[even] = len(shares)
        shares[:, even] = 1
        return np.ascontiguousarray((shares / sums).T)

    def decision_function(self, X: Any) -> Array:
        """Return the scores.

        Parameters
        ----------
        X : array-like of shape (n_samples, n_features)
            Data. Columns with names are matched by name.

        Returns
        -------
        ndarray of float64 and shape (n_samples,) or (n_samples, n_classes)
            For two classes, a score above 0 means ``classes_[1]``. For more, the class with the
            largest score is predicted.

        Raises
        ------
        sklearn.exceptions.NotFittedError
            Before `fit`.
        ValueError, TypeError
            If X does not fit the training data.
        """
        return self._decisions(self._scores(X))

    def predict(self, X: Any) -> Array:
        """Return the predicted classes.

        Parameters
        ----------
        X : array-like of shape (n_samples, n_features)
            Data. Columns with names are matched by name.

        Returns
        -------
        ndarray of shape (n_samples,)
            Of the type of `classes_`.

        Raises
        ------
        sklearn.exceptions.NotFittedError
            Before `fit`.
        ValueError, TypeError
            If X does not fit the training data.
        """
        return self._labels(self._scores(X))

    @available_if(_has_probabilities)
    def predict_proba(self, X: Any) -> Array:
        """Return the probabilities of the classes. Not for "squared_hinge" and objectives.

        For more than two classes, each model's probability is divided by their sum; if all are
        0, the classes are equally probable.

        Parameters
        ----------
        X : array-like of shape (n_samples, n_features)
            Data. Columns with names are matched by name.

        Returns
        -------
        ndarray of float64 and shape (n_samples, n_classes)

        Raises
        ------
        sklearn.exceptions.NotFittedError
            Before `fit`.
        ValueError, TypeError
            If X does not fit the training data.
        """
        return self._probabilities(self._scores(X))

    def staged_predict(self, X: Any) -> Iterator[Array]:
        """Yield the predicted classes after each round.

        Parameters
        ----------
        X : array-like of shape (n_samples, n_features)
            Data. Columns with names are matched by name.

        Yields
        ------
        ndarray of shape (n_samples,)
        """
        for scores in self._staged(X):
            yield self._labels(scores)

    @available_if(_has_probabilities)
    def staged_predict_proba(self, X: Any) -> Iterator[Array]:
        """Yield the probabilities of the classes after each round.

        Parameters
        ----------
        X : array-like of shape (n_samples, n_features)
            Data. Columns with names are matched by name.

        Yields
        ------
        ndarray of float64 and shape (n_samples, n_classes)
        """
        for scores in self._staged(X):
            yield self._probabilities(scores)
