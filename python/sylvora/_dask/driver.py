"""Runs a training on the workers of a cluster, again if some of them are lost."""

from __future__ import annotations

import time
import uuid
import warnings
from collections.abc import Iterable, Sequence
from typing import Any, Optional

from .exchange import RanksLost, forget, prepare
from .shares import deal
from .task import RANKS_LOST, Fitted, Plan, train_rank

# Losses of workers, one after the other, after which a training is given up.
_MOST_LOSSES = 5
# From one look at the cluster to the next.
_SECONDS_BETWEEN = 0.5
# For the other ranks to end, once one has failed.
_SECONDS_TO_END = 10.0
# A worker whose heartbeat the scheduler does not hear for so long is lost: it is stopped, say.
_SECONDS_OF_SILENCE = 30.0


class _WorkersLost(Exception):
    """An attempt failed because workers have left.

    Attributes
    ----------
    silent : set of str
        Those that are still known to the scheduler, but do not answer.
    """

    def __init__(self, silent: Iterable[str] = ()) -> None:
        super().__init__()
        self.silent = set(silent)


class Driver:
    """Trains on the chunks of a collection.

    Parameters
    ----------
    client : distributed.Client
    workers : list of str, optional
        Addresses of the workers to use; None: all there are, at each attempt.
    parts : list of Delayed
        Each gives a `Part`.
    sizes : list of float
        Their numbers of rows, or 1 for each.
    """

    def __init__(
        self,
        client: Any,
        workers: Optional[Iterable[str]],
        parts: Sequence[Any],
        sizes: Sequence[float],
    ) -> None:
        self._client = client
        self._workers = None if workers is None else set(workers)
        self._parts = parts
        self._sizes = sizes
        self._silent: set[str] = set()

    def train(self, plan: Plan) -> Fitted:
        """Train; if workers are lost, again with those that are left, from the first round on.

        The model does not depend on the number of workers, so a later attempt gives the same one.

        Raises
        ------
        RuntimeError
            No worker is there, or workers are lost again and again.
        """
        losses = 0
        while True:
            addresses = self._addresses()
            if not addresses:
                raise RuntimeError(
                    "sylvora.dask: no worker is left to train on"
                    if losses
                    else "sylvora.dask: the cluster has no worker to train on"
                )
            try:
                return self._locked_attempt(plan, addresses)
            except _WorkersLost as lost:
                losses += 1
                self._silent |= lost.silent
                if losses >= _MOST_LOSSES:
                    raise RuntimeError(
                        f"sylvora.dask: workers were lost in {losses} attempts, one after the "
                        "other: see their logs; often their memory is too small"
                    ) from None

    def _addresses(self) -> list[str]:
        """The workers to use, sorted."""
        there = self._client.scheduler_info()["workers"]
        usable = set(there) if self._workers is None else self._workers & set(there)
        return sorted(usable - self._silent)

    def _locked_attempt(self, plan: Plan, addresses: Sequence[str]) -> Fitted:
        """An attempt while no other training uses these workers: two that wait for each other's
        tasks to end would never begin."""
        from distributed import MultiLock

        runs = deal(self._sizes, len(addresses))
        addresses = addresses[: len(runs)]
        names = [f"sylvora-{address}" for address in addresses]
        with MultiLock(names=names, client=self._client):
            return _Attempt(self._client, addresses).run(
                plan, [self._parts[run.start : run.stop] for run in runs]
            )


class _Attempt:
    """A rank on each of some workers."""

    def __init__(self, client: Any, addresses: Sequence[str]) -> None:
        self._client = client
        self._addresses = addresses
        self._job = uuid.uuid4().hex
        self._futures: list[Any] = []  # whatever is to be cancelled at the end
        self._tasks: list[Any] = []
        # The last heartbeat that the scheduler heard of each worker, and when we saw it first.
        self._heard: dict[str, tuple[float, float]] = {}
        self._silent: set[str] = set()

    def run(self, plan: Plan, parts: Sequence[Sequence[Any]]) -> Fitted:
        """Run; `parts` has those of each rank."""
        try:
            self._prepare()
            self._submit(plan, parts)
            self._wait()
            return self._result()
        finally:
            self._end()

    def _prepare(self) -> None:
        try:
            versions = self._client.run(prepare, self._job, workers=list(self._addresses))
        except (OSError, ValueError) as error:  # ValueError: the scheduler does not know a worker
            raise _WorkersLost from error
        if len(versions) < len(self._addresses):
            raise _WorkersLost
        from .. import __version__

        for address, version in versions.items():
            if version != __version__:
                raise RuntimeError(
                    f"sylvora.dask: the worker {address} has version {version} of sylvora, this "
                    f"process has {__version__}: install the same one"
                )

    def _submit(self, plan: Plan, parts: Sequence[Sequence[Any]]) -> None:
        client = self._client
        given = client.scatter(
            plan, workers=list(self._addresses), broadcast=True, hash=False
        )
        self._futures.append(given)
        for rank, address in enumerate(self._addresses):
            # A chunk whose worker is lost can be made by any other one.
            share = client.compute(
                list(parts[rank]), workers=[address], allow_other_workers=True
            )
            self._futures += share
            task = client.submit(
                train_rank,
                given,
                self._job,
                rank,
                list(self._addresses),
                share,
                key=f"sylvora-train-{self._job}-{rank}",
                workers=[address],
                allow_other_workers=False,
                pure=False,
            )
            self._tasks.append(task)
        self._futures += self._tasks

    def _wait(self) -> None:
        """Returns when all ranks have ended, or one has failed and the others had time to end."""
        from distributed import CancelledError, TimeoutError, wait

        running = list(self._tasks)
        while running:
            try:
                running = list(
                    wait(running, timeout=_SECONDS_BETWEEN, return_when="FIRST_COMPLETED").not_done
                )
            except TimeoutError:
                self._check_workers()
            except CancelledError:  # what a task needs was lost with a worker
                break
            if any(task.status in ("error", "lost", "cancelled") for task in self._tasks):
                break
        if running:
            try:
                wait(running, timeout=_SECONDS_TO_END)
            except (TimeoutError, CancelledError):
                pass

    def _check_workers(self) -> None:
        there, now = self._client.scheduler_info()["workers"], time.monotonic()
        if any(address not in there for address in self._addresses):
            raise _WorkersLost
        for address in self._addresses:
            beat = there[address]["last_seen"]
            if address not in self._heard or self._heard[address][0] != beat:
                self._heard[address] = (beat, now)
            elif now - self._heard[address][1] > _SECONDS_OF_SILENCE:
                self._silent.add(address)
        if self._silent:
            raise _WorkersLost(self._silent)

    def _result(self) -> Fitted:
        from distributed import CancelledError
        from distributed.scheduler import KilledWorker

        lost = False
        for task in self._tasks:
            if task.status == "finished":
                lost = lost or task.result() == RANKS_LOST
                continue
            error = task.exception(timeout=1) if task.status == "error" else RanksLost()
            if not isinstance(error, (RanksLost, KilledWorker, CancelledError)):
                raise error
            lost = True
        if lost:
            raise _WorkersLost
        fitted: Fitted = self._tasks[0].result()
        return fitted

    def _end(self) -> None:
        """Ends what still runs, on the workers that are left."""
        there = self._client.scheduler_info()["workers"]
        left = [address for address in self._addresses if address in there.keys() - self._silent]
        try:
            if left:
                self._client.run(forget, self._job, workers=left)
        except (OSError, ValueError):
            pass  # another one was lost meanwhile
        self._client.cancel(self._futures)


def warn(texts: Iterable[str]) -> None:
    """The warnings of a training, where it was asked for."""
    for text in texts:
        warnings.warn(text, UserWarning, stacklevel=4)
