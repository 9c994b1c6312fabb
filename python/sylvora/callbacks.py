"""What can happen after each round of a training.

A callback is an object of a class here, or of a class of your own that is derived from `Callback`.
It is given to `train`, `cv` or an estimator in the list `callbacks`. One object may serve several
trainings, one after the other.
"""

from __future__ import annotations

import operator
import os
import signal
import threading
from collections.abc import Callable
from types import FrameType
from typing import TYPE_CHECKING, Any, Optional, Protocol

from ._training.best import is_better
from ._training.progress import Display, display_for

if TYPE_CHECKING:
    from ._model.model import Model
    from ._training.train import FitResult

Evals = dict[str, dict[str, list[float]]]

__all__ = [
    "Callback",
    "Checkpoint",
    "EarlyStopping",
    "KeepOnInterrupt",
    "LogEvaluation",
    "ProgressBar",
    "Round",
    "TimeLimit",
]


class RoundSource(Protocol):
    """What a `Round` asks the training."""

    def record(self) -> Evals: ...
    def snapshot(self) -> Model: ...
    def greater_is_better(self, metric: str) -> bool: ...


class Round:
    """The state of a training after a round, as callbacks see it. Valid during the call only.

    Attributes
    ----------
    round : int
        The number of the round, from 1; of a forest, the trees so far.
    total : int
        The number of rounds, or of trees of a forest, that were asked for.
    elapsed : float
        Seconds since the training began.
    """

    def __init__(
        self,
        number: int,
        total: int,
        elapsed: float,
        source: RoundSource,
    ) -> None:
        self.round = number
        self.total = total
        self.elapsed = elapsed
        self._source = source
        self._evals: Optional[Evals] = None

    @property
    def evals(self) -> Evals:
        """By set and metric, the values after each round so far."""
        if self._evals is None:
            self._evals = self._source.record()
        return self._evals

    def model(self) -> Model:
        """A copy of the model so far."""
        return self._source.snapshot()

    def greater_is_better(self, metric: str) -> bool:
        """Whether larger values of a metric are better."""
        return self._source.greater_is_better(metric)


class Callback:
    """The base class of callbacks: does nothing.

    An exception in `begin` or `after_round` ends the training and is raised by it.

    Attributes
    ----------
    keep_rounds : int or None
        If it is set when the training ends, the model is cut to so many rounds.
    single : bool
        Whether it is for one training only. It is then refused by `cv` and by classifiers of more
        than two classes, which train several models.
    """

    keep_rounds: Optional[int] = None
    single: bool = False

    def begin(self, total: int) -> None:
        """Called before the first of `total` rounds."""

    def after_round(self, round: Round) -> Optional[bool]:
        """Called after each round. Returns True to end the training and keep the model."""
        return None

    def end(self, result: FitResult) -> None:
        """Called after the training, with its result."""

    def failed(self) -> None:
        """Called instead of `end` if the training failed or was interrupted."""


class EarlyStopping(Callback):
    """Ends a training when a metric has not improved for some rounds, and cuts the model to the
    best round.

    With `min_delta` of 0 it does what the parameter `early_stopping_rounds` does, which takes less
    time.

    Parameters
    ----------
    rounds : int
        So many rounds in a row without a better value end the training.
    metric : str, optional
        The metric that decides; the first one of the set by default.
    on : str, optional
        The set that decides; the last one by default.
    min_delta : float
        By how much a better value must differ from the best one.
    """

    def __init__(
        self,
        rounds: int,
        *,
        metric: Optional[str] = None,
        on: Optional[str] = None,
        min_delta: float = 0.0,
    ) -> None:
        if not isinstance(min_delta, (int, float)) or not min_delta >= 0:
            raise ValueError(f"min_delta must be a number of 0 or more, got {min_delta!r}")
        self.rounds = _checked_count("rounds", rounds)
        self.metric = metric
        self.on = on
        self.min_delta = min_delta

    def begin(self, total: int) -> None:
        self.keep_rounds = None
        self.best_score: Optional[float] = None
        self._seen = 0

    def after_round(self, round: Round) -> Optional[bool]:
        metric, values = self._values(round.evals)
        # One value is new, or all of them are if the training goes on from a checkpoint.
        for value in values[self._seen :]:
            self._seen += 1
            if is_better(value, self.best_score, round.greater_is_better(metric), self.min_delta):
                self.best_score = value
                self.keep_rounds = self._seen
        return self._seen - (self.keep_rounds or 0) >= self.rounds

    def end(self, result: FitResult) -> None:
        if self.best_score is None:
            raise ValueError("EarlyStopping: the metric is not finite after any round")

    def _values(self, evals: Evals) -> tuple[str, list[float]]:
        if not evals:
            raise ValueError("EarlyStopping needs data to evaluate: give eval_set")
        on = self.on if self.on is not None else list(evals)[-1]
        if on not in evals:
            raise ValueError(f"EarlyStopping: there is no set {on!r}, but {', '.join(evals)}")
        metrics = evals[on]
        metric = self.metric if self.metric is not None else next(iter(metrics))
        if metric not in metrics:
            known = ", ".join(metrics)
            raise ValueError(f"EarlyStopping: there is no metric {metric!r}, but {known}")
        if not metrics[metric]:
            raise ValueError("EarlyStopping is for boosting: a forest is evaluated at its end")
        return metric, metrics[metric]


class TimeLimit(Callback):
    """Ends a training after the round in which a number of seconds is over, and keeps the model.
    Of several trainings, for classes or folds, each has this time."""

    def __init__(self, seconds: float) -> None:
        if not isinstance(seconds, (int, float)) or not seconds > 0:
            raise ValueError(f"seconds must be a number above 0, got {seconds!r}")
        self.seconds = seconds

    def after_round(self, round: Round) -> Optional[bool]:
        return round.elapsed >= self.seconds


class Checkpoint(Callback):
    """Writes the model so far to a file, every so many rounds and at the end. The file is replaced
    as a whole; if that fails, the training ends with the error. For a single training: not for
    more than two classes, nor for `cv`.

    It is a model to look at or to score with. A training does not go on from it, but from the file
    of ``train(..., checkpoint=)``."""

    single = True

    def __init__(self, path: str | os.PathLike[str], every: int = 50) -> None:
        self.path = path
        self.every = _checked_every(every)

    def after_round(self, round: Round) -> Optional[bool]:
        if round.round % self.every == 0:
            round.model().save(self.path)
        return None

    def end(self, result: FitResult) -> None:
        result.model.save(self.path)


class LogEvaluation(Callback):
    """Writes a line with all metrics after every so many rounds, and after the last one.

    Parameters
    ----------
    every : int
    log : callable
        Called with each line; `print` by default, `logging.getLogger("...").info` for a log.
    """

    def __init__(self, every: int = 1, log: Callable[[str], Any] = print) -> None:
        self.every = _checked_every(every)
        self.log = log

    def begin(self, total: int) -> None:
        self._logged = 0

    def after_round(self, round: Round) -> Optional[bool]:
        if round.round % self.every == 0:
            self._write(round.round, round.evals)
        return None

    def end(self, result: FitResult) -> None:
        # A training that ended early, or the only values of a forest.
        curves = [v for metrics in result.evals_result.values() for v in metrics.values()]
        num_rounds = max(map(len, curves), default=0)
        if num_rounds > self._logged:
            self._write(num_rounds, result.evals_result)
        if result.best_iteration is not None and result.model.n_rounds == result.best_iteration:
            if result.best_iteration < num_rounds:
                self.log(f"The model ends with round {result.best_iteration}, the best one")

    def _write(self, number: int, evals: Evals) -> None:
        texts = [_text_of(name, metrics) for name, metrics in evals.items()]
        if any(texts):
            self.log(f"[{number}]  " + "  ".join(texts))
            self._logged = number


def _text_of(name: str, metrics: dict[str, list[float]]) -> str:
    values = [f"{metric} {v[-1]:.6g}" for metric, v in metrics.items() if v]
    return f"{name}: " + ", ".join(values) if values else ""


def _checked_every(every: int) -> int:
    return _checked_count("every", every)


def _checked_count(name: str, value: int) -> int:
    try:
        count = operator.index(value)
    except TypeError:
        count = 0
    if count < 1:
        raise ValueError(f"{name} must be a whole number of 1 or more, got {value!r}")
    return count


class ProgressBar(Callback):
    """A line with a bar, the time passed and left, and the last metric: on standard error, or below
    the cell of a notebook. If standard error is no terminal, a line for every tenth part."""

    def __init__(self) -> None:
        self._display: Optional[Display] = None

    def __getstate__(self) -> dict[str, Any]:
        return {"_display": None}

    def begin(self, total: int) -> None:
        self._display = display_for(total)

    def after_round(self, round: Round) -> Optional[bool]:
        if self._display is not None and self._display.is_due(round.round):
            self._display.show(round.round, round.elapsed, _last_metric(round.evals))
        return None

    def end(self, result: FitResult) -> None:
        self._finish()

    def failed(self) -> None:
        self._finish()

    def _finish(self) -> None:
        if self._display is not None:
            self._display.close()
        self._display = None


def _last_metric(evals: Evals) -> str:
    for name, metrics in reversed(list(evals.items())):
        for metric, values in metrics.items():
            if values:
                return f"{name} {metric} {values[-1]:.6g}"
    return ""


class KeepOnInterrupt(Callback):
    """Ctrl-C ends the training after the round and keeps the model, instead of raising
    KeyboardInterrupt. A second Ctrl-C raises it. Works in the main thread only. If the training is
    one of several, for a class or a fold, and not the last one, KeyboardInterrupt is raised after
    all: the others are missing."""

    interrupted = False
    _receives = False
    _older: Any = None

    def begin(self, total: int) -> None:
        self.interrupted = False
        if not self._receives and threading.current_thread() is threading.main_thread():
            self._older = signal.signal(signal.SIGINT, self._receive)
            self._receives = True

    def _receive(self, number: int, frame: Optional[FrameType]) -> None:
        if self.interrupted:
            raise KeyboardInterrupt
        self.interrupted = True

    def after_round(self, round: Round) -> Optional[bool]:
        return self.interrupted

    def end(self, result: FitResult) -> None:
        self.failed()

    def failed(self) -> None:
        if self._receives:
            self._receives = False
            # None is a handler that was not set from Python: it cannot be set again.
            older = signal.SIG_DFL if self._older is None else self._older
            signal.signal(signal.SIGINT, older)
        self._older = None


def __dir__() -> list[str]:
    return __all__
