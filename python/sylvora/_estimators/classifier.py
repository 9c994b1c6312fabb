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
from .documentation import documented
from .labels import check_all_classes, class_names, codes_of, find_classes, kept_classes
from .._data.numbers import Array
from .one_vs_rest import Job, run_all
from .row_order import in_order_of_values
from .._training.facts import LOSSES
from .._training.train import evaluation_data

# mypy: allow-subclassing-any, allow-untyped-decorators



def _has_probabilities(classifier: Any) -> bool:
    loss = LOSSES.get(classifier.loss)
    return classifier.objective is None and loss is not None and loss.probabilities


@documented
class SylvoraClassifier(ClassifierMixin, SylvoraBase):
    """Gradient boosting for classification.

    Labels may be of any kind that can be sorted: numbers, texts, booleans. For more than two
    classes one model is trained per class, against all others, on the same data and with the same
    seed.

    Parameters
    ----------
    loss
        What the training minimises. "squared_hinge" has no probabilities. "logistic" is not the
        textbook loss; use "log_loss" for probabilities.
    multi_class
        One model per class against all others.
    {others}

    Attributes
    ----------
    model_ : sylvora.Model or list of sylvora.Model
        The trained model. For more than two classes a list, in the order of `classes_`; so are
        `best_iteration_`, `best_score_` and `evals_result_`, as each class is measured, and stopped
        early, on its own.
    {others}

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
        {training X}
        y : array-like of shape (n_samples,)
            Classes, at least two.
        {weights}
        class_weight : mapping, "balanced" or None, default=None
            Weights by class: whole numbers, 1 for classes not given. "balanced" is proportional to
            1 / number of rows of the class: exactly if the weights' sum stays below 2**31,
            otherwise to the nearest whole numbers with such a sum. A row's weight is that of its
            class times its `sample_weight`, and has the same effect.
        {eval_set}

        Returns
        -------
        self

        {training errors}
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

        {data}

        Returns
        -------
        ndarray of float64 and shape (n_samples,) or (n_samples, n_classes)
            For two classes, a score above 0 means ``classes_[1]``. For more, the class with the
            largest score is predicted.

        {refusals}
        """
        scores = self._scores(X)
        decisions: Array = scores[0] if len(scores) == 1 else scores.T
        return decisions

    def predict(self, X: Any) -> Array:
        """Return the predicted classes.

        {data}

        Returns
        -------
        ndarray of shape (n_samples,)
            Of the type of `classes_`.

        {refusals}
        """
        return self._labels(self._scores(X))

    @available_if(_has_probabilities)
    def predict_proba(self, X: Any) -> Array:
        """Return the probabilities of the classes. Not for "squared_hinge" and objectives.

        For more than two classes, each model's probability is divided by their sum; if all are
        0, the classes are equally probable.

        {data}

        Returns
        -------
        ndarray of float64 and shape (n_samples, n_classes)

        {refusals}
        """
        return self._probabilities(self._scores(X))

    def staged_predict(self, X: Any) -> Iterator[Array]:
        """Yield the predicted classes after each round.

        {data}

        Yields
        ------
        ndarray of shape (n_samples,)
        """
        for scores in self._staged(X):
            yield self._labels(scores)

    @available_if(_has_probabilities)
    def staged_predict_proba(self, X: Any) -> Iterator[Array]:
        """Yield the probabilities of the classes after each round.

        {data}

        Yields
        ------
        ndarray of float64 and shape (n_samples, n_classes)
        """
        for scores in self._staged(X):
            yield self._probabilities(scores)
