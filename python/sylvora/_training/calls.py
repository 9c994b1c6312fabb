"""Calls the callbacks of one training. Ends come in the opposite order of beginnings."""

from __future__ import annotations

import contextlib
import time
from collections.abc import Callable, Iterable, Sequence
from typing import TYPE_CHECKING, Any, Optional

from ..callbacks import Callback, KeepOnInterrupt, Round, RoundSource

if TYPE_CHECKING:
    from .train import FitResult


def checked_callbacks(callbacks: Any) -> tuple[Callback, ...]:
    """The argument `callbacks` as a tuple; None: none."""
    if callbacks is None:
        return ()
    if isinstance(callbacks, Callback) or not isinstance(callbacks, Iterable):
        raise TypeError(f"callbacks must be a list of callbacks or None, got {callbacks!r}")
    return tuple(callbacks)


def in_turn(
    trainings: Sequence[Callable[[], FitResult]], callbacks: Sequence[Callback]
) -> list[FitResult]:
    """Runs several trainings, one after the other, that have the same callbacks.

    Raises
    ------
    ValueError
        A callback is for one training only.
    KeyboardInterrupt
        A training ended by Ctrl-C, and others are missing.
    """
    for callback in callbacks:
        if callback.single and len(trainings) > 1:
            raise ValueError(
                f"callbacks: {type(callback).__name__} is for one training, but there are "
                f"{len(trainings)}, one after the other"
            )
    results: list[FitResult] = []
    for train in trainings:
        if results and any(isinstance(c, KeepOnInterrupt) and c.interrupted for c in callbacks):
            raise KeyboardInterrupt
        results.append(train())
    return results


class Calls:
    """Each callback that has begun is told the end, once."""

    def __init__(self, callbacks: Iterable[Callback]) -> None:
        self._callbacks: list[Callback] = []
        for callback in callbacks:
            if any(callback is other for other in self._callbacks):
                continue  # given twice: called once
            if not isinstance(callback, Callback):
                raise TypeError(
                    "callbacks must be objects of classes derived from sylvora.callbacks.Callback, "
                    f"got {callback!r}"
                )
            self._callbacks.append(callback)
        self._open: list[Callback] = []
        self._start = 0.0

    def __bool__(self) -> bool:
        return bool(self._callbacks)

    def begin(self, total: int) -> None:
        self._start = time.monotonic()
        for callback in self._callbacks:
            self._open.append(callback)
            callback.begin(total)

    def after_round(self, number: int, total: int, source: RoundSource) -> bool:
        """Whether the training is to end. All are called, also after one that says so."""
        state = Round(number, total, time.monotonic() - self._start, source)
        return any([bool(callback.after_round(state)) for callback in self._callbacks])

    def stopper(self) -> Optional[Callback]:
        """The callback that keeps the fewest rounds, if one says how many."""
        stopper: Optional[Callback] = None
        fewest: Optional[int] = None
        for callback in self._callbacks:
            keep = callback.keep_rounds
            if keep is not None and (fewest is None or keep < fewest):
                stopper, fewest = callback, keep
        return stopper

    def end(self, result: FitResult) -> None:
        while self._open:
            self._open.pop().end(result)

    def failed(self) -> None:
        """All are told, and exceptions of theirs dropped: the training has one of its own."""
        while self._open:
            with contextlib.suppress(Exception):
                self._open.pop().failed()
