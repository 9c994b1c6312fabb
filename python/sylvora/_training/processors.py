"""How many threads to use."""

from __future__ import annotations

import operator
from typing import Optional, SupportsIndex

from .. import _core

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
        return min(max(_core.usable_processors() + 1 + number, 1), _MOST_THREADS)
    if not 1 <= number <= _MOST_THREADS:
        raise ValueError(
            f"n_jobs must be from 1 to {_MOST_THREADS}, or -1 for all usable processors, "
            f"got {number}"
        )
    return number
