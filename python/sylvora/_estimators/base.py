"""What the estimators for scikit-learn share."""

from __future__ import annotations

import math
from collections.abc import Iterator, Mapping, Sequence
from typing import Any, ClassVar, Optional

import numpy as np
from sklearn.base import BaseEstimator
from sklearn.utils.validation import check_is_fitted, column_or_1d

from .checks import check_parameters
from .._data.tables import Frame, as_labels, as_weights
from .._data.dataset import Dataset
from .documentation import documented
from .._training.fit import FitResult
from .._model.model import Model
from .._data.numbers import Array
from .._training.parameters import settings_of
from .._training.processors import usable_jobs
from .row_order import in_order_of_values
from .._training.calls import checked_callbacks
from .._training.train import metrics_of

# mypy: allow-subclassing-any

# The parameters that settings_of knows; the others are passed to the training by themselves.
_SETTINGS = frozenset(
    "loss n_estimators learning_rate max_depth max_leaf_nodes min_samples_split subsample"
    " max_features margin subsample_unit delta quantile early_stopping_rounds random_state"
    " n_jobs".split()
)
# The attributes that a fit sets, all at once.
_FITTED = (
    "model_",
    "n_features_in_",
    "feature_names_in_",
    "classes_",
    "best_iteration_",
    "best_score_",
    "evals_result_",
)


def label_column(y: Any, num_rows: int, argument: str = "y") -> Array:
    """Return the labels as an array of shape (n_samples,); a column vector gives a warning.

    Raises
    ------
    ValueError
        If y is None, has several columns, or another length than X.
    """
    if y is None:
        raise ValueError("This estimator requires y to be passed, but the target y is None")
    labels: Array = column_or_1d(y, warn=True)
    if len(labels) != num_rows:
        raise ValueError(f"{argument} has {len(labels)} values, but X has {num_rows} rows")
    return labels


def number_column(y: Any, num_rows: int, argument: str = "y") -> Array:
    """Return labels that are finite numbers, of shape (n_samples,).

    Raises
    ------
    ValueError, TypeError
        As `label_column`, and for labels of another kind.
    """
    return as_labels(label_column(y, num_rows, argument), num_rows, argument=argument)


@documented
class SylvoraBase(BaseEstimator):
    """Parameters to settings, data to a Dataset, results to attributes."""

    _fixed: ClassVar[Mapping[str, str]]  # settings of the class: model, task
    _choices: ClassVar[Mapping[str, Sequence[str]]] = {}
    _importance: ClassVar[str] = "gain"

    def _settings(self) -> dict[str, str]:
        """Check all parameters and return them as the library's settings."""
        params = self.get_params(deep=False)
        check_parameters(params, self._choices)
        given: dict[str, Any] = dict(self._fixed)
        for name, value in params.items():
            if name in _SETTINGS:
                given[name] = value
        if params.get("objective") is not None:
            del given["loss"]
        return settings_of(given)

    def _dataset(self, X: Any) -> Dataset:
        dataset = X if isinstance(X, Dataset) else Dataset(X, missing=self.missing)
        if dataset.num_rows * self.subsample < 1:
            raise ValueError(
                f"subsample={self.subsample} of n_samples={dataset.num_rows} rows is less than one"
                " row: raise subsample"
            )
        return dataset

    def _rows_and_weights(
        self, dataset: Dataset, labels: Array, sample_weight: Any
    ) -> tuple[Optional[Array], Optional[Array]]:
        """Return the rows to train on and their weights, both None for all rows with weights of 1.

        With other weights the rows come in the order of their values. scikit-learn asks that
        neither rows of weight 0 nor the order of the others have an influence, and the rows that
        are drawn for a tree depend on it.
        """
        weights: Optional[Array] = as_weights(sample_weight, dataset.num_rows)
        if weights is None or (weights == 1).all():
            return None, None
        rows = in_order_of_values(dataset, labels, weights, np.flatnonzero(weights))
        return rows, weights[rows]

    def _options(self) -> dict[str, Any]:
        """Return the fields of FitArguments that are parameters of a boosting."""
        params = self.get_params(deep=False)
        return {
            "objective": params.get("objective"),
            "base_score": params.get("base_score"),
            "metrics": metrics_of(params["eval_metric"]),
            "callbacks": checked_callbacks(params["callbacks"]),
            "verbose": params["verbose"],
        }

    def _finish(self, dataset: Dataset, results: Sequence[FitResult], **others: Any) -> None:
        """Set the attributes of a fit: lists if there is more than one result.

        It comes last, so that a fit which fails leaves the estimator as it was.
        """

        def each(values: list[Any]) -> Any:
            return values[0] if len(values) == 1 else values

        fitted = {
            "model_": each([result.model for result in results]),
            "n_features_in_": dataset.num_columns,
            **others,
        }
        if dataset.feature_names is not None:
            fitted["feature_names_in_"] = np.array(dataset.feature_names, dtype=object)
        if "early_stopping_rounds" in self.get_params(deep=False):
            fitted["best_iteration_"] = each([result.best_iteration for result in results])
            fitted["best_score_"] = each([result.best_score for result in results])
            fitted["evals_result_"] = each([result.evals_result for result in results])
        state = {key: value for key, value in self.__dict__.items() if key not in _FITTED}
        state.update(fitted)
        self.__dict__ = state

    def _models(self) -> list[Model]:
        check_is_fitted(self, "model_")
        return self.model_ if isinstance(self.model_, list) else [self.model_]

    def _threads(self) -> int:
        return usable_jobs(self.n_jobs)

    def _frame(self, X: Any) -> Frame:
        return self._models()[0]._frame(X)

    def _scores(self, X: Any) -> Array:
        """Return the scores of all models, of shape (n_models, n_samples)."""
        models, frame = self._models(), self._frame(X)
        scores = np.empty((len(models), frame.num_rows))
        for model, out in zip(models, scores):
            model._call(model.score_table, frame.table, out, self._threads())
        return scores

    def _staged(self, X: Any) -> Iterator[Array]:
        """Yield the scores after each round, of shape (n_models, n_samples).

        A model with fewer rounds than others keeps its last scores.
        """
        models = self._models()
        stages = [model.staged_predict(X, n_jobs=self.n_jobs) for model in models]
        scores: Optional[Array] = None
        while True:
            news = [next(stage, None) for stage in stages]
            if all(new is None for new in news):
                return
            if scores is None:
                scores = np.stack([np.asarray(new) for new in news])
            else:
                scores = scores.copy()
                for row, new in zip(scores, news):
                    if new is not None:
                        row[:] = new
            yield scores

    def apply(self, X: Any) -> Array:
        """Return the leaf that each row reaches in each tree.

        {data}

        Returns
        -------
        ndarray of int32 and shape (n_samples, n_trees)
            Numbers of nodes in their trees. The trees of several models, one per class, stand
            side by side in the order of `classes_`.

        {refusals}
        """
        frame, parts = self._frame(X), []
        for model in self._models():
            leaves = np.empty((frame.num_rows, model.n_trees), dtype=np.int32)
            model._call(model.leaves, frame.table, leaves, self._threads())
            parts.append(leaves)
        return parts[0] if len(parts) == 1 else np.hstack(parts)

    @property
    def feature_importances_(self) -> Array:
        """Importance of each feature, of shape (n_features,); the sum is 1, or 0 without splits.

        It is the gain of the splits on the feature. For a classification by votes, whose nodes
        keep no gain, it is the number of training rows that the splits divide. The values of
        several models, one per class, are added.
        """
        models = self._models()
        total = np.zeros(self.n_features_in_)
        for model in models:
            total += model.feature_importance(self._importance)
        whole = math.fsum(total)
        return total / whole if whole > 0 else total

    def _more_tags(self) -> dict[str, Any]:
        return {
            "allow_nan": self.missing is not None,
            "requires_y": True,
            "X_types": ["2darray", "sparse"],
        }

    def __sklearn_tags__(self) -> Any:  # scikit-learn 1.6 and later
        tags = super().__sklearn_tags__()
        tags.input_tags.allow_nan = self.missing is not None
        tags.input_tags.sparse = True
        tags.target_tags.required = True
        return tags
