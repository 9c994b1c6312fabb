"""What forests and single trees share: they are trained as a whole, without rounds."""

from __future__ import annotations

from typing import Any

import numpy as np
from sklearn.base import ClassifierMixin, RegressorMixin

from .base import SylvoraBase, number_column
from .labels import find_classes, kept_classes, class_names
from .._data.numbers import Array
from .._training.train import fit_model

# mypy: allow-subclassing-any

# The library's limit.
_MOST_ROWS = 2**31 - 9


class OfNumbers(RegressorMixin, SylvoraBase):
    """Trees whose leaves have the mean of the labels."""

    def _fit(self, X: Any, y: Any, sample_weight: Any) -> None:
        settings = self._settings()
        dataset = self._dataset(X)
        labels = number_column(y, dataset.num_rows)
        rows, weights = self._rows_and_weights(dataset, labels, sample_weight)
        result = fit_model(
            dataset if rows is None else dataset.subset(rows),
            labels if rows is None else labels[rows],
            settings=settings,
            weights=weights,
            verbose=self.verbose,
        )
        self._finish(dataset, [result])

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


class OfVotes(ClassifierMixin, SylvoraBase):
    """Trees that vote for a class."""

    _importance = "cover"

    def _fit(self, X: Any, y: Any, sample_weight: Any) -> None:
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
        result = fit_model(
            data,
            codes.astype(np.float64),
            settings=settings,
            verbose=self.verbose,
            class_names=class_names(classes),
        )
        self._finish(dataset, [result], classes_=classes)

    def predict(self, X: Any) -> Array:
        """Return the classes with the most votes; the model says which of equal ones.

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
        codes = self._scores(X)[0].astype(np.intp)
        classes: Array = self.classes_[codes]
        return classes

    def predict_proba(self, X: Any) -> Array:
        """Return the share of the trees that vote for each class.

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
        model, frame = self._models()[0], self._frame(X)
        shares = np.empty((frame.num_rows, model.n_classes))
        model._call(model.votes, frame.table, shares, self._threads())
        return shares
