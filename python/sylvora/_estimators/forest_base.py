"""What forests and single trees share: they are trained as a whole, without rounds."""

from __future__ import annotations

from typing import Any, TypeVar

import numpy as np
from sklearn.base import ClassifierMixin, RegressorMixin

from .base import SylvoraBase
from .documentation import documented
from .labels import find_classes, kept_classes, class_names
from .._data.numbers import Array
from .scores import Scores
from .._training.fit import FitArguments, fit

# mypy: allow-subclassing-any

# The library's limit.
_MOST_ROWS = 2**31 - 9


NumbersT = TypeVar("NumbersT", bound="OfNumbers")
VotesT = TypeVar("VotesT", bound="OfVotes")


@documented
class OfNumbers(RegressorMixin, Scores):
    """Trees whose leaves have the mean of the labels."""

    def fit(self: NumbersT, X: Any, y: Any, sample_weight: Any = None) -> NumbersT:
        """Train a model.

        Parameters
        ----------
        {training X}
        y : array-like of shape (n_samples,)
            Labels: finite numbers.
        {weights}

        Returns
        -------
        self

        {training errors}
        """
        return self._fit(X, y, sample_weight, settings=self._settings(), verbose=self.verbose)


@documented
class OfVotes(ClassifierMixin, SylvoraBase):
    """Trees that vote for a class.

    Attributes
    ----------
    model_ : sylvora.Model
        The trained model. It predicts indices into `classes_`.
    feature_importances_ : ndarray of shape (n_features,)
        Training rows that the splits on each feature divide, as shares of their sum. Votes have no
        gain.
    """

    _importance = "cover"

    def fit(self: VotesT, X: Any, y: Any, sample_weight: Any = None) -> VotesT:
        """Train a model.

        Parameters
        ----------
        {training X}
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

        {training errors}
        """
        settings = self._settings()
        dataset = self._dataset(X)
        classes, codes = find_classes(y, dataset.num_rows)
        rows, weights = self._rows_and_weights(dataset, codes, sample_weight)
        classes, codes = kept_classes(classes, codes, rows)
        data = dataset if rows is None else dataset.subset(rows)
        if weights is not None:
            total = int(weights.sum(dtype=np.int64))
            if total > _MOST_ROWS:
                raise ValueError(
                    f"sample_weight sums to {total}, but a classification by votes repeats each row"
                    f" as often as its weight, and takes up to {_MOST_ROWS} rows: use smaller"
                    " weights"
                )
            data = data.subset(np.repeat(np.arange(len(weights), dtype=np.int32), weights))
            codes = np.repeat(codes, weights)
        result = fit(
            FitArguments(
                data,
                codes.astype(np.float64),
                settings,
                verbose=self.verbose,
                class_names=class_names(classes),
            )
        )
        self._finish(dataset, [result], classes_=classes)
        return self

    def predict(self, X: Any) -> Array:
        """Return the classes with the most votes; the model says which of equal ones.

        {data}

        Returns
        -------
        ndarray of shape (n_samples,)
            Of the type of `classes_`.

        {refusals}
        """
        codes = self._scores(X)[0].astype(np.intp)
        classes: Array = self.classes_[codes]
        return classes

    def predict_proba(self, X: Any) -> Array:
        """Return the share of the trees that vote for each class.

        {data}

        Returns
        -------
        ndarray of float64 and shape (n_samples, n_classes)

        {refusals}
        """
        model, frame = self._models()[0], self._frame(X)
        shares = np.empty((frame.num_rows, model.n_classes))
        model._call(model.votes, frame.table, shares, self._threads())
        return shares
