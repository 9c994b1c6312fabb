"""Checkpoints of a training on a cluster: rank 0 writes them, the client keeps them.

Rank 0 writes into a folder of its worker, as often as the library finds it cheap. The client
fetches what is new there. So it does not matter which worker is lost, or whether its disk is lost
as well. A fit that trains several models, one after the other, has a checkpoint for each: they are
numbered.
"""

from __future__ import annotations

import itertools
import logging
import os
import shutil
import struct
import tempfile
import threading
import time
import uuid
from collections.abc import Iterator, Mapping, Sequence
from contextlib import contextmanager
from typing import Any, NamedTuple, Optional, Union

from .._training.parameters import checkpoint_settings
from .exchange import Group, group_of

LOG = logging.getLogger("sylvora.dask")

# After a fetch, so many times its duration goes by before the next one.
_PAUSE = 20


class Refused(Exception):
    """The library does not go on from a checkpoint, or cannot write it.

    Attributes
    ----------
    number : int
        Of the model.
    why : str
        The rest of a sentence that begins with the file.
    """

    def __init__(self, number: int, why: str) -> None:
        super().__init__(number, why)
        self.number, self.why = number, why


class Wanted(NamedTuple):
    """What a fit wants: `checkpoint_every`, and whether the last state is returned."""

    every: Optional[int]
    last: bool


# What follows is for the workers.


class Folder:
    """A folder with the checkpoints of a training; at first those that it goes on from."""

    def __init__(self, parent: str, given: Sequence[bytes]) -> None:
        self.path = tempfile.mkdtemp(prefix="sylvora-", dir=parent)
        self._given: dict[int, int] = {}
        try:
            for number, data in enumerate(given):
                with open(os.path.join(self.path, str(number)), "wb") as file:
                    file.write(data)
            self._given = {number: stamp for number, (stamp, _) in self.news({}).items()}
        except OSError:
            self.remove()
            raise

    def news(self, seen: Mapping[int, int]) -> dict[int, tuple[int, bytes]]:
        """Return stamp and bytes of each checkpoint whose stamp is not in `seen`."""
        found: dict[int, tuple[int, bytes]] = {}
        number = 0
        while True:
            try:
                with open(os.path.join(self.path, str(number)), "rb") as file:
                    stamp = os.fstat(file.fileno()).st_mtime_ns
                    if stamp != seen.get(number, self._given.get(number)):
                        found[number] = (stamp, file.read())
            except OSError:  # there are no more
                return found
            number += 1

    def remove(self) -> None:
        """Remove it with all that is in it."""
        shutil.rmtree(self.path, ignore_errors=True)


@contextmanager
def checkpoints(
    group: Group, wanted: Optional[Wanted], given: Sequence[bytes]
) -> Iterator[Optional[Iterator[dict[str, str]]]]:
    """A context: the settings of the checkpoint of each training, in turn. None: without.

    All ranks take part. A worker that has no disk to write to trains without checkpoints.
    """
    if wanted is None:
        yield None
        return
    if group.rank == 0:
        try:
            group.folder = Folder(group.scratch(), given)
        except OSError as error:
            LOG.warning("sylvora.dask: the training has no checkpoint: %s", error)
    try:
        path = group.gather(None if group.folder is None else group.folder.path)[0]
        yield None if path is None else (
            checkpoint_settings(os.path.join(path, str(number)), wanted.every)
            for number in itertools.count()
        )
    finally:
        if group.folder is not None:
            group.folder.remove()


def check_refusal(group: Group, error: Exception) -> None:
    """Raise `Refused` if an error of a training is about its checkpoint."""
    start = "" if group.folder is None else f"checkpoint {group.folder.path}{os.sep}"
    if start and str(error).startswith(start):
        number, _, why = str(error)[len(start) :].partition(": ")
        raise Refused(int(number), why) from None


async def news_at(
    job: str, seen: Mapping[int, int], dask_worker: Any = None
) -> dict[int, tuple[int, bytes]]:
    """On the worker of rank 0: `Folder.news`, beside the training."""
    import asyncio

    group = group_of(dask_worker, job)
    if group is None or group.folder is None:
        return {}
    news: dict[int, tuple[int, bytes]] = await asyncio.get_running_loop().run_in_executor(
        None, group.folder.news, seen
    )
    return news


# What follows is for the client.


class Kept:
    """The checkpoints that the client has, by number, and the user's files of them.

    Parameters
    ----------
    path : str or path, optional
        File of the first one; the others have a number at the end of its name. Those that exist
        are where the training begins.
    """

    def __init__(self, path: Union[str, os.PathLike[str], None] = None) -> None:
        self.path = None if path is None else os.path.abspath(os.fsdecode(path))
        self.data: list[bytes] = []
        self._failed = False
        if self.path is not None:
            self._check_writable(self.path)
            while os.path.exists(self.name(len(self.data))):
                with open(self.name(len(self.data)), "rb") as file:
                    self.data.append(file.read())
        # Whether they are those of the files, which may be of another training.
        self.is_given = bool(self.data)

    @staticmethod
    def _check_writable(path: str) -> None:
        folder = os.path.dirname(path)
        if os.path.isdir(path):
            raise ValueError(f"checkpoint {path}: is no regular file; name another one")
        if not os.path.isdir(folder) or not os.access(folder, os.W_OK | os.X_OK):
            raise ValueError(f"checkpoint {path}: cannot be written: no access to {folder}")

    def name(self, number: int) -> str:
        """The user's file of a checkpoint."""
        return f"{self.path}.{number}" if number else str(self.path)

    def take(self, number: int, data: bytes) -> None:
        """Keep a newer one."""
        self.data[number : number + 1] = [data]
        self.is_given = False
        if self.path is not None:
            self._write(self.name(number), data)

    def clear(self) -> None:
        """Forget all; the user's files stay until there are new ones."""
        self.data, self.is_given = [], False

    def num_steps(self) -> int:
        """Number of rounds, or trees of a forest, that need not be trained again."""
        return sum(map(_num_steps, self.data))

    def _write(self, path: str, data: bytes) -> None:
        """Replaces a file as a whole. Of failures in a row, the first is logged."""
        new = os.path.join(os.path.dirname(path), f".sylvora-{uuid.uuid4().hex}.tmp")
        try:
            try:
                with open(new, "xb") as file:
                    file.write(data)
                    file.flush()
                    os.fsync(file.fileno())
                os.replace(new, path)
            except OSError:
                if os.path.exists(new):
                    os.remove(new)
                raise
            self._failed = False
        except OSError as error:
            if not self._failed:
                LOG.warning("sylvora.dask: checkpoint %s: cannot be written: %s", path, error)
            self._failed = True


def _num_steps(data: bytes) -> int:
    # The first number after the head; see "Checkpoints" in docs/formats.md.
    start = data.find(b"\n\n") + 2
    steps: int = struct.unpack_from("<q", data, start)[0] if len(data) >= start + 8 else 0
    return steps


class Fetcher:
    """Fetches the checkpoints of an attempt.

    Each call has a thread of its own: one to a worker that is stopped does not return.
    """

    def __init__(self, client: Any, address: str, job: str, kept: Kept) -> None:
        self._client, self._address, self._job = client, address, job
        self._kept: Optional[Kept] = kept  # None: closed
        self._lock = threading.Lock()
        self._seen: dict[int, int] = {}
        self._thread: Optional[threading.Thread] = None
        self._next = 0.0

    def look(self) -> None:
        """Begin to fetch what is new, unless that is under way, or was a short time ago."""
        if time.monotonic() < self._next or (self._thread and self._thread.is_alive()):
            return
        self._thread = threading.Thread(target=self._fetch, name="sylvora-fetch", daemon=True)
        self._thread.start()

    def close(self) -> None:
        """Take nothing any more."""
        with self._lock:
            self._kept = None

    def _fetch(self) -> None:
        start = time.monotonic()
        try:
            news = self._client.run(news_at, self._job, self._seen, workers=[self._address])
        except Exception:  # of any kind: the worker, or the client, is about to be gone
            LOG.debug("sylvora.dask: no checkpoint was fetched", exc_info=True)
            news = {}
        with self._lock:
            for number, (stamp, data) in sorted(news.get(self._address, {}).items()):
                if self._kept is not None:
                    self._kept.take(number, data)
                    self._seen[number] = stamp
        end = time.monotonic()
        self._next = end + _PAUSE * (end - start)
