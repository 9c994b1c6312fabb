"""One training: the library, the functions of the program, and what was recorded."""

from __future__ import annotations

import sys
import warnings
from collections.abc import Callable, Mapping, Sequence
from dataclasses import dataclass
from types import FrameType
from typing import TYPE_CHECKING, Any, Optional, Union

import numpy as np

from .. import _core
from .best import best_round
from .calls import Calls
from .._data.tables import as_queries, with_names
from .._model.facts import BASE_SCORE
from .metrics import Metric, is_larger_better, name_of, needs_queries
from .._model.model import Model, completed
from .objectives import Objective, read_only
from .parameters import real_number
from .remedies import with_remedy
from ..callbacks import Callback, Evals, LogEvaluation, ProgressBar

if TYPE_CHECKING:
    from numpy.typing import NDArray

    from .._data.dataset import Dataset

# The library's default of numTree.
_DEFAULT_ROUNDS = "500"


@dataclass
class EvaluationData:
    """A set to evaluate. For ranking it has `queries`, as `as_queries` returns them, or `group`, as
    the user gave it."""

    name: str
    table: _core.Table
    labels: NDArray[np.float64]
    queries: Optional[NDArray[np.int32]] = None
    group: Any = None


@dataclass
class FitResult:
    """What a training gives.

    Attributes
    ----------
    model : Model
        Cut to the best round by early stopping.
    evals_result : dict of dict of list
        By set and metric, the value after each round.
    best_iteration : int or None
        The best round, from 1; None without data to evaluate, and for a forest or a single tree.
    best_score : float or None
        The metric that decides, after that round.
    stopped_early : bool
        Whether early stopping ended the training before its last round.
    """

    model: Model
    evals_result: Evals
    best_iteration: Optional[int]
    best_score: Optional[float]
    stopped_early: bool


@dataclass(frozen=True)
class FitArguments:
    """What a training is made of, checked; see `train` for the arguments of the same names.

    Attributes
    ----------
    settings : mapping of str to str
        What `settings_of` returns.
    queries : ndarray of int32, shape (n_rows,), optional
        What `as_queries` returns.
    weights : ndarray of int32, shape (n_rows,), optional
        Rows of weight 0 are left out, so they count nowhere.
    class_names : sequence of str
        For the model's description.
    """

    dataset: Dataset
    labels: NDArray[np.float64]
    settings: Mapping[str, str]
    queries: Optional[NDArray[np.int32]] = None
    weights: Optional[NDArray[np.int32]] = None
    objective: Optional[Callable[..., Any]] = None
    base_score: Optional[float] = None
    evaluation: Sequence[EvaluationData] = ()
    metrics: Sequence[Metric] = ()
    callbacks: Sequence[Callback] = ()
    verbose: Union[bool, int] = False
    class_names: Sequence[str] = ()


def fit(given: FitArguments) -> FitResult:
    """Trains a model."""
    _check_objective(given)
    run = _Fit(given)
    labels = _add_data(run.training, given)
    run.set_metrics(given.metrics)
    if given.objective is not None:
        run.set_objective(given.objective, labels, given.base_score)
    return run.run(given.dataset.feature_names, given.class_names)


def _check_objective(given: FitArguments) -> None:
    if given.objective is None:
        if given.base_score is not None:
            raise ValueError("base_score needs an objective; losses have their own start")
        return
    if not callable(given.objective):
        raise TypeError(
            f"objective must be a function, got {given.objective!r}; for a loss of the library use "
            "the parameter loss"
        )
    if given.settings.get("lossFunc", "USER") != "USER":
        raise ValueError("Give either the parameter loss or an objective")


def _add_data(training: _core.Training, given: FitArguments) -> NDArray[np.float64]:
    """Gives the training the rows of weights above 0, and returns their labels."""
    core, labels, queries = given.dataset._core, given.labels, given.queries
    weights = given.weights
    if weights is not None:
        kept = np.flatnonzero(weights)
        if len(kept) == 0:
            raise ValueError("sample_weight: all weights are 0")
        if len(kept) < len(weights):
            core = core.subset(kept.astype(np.int32))
            labels, weights = labels[kept], weights[kept]
            queries = None if queries is None else queries[kept]
    training.data(core, labels, queries)
    if weights is not None and not (weights == 1).all():
        training.weights(weights)
    return labels


def _with_verbose(given: FitArguments) -> list[Callback]:
    """The callbacks and the one that `verbose` asks for."""
    callbacks, verbose = given.callbacks, given.verbose
    if isinstance(verbose, (int, np.integer, np.bool_)) and verbose >= 0:
        if not verbose:
            return list(callbacks)
        if given.evaluation:
            return [*callbacks, LogEvaluation(int(verbose))]
        return [*callbacks, ProgressBar()]
    raise ValueError(f"verbose must be True, False or a number of rounds, got {verbose!r}")


def _queries_of(data: EvaluationData, ranking: bool) -> Optional[NDArray[np.int32]]:
    """The queries of a set, which ranking and its metrics need."""
    where = f"eval_set[{data.name!r}]"
    if not ranking:
        if data.group is not None:
            raise ValueError(
                f"{where} must be (X, y): a third item is the group of ranking, and sets to "
                "evaluate have no weights"
            )
        return None
    if data.queries is not None:
        return data.queries
    if data.group is None:
        raise ValueError(
            f"{where} must be (X, y, group): ranking needs the number of rows of each query"
        )
    return as_queries(data.group, len(data.labels), argument=f"{where}: group")


class _Fit:
    """A `_core.Training` and the functions that it calls."""

    def __init__(self, given: FitArguments) -> None:
        settings = given.settings
        self.training = _core.Training()
        self._settings = dict(settings)
        self._evaluation = given.evaluation
        self._calls = Calls(_with_verbose(given))
        self._verbose = bool(given.verbose)
        self._metrics: Sequence[Metric] = ()
        self._start: Optional[float] = None
        self._messages: dict[str, None] = {}
        single = settings["modelType"] == "CART"
        self._total = 1 if single else int(settings.get("numTree", _DEFAULT_ROUNDS))
        self._done = 0
        self._has_rounds = settings["modelType"] in ("GBDT", "GBRank")
        for name, value in {**settings, **given.dataset._next_checkpoint()}.items():
            self.training.set(name, value)
        ranking = settings["modelType"] == "GBRank" or any(map(needs_queries, given.metrics))
        for data in given.evaluation:
            queries = _queries_of(data, ranking)
            self.training.evaluate(data.name, data.table, data.labels, queries)

    def set_metrics(self, metrics: Sequence[Metric]) -> None:
        if metrics and not self._evaluation:
            raise ValueError("eval_metric needs data to evaluate: give eval_set")
        self._metrics = metrics
        for metric in metrics:
            if isinstance(metric, str):
                self.training.metric(metric)
            else:
                self._set_user_metric(metric)
        if int(self._settings.get("earlyStop", "0")) > 0:
            if not self._evaluation:
                raise ValueError("early_stopping_rounds needs data to evaluate: give eval_set")
            if metrics:
                self.training.stop_rule(None, name_of(metrics[0]))

    def _set_user_metric(self, metric: Callable[..., float]) -> None:
        name = name_of(metric)
        labels = {data.name: read_only(data.labels) for data in self._evaluation}

        def measure(set_name: str, scores: bytes) -> float:
            value = metric(labels[set_name], np.frombuffer(scores, np.float64))
            try:
                return float(value)
            except (TypeError, ValueError):
                raise TypeError(
                    f"eval_metric: {name} must return a number, got {type(value).__name__}"
                ) from None

        self.training.user_metric(name, measure, is_larger_better(name, [metric]))

    def set_objective(
        self,
        objective: Callable[..., Any],
        labels: NDArray[np.float64],
        base_score: Optional[float],
    ) -> None:
        if not self._has_rounds or self._settings["modelType"] == "GBRank":
            raise ValueError("An objective is for the model 'gbdt'")
        start = 0.0
        if base_score is not None:
            self._start = start = real_number("base_score", base_score)
            self.training.start(start)
        called = Objective(objective, labels, start)
        self.training.objective(called.fill, called.scores, called.gradients, called.hessians)

    # What a Round asks.

    def _after_round(self, done: int, total: int) -> bool:
        self._done = done
        return self._calls.after_round(done, total, self)

    def record(self) -> Evals:
        # The metrics that were asked for come first, in their order.
        names = [name_of(metric) for metric in self._metrics]
        measured: Evals = {data.name: {} for data in self._evaluation}
        for set_name, metric, values in self.training.record():
            measured[set_name][metric] = values
        return {
            set_name: {name: values[name] for name in [*names, *values] if name in values}
            for set_name, values in measured.items()
        }

    def snapshot(self) -> Model:
        return self._completed(self.training.snapshot(Model))

    def greater_is_better(self, metric: str) -> bool:
        return is_larger_better(metric, self._metrics)

    # The run.

    def run(self, names: Optional[Sequence[str]], class_names: Sequence[str]) -> FitResult:
        self._names = names
        self._class_names = class_names
        self.training.on_message(self._receive)
        if self._calls:
            self.training.on_progress(self._after_round)
        try:
            self._calls.begin(self._total)
            result = self._result(self.training.run(Model))
            self._calls.end(result)
        except _core.TrainingError as error:
            self._calls.failed()
            raise with_names(with_remedy(error), names) from None
        except BaseException:
            self._calls.failed()
            raise
        for text in self._messages:
            warnings.warn(text, UserWarning, stacklevel=_callers_level())
        return result

    def _receive(self, stream: int, text: str) -> None:
        resumed = text.startswith("Notice: checkpoint ") and ": the training goes on after " in text
        if stream == 2 and not resumed:
            text = str(with_names(UserWarning(text.strip()), self._names))
            self._messages[text.replace("Notice: ", "", 1)] = None
        elif self._verbose:
            print(text, end="", flush=True)

    def _completed(self, model: Model) -> Model:
        if self._names:
            _core.Model.set_description(model, "column", list(self._names))
        if self._class_names:
            _core.Model.set_description(model, "class", list(self._class_names))
        if self._start is not None:
            texts = [*model.describe("setting"), f"{BASE_SCORE}={self._start!r}"]
            _core.Model.set_description(model, "setting", texts)
        return completed(model, {})

    def _result(self, model: Model) -> FitResult:
        self._completed(model)
        evals = self.record() if self._evaluation else {}
        stopper = self._calls.stopper()
        stopped = self.training.stopped_early
        if stopper is not None and stopper.keep_rounds is not None:
            keep = min(stopper.keep_rounds, model.n_rounds)
            stopped = stopped or self._done < self._total
            if keep < model.n_rounds:
                _core.Model.cut(model, keep + model.n_groups - model.n_rounds)
            _core.Model.set_description(model, "bestRound", [str(keep)])
        best, score = self._best(evals, stopper)
        state = {"evals_result_": evals, "best_score_": score, "_best_iteration": best}
        return FitResult(completed(model, state), evals, best, score, stopped)

    def _best(
        self, evals: Evals, stopper: Optional[Callback]
    ) -> tuple[Optional[int], Optional[float]]:
        """The best round, from 1, and its value: on the last set, by its first metric, unless a
        callback has decided."""
        if stopper is not None and hasattr(stopper, "best_score"):
            return stopper.keep_rounds, stopper.best_score
        if not evals:
            return None, None
        metrics = evals[list(evals)[-1]]
        metric = next(iter(metrics))
        values = metrics[metric]
        if not self._has_rounds:
            return None, values[-1] if values else None
        number = self.training.best_round
        if stopper is not None and stopper.keep_rounds is not None:
            number = min(stopper.keep_rounds, len(values))
        if number == 0:
            number = best_round(values, self.greater_is_better(metric))
        return number or None, values[number - 1] if number else None


def _callers_level() -> int:
    """The stacklevel, in the calling function, of the line that called the package."""
    frame: Optional[FrameType] = sys._getframe(1)
    level = 1
    while frame is not None and frame.f_globals.get("__name__", "").startswith("sylvora."):
        frame = frame.f_back
        level += 1
    return level
