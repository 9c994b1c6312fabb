"""Data chunked by rows, and what each rank has of them."""

from __future__ import annotations

import math
from collections.abc import Sequence
from typing import Any, NamedTuple, Optional

import numpy as np


class Part(NamedTuple):
    """A chunk of rows, and what belongs to them. What was not given by chunks is None."""

    number: int
    X: Any
    y: Any
    sample_weight: Any
    qid: Any

    def __repr__(self) -> str:  # of the lines that workers log
        return f"Part({self.number})"


def is_chunked(data: Any) -> bool:
    """Whether data are a collection of Dask."""
    from dask.base import is_dask_collection

    return bool(is_dask_collection(data))


def computed(data: Any) -> Any:
    """The values of collections, also inside of tuples, lists and dicts."""
    import dask

    return dask.compute(data)[0]


def is_frame(data: Any) -> bool:
    """Whether a collection is a dataframe or a series."""
    return hasattr(data, "npartitions") and hasattr(data, "divisions")


def by_rows(X: Any) -> Any:
    """The collection with chunks that have all columns.

    Raises
    ------
    TypeError
        It is neither an array nor a dataframe of Dask.
    ValueError
        It has another number of dimensions than two.
    """
    if not is_chunked(X) or not (is_frame(X) or hasattr(X, "chunks")):
        raise TypeError(
            f"X must be an array or a dataframe of Dask, got {type(X).__name__}; for data in this "
            "process use the estimators of sylvora"
        )
    if X.ndim != 2:
        raise ValueError(
            f"Expected 2D array, got {X.ndim}D array instead. Reshape your data: X needs rows and "
            "columns"
        )
    if not is_frame(X) and len(X.chunks[1]) > 1:
        return X.rechunk({1: -1})
    return X


def _chunks_like(data: Any, X: Any, argument: str) -> list[Any]:
    """The chunks of `data`, one per chunk of X."""
    sizes = () if is_frame(X) else X.chunks[0]
    if not is_frame(data):
        known = len(sizes) > 0 and not any(map(math.isnan, (*sizes, *data.chunks[0])))
        if known and data.chunks[0] != sizes:
            if sum(data.chunks[0]) != sum(sizes):
                raise ValueError(
                    f"{argument} has {sum(data.chunks[0])} values, but X has {sum(sizes)} rows"
                )
            data = data.rechunk({0: sizes})
        if data.ndim > 1 and len(data.chunks[1]) > 1:
            data = data.rechunk({1: -1})
    return list(np.ravel(data.to_delayed()))


def _is_in(value: Any, names: set[Any]) -> bool:
    """Whether a value of a graph is one of some keys; it may be a task, which has no hash."""
    try:
        return value in names
    except TypeError:
        return False


def _direct(part: Any) -> Any:
    """A delayed value with scattered data in the place of keys that only stand for them: on such
    keys the scheduler of distributed 2022.12 fails if tasks are given to workers."""
    from dask.delayed import Delayed
    from dask.optimization import cull, inline
    from distributed import Future

    graph = dict(part.dask)
    names: set[Any] = set()
    num_names = -1
    while num_names < len(names):  # a name may stand for another one
        num_names = len(names)
        for key, value in graph.items():
            if isinstance(value, Future) or (type(value) in (str, tuple) and _is_in(value, names)):
                names.add(key)
    if not names:
        return part
    return Delayed(part.key, cull(inline(graph, names, inline_constants=False), part.key)[0])


def parts_of(X: Any, columns: dict[str, Any]) -> tuple[list[Any], list[float]]:
    """Return a delayed Part per chunk of X, in order, and its share of the rows.

    `columns` has the other fields of a Part: collections of Dask.
    """
    import dask

    blocks = list(np.ravel(X.to_delayed()))
    others = dict.fromkeys(Part._fields[2:], [None] * len(blocks))
    for name, data in columns.items():
        others[name] = _chunks_like(data, X, name)
        if len(others[name]) != len(blocks):
            raise ValueError(
                f"{name} has {len(others[name])} chunks, but X has {len(blocks)}: give it the "
                "chunks of X"
            )
    make = dask.delayed(Part, pure=False)
    parts = [
        _direct(make(number, block, *(others[name][number] for name in Part._fields[2:])))
        for number, block in enumerate(blocks)
    ]
    sizes = [1.0] * len(blocks)
    if not is_frame(X) and not any(map(math.isnan, X.chunks[0])):
        sizes = [float(size) for size in X.chunks[0]]
    return parts, sizes


def deal(sizes: Sequence[float], num_ranks: int) -> list[range]:
    """Deal chunks to ranks: runs of about the same number of rows, at least one chunk each; of as
    many ranks as get one."""
    total = sum(sizes) or 1.0
    runs: list[list[int]] = [[] for _ in range(num_ranks)]
    before = 0.0
    for number, size in enumerate(sizes):
        middle = before + size / 2
        runs[min(num_ranks - 1, int(middle * num_ranks / total))].append(number)
        before += size
    return [range(run[0], run[-1] + 1) for run in runs if run]


def _check(part: Part) -> int:
    num_rows: int = part.X.shape[0]
    for name in Part._fields[2:]:
        data = getattr(part, name)
        if data is not None and len(data) != num_rows:
            raise ValueError(
                f"{name} has {len(data)} values in chunk {part.number}, but X has {num_rows} rows "
                "there"
            )
    return num_rows


def _stacked(blocks: Sequence[Any]) -> Any:
    if len(blocks) == 1:
        return blocks[0]
    kind = type(blocks[0]).__module__.partition(".")[0]
    if kind == "pandas":
        import pandas

        return pandas.concat(blocks)
    if kind == "scipy":
        from scipy import sparse

        return sparse.vstack(blocks)
    return np.concatenate(blocks)


def share_of(parts: Sequence[Part]) -> tuple[Any, dict[str, Optional[Any]]]:
    """Return the rows of a rank, and what belongs to them by name; rows are None if there are none.

    Raises
    ------
    ValueError
        The items of a chunk are not as many as its rows.
    """
    filled = [part for part in parts if _check(part) > 0]
    if not filled:
        return None, {name: None for name in Part._fields[2:]}
    columns: dict[str, Optional[Any]] = {}
    for name in Part._fields[2:]:
        values = [getattr(part, name) for part in filled]
        columns[name] = None if values[0] is None else np.concatenate(list(map(np.asarray, values)))
    return _stacked([part.X for part in filled]), columns
