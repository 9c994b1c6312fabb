"""Trainings on the same data, one per class."""

from __future__ import annotations

import threading
from collections.abc import Sequence
from concurrent.futures import FIRST_EXCEPTION, Future, ThreadPoolExecutor, wait
from dataclasses import dataclass, replace
from functools import partial
from typing import Any, Optional

import numpy as np

from .._data.dataset import Dataset
from .._data.numbers import Array
from .._training.calls import in_turn
from .._training.fit import EvaluationData, FitArguments, FitResult, fit
from ..callbacks import Callback, Round


@dataclass(frozen=True)
class Job:
    """What the trainings share.

    `codes` and the labels of `evaluation` are numbers of classes; a row of the class that is
    trained gets the label 1, one of another class the label `other`. `names` are those of all
    classes.
    """

    data: Dataset
    codes: Array
    other: float
    settings: dict[str, str]
    weights: Optional[Array]
    evaluation: Sequence[EvaluationData]
    options: dict[str, Any]
    names: Sequence[str]

    def train(
        self, wanted: int, settings: dict[str, str], extra: Sequence[Callback]
    ) -> FitResult:
        """Train the class `wanted` against the others."""
        options: dict[str, Any] = dict(self.options)
        options["callbacks"] = (*options["callbacks"], *extra)
        rest = self.names[0] if len(self.names) == 2 else "rest"
        evaluation = [
            replace(data, labels=self._labels(data.labels, wanted)) for data in self.evaluation
        ]
        return fit(
            FitArguments(
                self.data,
                self._labels(self.codes, wanted),
                settings,
                weights=self.weights,
                evaluation=evaluation,
                class_names=[rest, self.names[wanted]],
                **options,
            )
        )

    def _labels(self, codes: Array, wanted: int) -> Array:
        return np.where(codes == wanted, 1.0, self.other)

    def calls_functions(self) -> bool:
        """Whether a training calls functions of the user, which need not be thread-safe."""
        options = self.options
        return bool(
            options["callbacks"]
            or options["objective"]
            or options["verbose"]
            or any(callable(metric) for metric in options["metrics"])
        )


class _StopAll(Callback):
    """Ends the training once an event is set."""

    def __init__(self, event: threading.Event) -> None:
        self.event = event

    def after_round(self, round: Round) -> bool:
        return self.event.is_set()


def run_all(job: Job, wanted: Sequence[int]) -> list[FitResult]:
    """Train the classes `wanted`, in parallel if there are threads and no functions of the user.

    The results depend on neither. Ctrl-C and the first error end all trainings within a round.
    """
    num_threads = int(job.settings["numThread"])
    workers = min(len(wanted), num_threads)
    # Ranks exchange bytes for one training at a time.
    if workers == 1 or job.calls_functions() or job.data._is_shared:
        trainings = [partial(job.train, number, job.settings, ()) for number in wanted]
        return in_turn(trainings, job.options["callbacks"])
    settings = {**job.settings, "numThread": str(num_threads // workers)}
    stop = threading.Event()
    with ThreadPoolExecutor(workers) as pool:
        futures: list[Future[FitResult]] = []
        try:
            for number in wanted:
                futures.append(pool.submit(job.train, number, settings, (_StopAll(stop),)))
            done, _ = wait(futures, return_when=FIRST_EXCEPTION)
            for future in done:
                future.result()  # raises what ended the wait, before the others have ended
            return [future.result() for future in futures]
        finally:
            stop.set()
            for future in futures:
                future.cancel()
