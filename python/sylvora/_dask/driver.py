"""Runs a training on the workers of a cluster, again if some of them are lost."""

from __future__ import annotations

import dataclasses
import time
import uuid
import warnings
from collections.abc import Iterable, Sequence
from typing import Any, Optional

from .checkpoints import LOG, Fetcher, Kept, Refused
from .exchange import RanksLost, forget, prepare
from .shares import deal
from .task import RANKS_LOST, Fitted, Plan, train_rank

# Losses of workers, without a newer checkpoint in between, after which a training is given up.
_MOST_LOSSES = 5
# From one look at the cluster to the next.
_SECONDS_BETWEEN = 0.5
# For a worker to come, if all were lost.
_SECONDS_TO_COME = 60.0
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
    kept : Kept
        The checkpoints to go on from, and where newer ones are kept.
    """

    def __init__(
        self,
        client: Any,
        workers: Optional[Iterable[str]],
        parts: Sequence[Any],
        sizes: Sequence[float],
        kept: Kept,
    ) -> None:
        self._client = client
        self._workers = None if workers is None else set(workers)
        self._parts = parts
        self._sizes = sizes
        self._kept = kept
        self._silent: set[str] = set()

    def train(self, plan: Plan) -> Fitted:
        """Train; if workers are lost, go on from the last checkpoint with those that are there.

        The model does not depend on the number of workers, or on where it was interrupted.

        Raises
        ------
        RuntimeError
            No worker is there, or workers are lost again and again, or data with them.
        ValueError
            The user's checkpoint cannot be used.
        """
        losses = before = 0
        while True:
            self._check_data()
            addresses = self._wait_for_workers() if losses else self._addresses()
            if not addresses:
                raise RuntimeError(
                    "sylvora.dask: no worker is left to train on"
                    if losses
                    else "sylvora.dask: the cluster has no worker to train on"
                )
            if losses:
                self._log_restart(plan, len(addresses))
            try:
                fitted = self._locked_attempt(plan, addresses)
                for number, data in sorted(fitted.checkpoints.items()):
                    self._kept.take(number, data)
                return fitted
            except _WorkersLost as lost:
                losses = losses + 1 if self._kept.num_steps() == before else 1
                before = self._kept.num_steps()
                self._silent |= lost.silent
                if losses >= _MOST_LOSSES:
                    raise RuntimeError(
                        f"sylvora.dask: workers were lost in {losses} attempts, one after the "
                        "other: see their logs; often their memory is too small"
                    ) from None
                time.sleep(_SECONDS_BETWEEN)  # the scheduler tells which data are lost
            except Refused as refused:
                plan = self._without(plan, refused)

    def _log_restart(self, plan: Plan, num_workers: int) -> None:
        steps = self._kept.num_steps() if plan.checkpoints is not None else 0
        begins = f"goes on after {steps} rounds or trees" if steps else "begins again"
        LOG.warning(
            "sylvora.dask: workers were lost; the training %s, on up to %d workers",
            begins,
            num_workers,
        )

    def _check_data(self) -> None:
        """Raises an error if data are lost. Those that are computed again have another status."""
        from distributed import futures_of

        gone = sorted(
            str(future.key)
            for future in futures_of(list(self._parts))
            if future.status == "cancelled"
        )
        if gone:
            raise RuntimeError(
                "sylvora.dask: data were lost with a worker, and cannot be computed again: "
                f"{', '.join(gone[:3])}{', ...' if len(gone) > 3 else ''} ({len(gone)} in all); "
                "they were scattered, say: scatter them again, with broadcast=True, or let the "
                "workers make or read them"
            )

    def _without(self, plan: Plan, refused: Refused) -> Plan:
        """The plan after a refusal: without the checkpoints so far or, if there are none, without
        any. A file of the user's may be another training's: that is for the user to say."""
        if self._kept.is_given:
            where = self._kept.name(refused.number)
            raise ValueError(f"checkpoint {where}: {refused.why}") from None
        had = bool(self._kept.data)
        self._kept.clear()
        LOG.warning(
            "sylvora.dask: the training begins again%s: the checkpoint %s",
            "" if had else ", without checkpoints",
            refused.why,
        )
        return plan if had else dataclasses.replace(plan, checkpoints=None)

    def _addresses(self) -> list[str]:
        """The workers to use, sorted."""
        there = self._client.scheduler_info()["workers"]
        usable = set(there) if self._workers is None else self._workers & set(there)
        return sorted(usable - self._silent)

    def _wait_for_workers(self) -> list[str]:
        """The workers to use after a loss: if there are none, others may be about to come."""
        end = time.monotonic() + _SECONDS_TO_COME
        while not self._addresses() and time.monotonic() < end:
            time.sleep(_SECONDS_BETWEEN)
        return self._addresses()

    def _locked_attempt(self, plan: Plan, addresses: Sequence[str]) -> Fitted:
        """An attempt while no other training uses these workers: two that wait for each other's
        tasks to end would never begin."""
        from distributed import MultiLock

        runs = deal(self._sizes, len(addresses))
        addresses = addresses[: len(runs)]
        names = [f"sylvora-{address}" for address in addresses]
        with MultiLock(names=names, client=self._client):
            return _Attempt(self._client, addresses, self._kept).run(
                plan, [self._parts[run.start : run.stop] for run in runs]
            )


class _Attempt:
    """A rank on each of some workers."""

    def __init__(self, client: Any, addresses: Sequence[str], kept: Kept) -> None:
        self._client = client
        self._addresses = addresses
        self._job = uuid.uuid4().hex
        self._kept = kept
        self._fetcher = Fetcher(client, addresses[0], self._job, kept)
        self._futures: list[Any] = []  # whatever is to be cancelled at the end
        self._tasks: list[Any] = []
        # The last heartbeat that the scheduler heard of each worker, and when we saw it first.
        self._heard: dict[str, tuple[float, float]] = {}
        self._silent: set[str] = set()

    def run(self, plan: Plan, parts: Sequence[Sequence[Any]]) -> Fitted:
        """Run; `parts` has those of each rank."""
        from distributed import CancelledError, TimeoutError

        try:
            self._prepare()
            try:
                self._submit(plan, parts)
            except (OSError, TimeoutError, CancelledError) as error:  # lost just now
                raise _WorkersLost from error
            self._wait(plan.checkpoints is not None)
            return self._result()
        finally:
            self._fetcher.close()
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
        given, kept = self._scatter(plan)
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
                kept if rank == 0 else [],
                key=f"sylvora-train-{self._job}-{rank}",
                workers=[address],
                allow_other_workers=False,
                pure=False,
            )
            self._tasks.append(task)
        self._futures += self._tasks

    def _scatter(self, plan: Plan) -> tuple[Any, list[Any]]:
        """The plan for all, and the checkpoints for rank 0."""
        data = self._kept.data if plan.checkpoints is not None else []
        client, workers = self._client, list(self._addresses)
        kept: list[Any] = []
        given = client.scatter(plan, workers=workers, broadcast=True, hash=False)
        self._futures.append(given)
        if data:
            kept = client.scatter(data, workers=workers[:1], hash=False)
            self._futures += kept
        return given, kept

    def _wait(self, fetches: bool) -> None:
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
                if fetches:
                    self._fetcher.look()
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
