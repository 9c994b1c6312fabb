"""How many threads to use."""

from __future__ import annotations

import operator
import os
from typing import Optional, SupportsIndex

_MOST_THREADS = 256


def usable_jobs(n_jobs: Optional[SupportsIndex]) -> int:
    """The number of threads that `n_jobs` asks for, from 1 to 256.

    None is 1. A negative number counts back from the usable processors, as in joblib: -1 is all of
    them, -2 all but one.

    Raises
    ------
    TypeError, ValueError
        If it is no integer, 0 or above 256.
    """
    if n_jobs is None:
        return 1
    try:
        number = operator.index(n_jobs)
    except TypeError:
        raise TypeError(f"n_jobs must be an integer or None, got {n_jobs!r}") from None
    number = int(number)
    if number < 0:
        return min(max(_usable_processors() + 1 + number, 1), _MOST_THREADS)
    if not 1 <= number <= _MOST_THREADS:
        raise ValueError(
            f"n_jobs must be from 1 to {_MOST_THREADS}, or -1 for all usable processors, "
            f"got {number}"
        )
    return number


def _usable_processors() -> int:
    """Those that the process may run on, less if a control group allows it less time."""
    allowed = max(len(os.sched_getaffinity(0)), 1)
    limits = [limit for limit in map(_limit_of, _control_groups()) if limit > 0]
    return min([allowed, *limits])


def _control_groups() -> list[str]:
    """The folders that may limit the process's time on processors (cgroup versions 1 and 2)."""
    try:
        with open("/proc/self/cgroup", encoding="utf-8") as file:
            lines = file.read().splitlines()
    except OSError:
        return []
    folders = []
    for line in lines:
        _, names, path = (line.split(":", 2) + ["", ""])[:3]
        if names and "cpu" not in names.split(","):
            continue
        for hierarchy in {"", "/" + names, "/cpu"} if names else {""}:
            group = path
            while True:
                folders.append(f"/sys/fs/cgroup{hierarchy}{group}")
                if group in ("/", ""):
                    break
                group = os.path.dirname(group)
    return folders


def _limit_of(folder: str) -> int:
    """Processors that one control group allows, rounded up; 0: no limit."""
    quota, period = _numbers(folder + "/cpu.max", 2)
    if quota <= 0:
        quota = _numbers(folder + "/cpu.cfs_quota_us", 1)[0]
        period = _numbers(folder + "/cpu.cfs_period_us", 1)[0]
    return -(-quota // period) if quota > 0 and period > 0 else 0


def _numbers(path: str, count: int) -> list[int]:
    """The first integers of a file; 0 where there is none."""
    try:
        with open(path, encoding="utf-8") as file:
            words = file.read().split()
    except (OSError, UnicodeDecodeError):
        words = []
    words = words[:count] + ["0"] * (count - len(words))
    return [int(word) if word.isdecimal() else 0 for word in words]
