"""Estimators that predict the scores of one model."""

from __future__ import annotations

from collections.abc import Iterator
from typing import Any, TypeVar

from .base import SylvoraBase, number_column
from .documentation import documented
from .._data.numbers import Array
from .._training.fit import FitArguments, fit
from .._training.train import evaluation_data

ScoresT = TypeVar("ScoresT", bound="Scores")


@documented
class Scores(SylvoraBase):
    """Estimators whose predictions are scores."""

    def _fit(
        self: ScoresT,
        X: Any,
        y: Any,
        sample_weight: Any = None,
        eval_set: Any = None,
        **options: Any,
    ) -> ScoresT:
        """Train on labels that are numbers; `options` are other fields of FitArguments."""
        dataset = self._dataset(X)
        labels = number_column(y, dataset.num_rows)
        rows, weights = self._rows_and_weights(dataset, labels, sample_weight)
        result = fit(
            FitArguments(
                dataset if rows is None else dataset.subset(rows),
                labels if rows is None else labels[rows],
                weights=weights,
                evaluation=evaluation_data(eval_set, dataset),
                **options,
            )
        )
        self._finish(dataset, [result])
        return self

    def predict(self, X: Any) -> Array:
        """Return the predictions.

        Those of a ranker are scores: within a query, a larger one means a better place.

        {data}

        Returns
        -------
        ndarray of float64 and shape (n_samples,)

        {refusals}
        """
        scores: Array = self._scores(X)[0]
        return scores


@documented
class StagedScores(Scores):
    """The same, trained in rounds."""

    def staged_predict(self, X: Any) -> Iterator[Array]:
        """Yield the predictions, as `predict` returns them, after each round.

        {data}

        Yields
        ------
        ndarray of float64 and shape (n_samples,)
        """
        for scores in self._staged(X):
            yield scores[0]
