"""Errors of a model by the number of rounds, for `sylvora.plot.staged_error`."""

from __future__ import annotations

from collections.abc import Callable, Iterator
from itertools import zip_longest
from typing import Any, Union

import numpy

from .. import _core
from . import pictures as _pictures
from .._training.facts import loss_facts


def _rmse(y: Any, scores: Any) -> float:
    return float(numpy.sqrt(numpy.mean((y - scores) ** 2)))


def _mae(y: Any, scores: Any) -> float:
    return float(numpy.mean(numpy.abs(y - scores)))


class StagedScores:
    """The scores of a model, or of one model per class, and a metric of them."""

    def __init__(
        self, source: Any, metric: Union[str, Callable[[Any, Any], float], None]
    ) -> None:
        model = _pictures.fitted(source)
        self._models = list(model) if isinstance(model, (list, tuple)) else [model]
        self._classes = getattr(source, "classes_", None) if source is not model else None
        self._facts = loss_facts(str(getattr(self._models[0], "loss", "")))
        if metric is None:
            classifies = self._classes is not None or self._facts.two_classes
            linked = self._facts.probabilities
            metric = "logloss" if linked else "error" if classifies else "rmse"
        self._metric = self._function(metric)
        name = metric if isinstance(metric, str) else getattr(metric, "__name__", "metric")
        larger = bool(getattr(metric, "greater_is_better", False))
        self.larger_is_better = larger
        self.label = f"{name} ({'higher' if larger else 'lower'} is better)"

    def errors(self, X: Any, y: Any) -> list[float]:
        """The metric after each round."""
        labels = self._labels(y)
        result = []
        for scores in self._scores(X):
            if len(scores) != len(labels):
                raise ValueError(f"X has {len(scores)} rows, y has {len(labels)} labels")
            result.append(float(self._metric(labels, scores)))
        return result

    def _scores(self, X: Any) -> Iterator[Any]:
        if len(self._models) == 1:
            yield from self._models[0].staged_predict(X)
            return
        # A model that stopped early keeps its last scores.
        last: list[Any] = [None] * len(self._models)
        for step in zip_longest(*(model.staged_predict(X) for model in self._models)):
            last = [old if new is None else numpy.array(new) for old, new in zip(last, step)]
            yield numpy.stack(last, axis=1)

    def _labels(self, y: Any) -> Any:
        labels = numpy.asarray(y).ravel()
        if self._classes is None:
            return labels.astype(numpy.float64)
        places = numpy.searchsorted(self._classes, labels).clip(0, len(self._classes) - 1)
        unknown = labels[numpy.asarray(self._classes)[places] != labels]
        if len(unknown):
            raise ValueError(f"y has the label {unknown[0]!r}, which the model was not fitted on")
        return places

    def _function(self, metric: Any) -> Callable[[Any, Any], float]:
        if callable(metric):
            return metric  # type: ignore[no-any-return]
        if metric == "logloss" and not self._facts.probabilities:
            raise ValueError(
                f"logloss needs a loss with probabilities; {self._facts.name} has none"
            )
        own = {"rmse": _rmse, "mae": _mae, "logloss": self._logloss, "error": self._error}
        if metric not in own:
            raise ValueError(
                f"metric must be a function or one of {', '.join(own)}, got {metric!r}"
            )
        return own[metric]

    def _error(self, y: Any, scores: Any) -> float:
        if scores.ndim == 2:
            return float(numpy.mean(scores.argmax(axis=1) != y))
        return float(numpy.mean((scores > 0) != (y > 0)))

    def _logloss(self, y: Any, scores: Any) -> float:
        """As the metric logloss of a training: probabilities lie in [1e-15, 1 - 1e-15]."""
        chances = numpy.ascontiguousarray(scores, dtype=numpy.float64).ravel().copy()
        _core.probabilities(self._facts.name, chances, chances)
        chances = chances.reshape(scores.shape)
        if scores.ndim == 2:
            chances /= chances.sum(axis=1, keepdims=True)
            chances = chances[numpy.arange(len(y)), y]
        else:
            chances = numpy.where(y > 0, chances, 1 - chances)
        return float(-numpy.mean(numpy.log(chances.clip(1e-15, 1 - 1e-15))))
