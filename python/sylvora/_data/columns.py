"""Columns of pandas frames, masked arrays and record arrays, as they are in memory."""

from __future__ import annotations

from typing import Any, Optional, Union

import numpy as np

from .numbers import ENCODE, Array, Subject, as_numbers, has_dates, mask_of

# Values, or values and one bit per row, least significant bit first, in which 0 is missing.
Column = Union[Array, tuple[Array, Array]]

# Frames up to this number of cells are copied at once, which takes less time than to look at every
# column.
_SMALL = 1 << 14


def masked(values: Array, mask: Array, subject: str, refuse_missing: bool) -> Column:
    """A column without the values at which `mask` is true."""
    if not mask.any():
        return values
    if refuse_missing:
        raise ValueError(
            f"{subject} has a missing value in row {int(mask.argmax())}, which missing=None "
            "does not allow"
        )
    return values, np.packbits(~mask, bitorder="little")


def of_masked_array(values: Any, subject: Subject, refuse_missing: bool) -> list[Column]:
    """The columns of a two-dimensional numpy.ma.MaskedArray."""
    mask, data = mask_of(values), np.asarray(values)
    if data.dtype.kind == "O":
        data = data.copy()
        data[mask] = None
    data = as_numbers(data, subject, ENCODE)
    return [
        masked(data[:, i], mask[:, i], subject(i), refuse_missing) for i in range(data.shape[1])
    ]


def of_records(records: Array, subject: Subject, refuse_missing: bool) -> list[Column]:
    """The fields of a one-dimensional array with a structured type."""
    columns: list[Column] = []
    for i, name in enumerate(records.dtype.names or ()):
        field = records[name]
        if field.ndim != 1:
            raise TypeError(f"{subject(i)} has an array in each row; each field must be a number")
        called = subject(i)
        values = _numbers(np.asarray(field), called, ENCODE)
        columns.append(masked(values, mask_of(field), called, refuse_missing))
    return columns


def _numbers(values: Array, subject: str, text_advice: str) -> Array:
    return as_numbers(values, lambda _: subject, text_advice)


def block_of_frame(frame: Any) -> Optional[Array]:
    """All values of a pandas.DataFrame as one array, if that takes no copy or a small one."""
    types = set(frame.dtypes)
    if not all(isinstance(dtype, np.dtype) and dtype.kind in "fiub" for dtype in types):
        return None
    if frame.size <= _SMALL:
        small: Array = frame.to_numpy(dtype=np.float64)
        return small
    if len(types) > 1:
        return None
    first, last = (frame.iloc[:, i].to_numpy().base for i in (0, -1))
    if first is None or first is not last or getattr(first, "size", 0) != frame.size:
        return None
    block: Array = frame.to_numpy()
    return block


def of_frame(frame: Any, subject: Subject, refuse_missing: bool) -> list[Column]:
    """The columns of a pandas.DataFrame."""
    return [
        of_series(series, subject(i), ENCODE, refuse_missing)
        for i, (_, series) in enumerate(frame.items())
    ]


def of_series(series: Any, subject: str, text_advice: str, refuse_missing: bool) -> Column:
    """The values of a pandas.Series; a copy only if its type needs conversion."""
    dtype = series.dtype
    if isinstance(dtype, np.dtype):
        return _numbers(series.to_numpy(), subject, text_advice)
    if dtype.name == "category":
        raise TypeError(f"{subject} is categorical; {text_advice}")
    if dtype.kind in "mM":
        raise has_dates(subject, dtype)
    if dtype.kind not in "fiub":
        return _numbers(series.to_numpy(dtype=object), subject, text_advice)
    # The only way to the values of Int64, Float64 and boolean without a copy.
    data, mask = (getattr(series.array, name, None) for name in ("_data", "_mask"))
    if isinstance(data, np.ndarray) and isinstance(mask, np.ndarray):
        return masked(_numbers(data, subject, text_advice), mask, subject, refuse_missing)
    if hasattr(dtype, "fill_value"):  # sparse
        return np.asarray(series, dtype=np.float64)
    values: Array = series.to_numpy(dtype=np.float64, na_value=np.nan)
    return values
