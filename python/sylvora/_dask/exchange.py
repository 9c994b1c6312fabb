"""Exchanges between the ranks of a training, which are tasks on workers of a Dask cluster.

They use the connections of the workers themselves, and so their addresses and encryption. A
message is a call of a handler of the other worker. All that a `Group` knows is touched by the
worker's event loop alone; the thread that trains waits for it.
"""

from __future__ import annotations

import asyncio
import pickle
from collections.abc import Coroutine, Sequence
from typing import Any, Optional

_DESK = "sylvora"
_DELIVER = "sylvora_deliver"
_WATCH = "sylvora_watch"
# Messages below so many bytes go with their envelope.
_SMALL = 1 << 16


class RanksLost(Exception):
    """Another rank has left the training, or the training was cancelled."""

    def __init__(self) -> None:
        super().__init__("another rank has left the training, or the training was cancelled")


class Group:
    """One rank's view of the ranks of a training: a communicator of `_core.Dataset.gather`.

    Made on the event loop of a worker, before any rank begins, so that no message comes too early.
    """

    def __init__(self, job: str, worker: Any) -> None:
        self.job = job
        self.rank = 0
        self.folder: Any = None  # rank 0: of the checkpoints
        self._worker = worker
        self._loop: asyncio.AbstractEventLoop = asyncio.get_running_loop()
        self._addresses: Sequence[str] = ()
        self._number = 0  # of the next exchange; the same at all ranks
        self._arrivals: dict[tuple[int, int], asyncio.Future[Any]] = {}  # by exchange and rank
        # What this rank tells those that watch it: whether it has ended well.
        self._end: asyncio.Future[bool] = self._loop.create_future()
        self._lost: asyncio.Future[None] = self._loop.create_future()
        self._watches: list[asyncio.Task[None]] = []

    # The communicator, for the thread that trains.

    @property
    def size(self) -> int:
        """Number of ranks."""
        return len(self._addresses)

    def allgather(self, mine: memoryview, all: memoryview) -> None:
        """Give bytes to all, and get those of all in rank order."""
        self._fill(all, self.swap([bytes(mine)] * self.size))

    def alltoall(self, mine: memoryview, all: memoryview) -> None:
        """Give a part to each, and get one from each."""
        bytes_each = len(mine) // self.size
        parts = [bytes(mine[r * bytes_each : (r + 1) * bytes_each]) for r in range(self.size)]
        self._fill(all, self.swap(parts))

    def broadcast(self, data: memoryview, root: int) -> None:
        """Copy the data of rank `root` to all."""
        if self.rank == root:
            self.wait(self._exchange([bytes(data)] * self.size, ()))
        else:
            data[:] = self.wait(self._exchange([], (root,)))[root]

    def cancelled(self) -> bool:
        """Whether to leave."""
        return self._lost.done()

    def swap(self, parts: Sequence[bytes]) -> list[Any]:
        """Give bytes, of any size, to each rank, and get those of each."""
        return self.wait(self._exchange(parts, range(self.size)))

    def gather(self, value: Any) -> list[Any]:
        """The values of all ranks, of any kind that can be pickled."""
        parts = self.swap([pickle.dumps(value, protocol=5)] * self.size)
        return [pickle.loads(part) for part in parts]

    def scratch(self) -> str:
        """The folder of the worker for files that end with it."""
        return str(self._worker.local_directory)

    @staticmethod
    def _fill(all: memoryview, parts: Sequence[Any]) -> None:
        at = 0
        for part in parts:
            all[at : at + len(part)] = part
            at += len(part)

    def wait(self, work: Coroutine[Any, Any, list[Any]]) -> list[Any]:
        """Run something on the event loop and wait for it."""
        return asyncio.run_coroutine_threadsafe(work, self._loop).result()

    # What follows runs on the event loop.

    async def join(self, rank: int, addresses: Sequence[str]) -> list[Any]:
        """Begin: this process is the rank; the workers of all ranks have these addresses."""
        self.rank, self._addresses = rank, addresses
        for other, address in enumerate(addresses):
            if other != rank:
                self._watches.append(asyncio.ensure_future(self._watch(address)))
        return []

    async def _watch(self, address: str) -> None:
        """Keeps a call open at another rank, which ends with it, or with its worker."""
        try:
            well = await getattr(self._worker.rpc(address), _WATCH)(job=self.job)
        except Exception:
            well = False
        if not well:
            self.cancel()

    async def _exchange(self, parts: Sequence[bytes], froms: Sequence[int]) -> list[Any]:
        """Sends parts[r] to each rank r, if there are any, and returns what came, by rank; from
        ranks that are not in `froms` nothing comes."""
        number, self._number = self._number, self._number + 1
        if self._lost.done():
            raise RanksLost
        work = asyncio.gather(
            *(self._send(r, number, part) for r, part in enumerate(parts) if r != self.rank),
            *(self._arrival(number, r) for r in froms if r != self.rank),
        )
        either: set[asyncio.Future[Any]] = {work, self._lost}
        await asyncio.wait(either, return_when=asyncio.FIRST_COMPLETED)
        if not work.done() or work.exception() is not None:
            self.cancel()
            work.add_done_callback(lambda ended: ended.cancelled() or ended.exception())
            work.cancel()
            raise RanksLost
        came: list[Any] = [b""] * self.size
        for r in froms:
            came[r] = (
                parts[r] if r == self.rank else self._arrivals.pop((number, r)).result()
            )
        return came

    async def _send(self, rank: int, number: int, part: bytes) -> None:
        from distributed.protocol import to_serialize

        peer = self._worker.rpc(self._addresses[rank])
        # Without a reply: the watch tells of a rank that is gone.
        await getattr(peer, _DELIVER)(
            job=self.job,
            rank=self.rank,
            number=number,
            data=part if len(part) < _SMALL else to_serialize(part),
            reply=False,
        )

    def _arrival(self, number: int, rank: int) -> asyncio.Future[Any]:
        key = (number, rank)
        if key not in self._arrivals:
            self._arrivals[key] = self._loop.create_future()
        return self._arrivals[key]

    def deliver(self, number: int, rank: int, data: Any) -> None:
        """Bytes of another rank have come."""
        arrival = self._arrival(number, rank)
        if not arrival.done():
            arrival.set_result(data)

    def cancel(self) -> None:
        """All exchanges fail from now on."""
        if not self._lost.done():
            self._lost.set_result(None)

    async def ended(self) -> bool:
        """Waits for the end of this rank, and returns whether it ended well."""
        return await asyncio.shield(self._end)

    async def finish(self, well: bool) -> list[Any]:
        """End: the other ranks learn of it."""
        self.cancel()
        if not self._end.done():
            self._end.set_result(well)
        for watch in self._watches:
            watch.cancel()
        return []


class Desk:
    """The groups of a worker, by job, and the handlers that the other workers call."""

    def __init__(self) -> None:
        self.groups: dict[str, Group] = {}

    def deliver(self, job: str, rank: int, number: int, data: Any) -> None:
        """Take a message for a group; without one, it came after the end."""
        group = self.groups.get(job)
        if group is not None:
            group.deliver(number, rank, data)

    async def watch(self, job: str) -> bool:
        """Wait for the end of a group, and return whether it ended well."""
        group = self.groups.get(job)
        return group is not None and await group.ended()


def _desk_of(worker: Any) -> Desk:
    if _DESK not in worker.extensions:
        desk = worker.extensions[_DESK] = Desk()
        worker.handlers.update({_DELIVER: desk.deliver, _WATCH: desk.watch})
    found: Desk = worker.extensions[_DESK]
    return found


def group_of(worker: Any, job: str) -> Optional[Group]:
    """The group of a job at a worker, if it is there."""
    return _desk_of(worker).groups.get(job)


async def prepare(job: str, dask_worker: Any = None) -> str:
    """On a worker: make it ready for a job. Returns the version of the package."""
    from .. import __version__

    _desk_of(dask_worker).groups[job] = Group(job, dask_worker)
    return __version__


async def forget(job: str, dask_worker: Any = None) -> None:
    """On a worker: end what is left of a job. The rank, if it still trains, leaves."""
    group = _desk_of(dask_worker).groups.pop(job, None)
    if group is not None:
        await group.finish(False)


class Membership:
    """A context: the group of a job, in the thread of its task."""

    def __init__(self, job: str, rank: int, addresses: Sequence[str]) -> None:
        from distributed import get_worker

        self._groups = _desk_of(get_worker()).groups
        if job not in self._groups:
            raise RanksLost
        self._group = self._groups[job]
        self._group.wait(self._group.join(rank, addresses))

    def __enter__(self) -> Group:
        return self._group

    def __exit__(self, kind: Any, error: Any, traceback: Any) -> None:
        self._groups.pop(self._group.job, None)
        self._group.wait(self._group.finish(kind is None))
