"""What users pass as a table: its shape, its names, and how to make a Table of it."""

from __future__ import annotations

from typing import Any, Optional, Protocol

import numpy as np

from . import columns as _columns
from .columns import Column
from .._core import Table
from .names import Names, names_of, unique
from .numbers import ENCODE, Array, as_numbers, imported, is_instance, mask_of, subject_of

# The number that is missing besides NaN, and whether NaN is refused instead.
Missing = tuple[Optional[float], bool]


class Source(Protocol):
    """Data of one kind. `order` picks columns; None: all as they are."""

    shape: tuple[int, int]
    names: Names

    def table(self, order: Optional[list[int]], missing: Missing) -> Table: ...


class _Dense:
    """A two-dimensional array of numbers."""

    def __init__(self, values: Array, names: Names = None) -> None:
        self.values, self.names = values, names
        self.shape: tuple[int, int] = values.shape  # type: ignore[assignment]

    def table(self, order: Optional[list[int]], missing: Missing) -> Table:
        values = self.values
        if order is None and _is_disjoint(values):
            return Table.from_dense(values, *missing)
        if abs(values.strides[0]) < values.itemsize and len(values) > 1:
            values = values.copy()  # rows that share memory
        columns = [values[:, i] for i in (order or range(values.shape[1]))]
        return Table.from_columns(columns, len(values), *missing)


class _Separate:
    """Columns, each in a place of its own."""

    def __init__(self, columns: list[Column], num_rows: int, names: Names) -> None:
        self.columns, self.names = columns, names
        self.shape = (num_rows, len(columns))

    def table(self, order: Optional[list[int]], missing: Missing) -> Table:
        columns = self.columns if order is None else [self.columns[i] for i in order]
        return Table.from_columns(columns, self.shape[0], *missing)


class _Sparse:
    """A matrix of scipy.sparse."""

    names: Names = None

    def __init__(self, matrix: Any, names: Names = None) -> None:
        if matrix.format not in ("csr", "csc"):
            matrix = matrix.tocsr()
        if not matrix.has_canonical_format:
            matrix = matrix.copy()
            matrix.sum_duplicates()
        self.matrix, self.names = matrix, names
        self.shape: tuple[int, int] = matrix.shape

    def table(self, order: Optional[list[int]], missing: Missing) -> Table:
        matrix = self.matrix if order is None else self.matrix.tocsc()[:, order]
        by_rows = matrix.format == "csr"
        return Table.from_sparse(
            matrix.shape, by_rows, matrix.data, matrix.indices, matrix.indptr, *missing
        )


class _Arrow:
    """An object with the Arrow C interface."""

    def __init__(self, data: Any, argument: str, missing: Missing) -> None:
        try:
            self.whole = Table.from_arrow(data, *missing)
        except (TypeError, ValueError) as error:
            kind = ValueError if isinstance(error, ValueError) else TypeError
            raise kind(f"{argument}: {error}") from None
        self.names = unique(self.whole.names, argument)
        self.shape = (self.whole.num_rows, self.whole.num_columns)

    def table(self, order: Optional[list[int]], missing: Missing) -> Table:
        return self.whole if order is None else self.whole.select(order)


def source_of(X: Any, argument: str, missing: Missing) -> Source:
    """Recognise what `X` is. Raises as `as_table` does."""
    if isinstance(X, np.ndarray):
        return _of_array(X, argument, missing[1])
    if is_instance(X, "pandas", "DataFrame"):
        return _of_frame(X, argument, missing[1])
    is_sparse = imported("scipy.sparse", "issparse")
    if is_sparse is not None and is_sparse(X):
        return _of_sparse(X, argument)
    if hasattr(X, "__arrow_c_stream__") or hasattr(X, "__arrow_c_array__"):
        # Single columns, such as a polars.Series, have the interface, too.
        if len(getattr(X, "shape", (0, 0))) == 2:
            return _Arrow(X, argument, missing)
    names = names_of(X, argument)
    return _Dense(_two_dimensional(_converted(X, argument), X, argument, names), names)


def _of_array(X: Array, argument: str, refuse_missing: bool) -> Source:
    if X.dtype.names and X.ndim == 1:
        names = list(X.dtype.names)
        subject = subject_of(argument, names)
        return _Separate(_columns.of_records(X, subject, refuse_missing), len(X), names)
    if isinstance(X, np.ma.MaskedArray) and X.ndim == 2 and mask_of(X).any():
        columns = _columns.of_masked_array(X, subject_of(argument), refuse_missing)
        return _Separate(columns, len(X), None)
    return _Dense(_two_dimensional(np.asarray(X), X, argument, None))


def _of_frame(X: Any, argument: str, refuse_missing: bool) -> Source:
    names = unique(list(X.columns), argument)
    if 0 in X.shape:
        return _Dense(np.empty(X.shape), names)
    subject = subject_of(argument, names)
    block = _columns.block_of_frame(X)
    if block is not None:
        return _Dense(as_numbers(block, subject, ENCODE), names)
    if getattr(X.dtypes.iloc[0], "fill_value", None) == 0 and X.dtypes.nunique() == 1:
        return _Sparse(X.sparse.to_coo().tocsc(), names)
    columns = _columns.of_frame(X, subject, refuse_missing)
    return _Separate(columns, len(X), names)


def _of_sparse(X: Any, argument: str) -> Source:
    if X.ndim != 2:
        raise _not_two_dimensional(X, argument)
    if X.format in ("csr", "csc"):
        try:
            X.check_format(full_check=True)  # scipy reads beyond arrays that are not consistent
        except (TypeError, ValueError) as error:
            raise ValueError(f"{argument}: the sparse matrix is damaged: {error}") from None
    source = _Sparse(X)
    data = as_numbers(source.matrix.data, lambda _: f"{argument} (sparse)", ENCODE)
    if data is not source.matrix.data:
        kind = type(source.matrix)
        parts = (data, source.matrix.indices, source.matrix.indptr)
        source.matrix = kind(parts, shape=source.shape)
    return source


def _converted(X: Any, argument: str) -> Array:
    try:
        values = np.asarray(X)
    except ValueError as error:
        rows = f"{argument} must be a list of rows of numbers: {error}"
        raise _ragged(X, argument) or ValueError(rows) from None
    # NumPy turns numbers into text or complex ones if there are some; objects stay what they are.
    if values.dtype.kind in "USc" and isinstance(X, (list, tuple)):
        values = np.asarray(X, dtype=object)
    if values.ndim == 0 and values.dtype.kind not in "fiub":
        raise TypeError(
            f"{argument} must be a table of numbers, such as a NumPy array, a data frame or a list "
            f"of rows, not {type(X).__name__}"
        )
    if values.ndim == 1 and values.dtype.kind == "O":
        ragged = _ragged(X, argument)
        if ragged is not None:
            raise ragged
    return values


def _ragged(rows: Any, argument: str) -> Optional[ValueError]:
    """The error for the first row whose length differs from the first one's."""
    if not isinstance(rows, (list, tuple)):
        return None
    lengths = [len(row) if hasattr(row, "__len__") else -1 for row in rows]
    for i, length in enumerate(lengths):
        if length != lengths[0]:
            shown = "no list" if length < 0 else f"{length} values"
            first = "none" if lengths[0] < 0 else f"{lengths[0]} values"
            return ValueError(
                f"{argument}: row {i} has {shown}, row 0 has {first}; all rows must have the same "
                "length"
            )
    return None


def _two_dimensional(values: Array, X: Any, argument: str, names: Names) -> Array:
    if values.ndim != 2:
        raise _not_two_dimensional(values, argument)
    return as_numbers(values, subject_of(argument, names), ENCODE)


def _not_two_dimensional(values: Any, argument: str) -> ValueError:
    if values.ndim > 2:
        return ValueError(f"{argument}: Found array with dim {values.ndim}, but dim 2 is expected.")
    kind = "1D" if values.ndim == 1 else "scalar"
    return ValueError(
        f"{argument}: Expected 2D array, got {kind} array instead (shape={values.shape}). Reshape "
        "your data either using array.reshape(-1, 1) if your data has a single feature or "
        "array.reshape(1, -1) if it contains a single sample."
    )


def _is_disjoint(values: Array) -> bool:
    """Whether no two cells share memory, as far as the strides tell."""
    if values.flags.c_contiguous or values.flags.f_contiguous:
        return True
    (rows, columns), size = values.shape, values.itemsize
    by_row, by_column = (abs(stride) for stride in values.strides)
    row, column = by_column * (columns - 1) + size, by_row * (rows - 1) + size
    return ((columns == 1 or by_column >= size) and (rows == 1 or by_row >= row)) or (
        (rows == 1 or by_row >= size) and (columns == 1 or by_column >= column)
    )
