"""Arrays of numbers from arrays of anything.

Faults are reported by column and row: `Subject` tells what an error calls a column, such as
`X: column "age"` or `y`.
"""

from __future__ import annotations

import sys
from collections.abc import Callable
from typing import Any, Optional

import numpy as np
import numpy.typing as npt

Array = npt.NDArray[Any]
Subject = Callable[[int], str]

ENCODE = "encode it, for example with sklearn.preprocessing.OrdinalEncoder"

# Type codes of NumPy that a Table reads as they are: bool, integers, float32, float64.
_READ_AS_THEY_ARE = frozenset("?bBhHiIlLqQfd")


def imported(module: str, name: str) -> Any:
    """Something of a module if that has been imported; otherwise None."""
    return getattr(sys.modules.get(module), name, None)


def is_instance(value: object, module: str, name: str) -> bool:
    """Whether an object is of a class of a module, which need not have been imported."""
    kind = imported(module, name)
    return kind is not None and isinstance(value, kind)


def subject_of(argument: str, names: Optional[list[str]] = None) -> Subject:
    """What errors call the columns of a table: by name, or by number from 0."""

    def subject(column: int) -> str:
        return f"{argument}: column " + (f'"{names[column]}"' if names else str(column))

    return subject


def as_numbers(values: Array, subject: Subject, text_advice: str) -> Array:
    """Return `values` with a type that a Table reads: the same array if it has one.

    `values` has one or two dimensions. None and pandas.NA become NaN. Everything else that is no
    real number is a TypeError, or a ValueError if it is complex or beyond the range of doubles;
    `text_advice` says what to do about text.
    """
    dtype = values.dtype
    if dtype.char in _READ_AS_THEY_ARE and dtype.isnative:
        return values
    if dtype.kind in "fiu":
        return values.astype(np.float64 if dtype.kind == "f" else dtype.newbyteorder("="))
    if dtype.kind == "O":
        return _from_objects(values, subject, text_advice)
    if dtype.kind in "US":
        cell = values.flat[0] if values.size else ""
        raise _has_text(subject(0), cell, 0, text_advice)
    if dtype.kind == "c":
        raise _is_complex(subject(0))
    if dtype.kind in "mM":
        raise has_dates(subject(0), dtype)
    raise TypeError(f"{subject(0)} has values of type {dtype}; numbers are needed")


def mask_of(values: Any) -> Array:
    """Where a numpy.ma.MaskedArray is masked; all False for other arrays."""
    mask: Array = np.ma.getmaskarray(values)  # type: ignore[no-untyped-call]
    return mask


def is_missing(cell: object) -> bool:
    """Whether an object is None, NaN or pandas.NA."""
    if cell is None or cell is imported("pandas", "NA"):
        return True
    return isinstance(cell, float) and cell != cell


def has_dates(subject: str, dtype: object) -> TypeError:
    """The error for a column of dates, times or durations."""
    return TypeError(
        f"{subject} has dates or times ({dtype}); turn them into numbers, for example "
        "days since the first one"
    )


def _has_text(subject: str, cell: object, row: int, advice: str) -> TypeError:
    text = cell.decode("utf-8", "replace") if isinstance(cell, bytes) else str(cell)
    shown = text if len(text) <= 40 else text[:37] + "..."
    return TypeError(f'{subject} has text ("{shown}" in row {row}); {advice}')


def _is_complex(subject: str) -> ValueError:
    return ValueError(
        f"{subject} is complex. Complex data not supported: pass real and imaginary parts "
        "separately"
    )


def _from_objects(cells: Array, subject: Subject, text_advice: str) -> Array:
    types = set(map(type, cells.flat))
    if not any(issubclass(kind, (str, bytes)) for kind in types):
        try:
            # Converts None to NaN.
            return _without_na(cells, types).astype(np.float64)
        except (TypeError, ValueError, OverflowError):
            pass
    raise _fault_of_objects(cells, subject, text_advice)


def _without_na(cells: Array, types: set[type]) -> Array:
    na = imported("pandas", "NA")
    if na is None or type(na) not in types:
        return cells
    mask = np.fromiter((cell is na for cell in cells.flat), np.bool_, cells.size)
    filled = cells.copy()
    filled[mask.reshape(cells.shape)] = None
    return filled


def _fault_of_objects(cells: Array, subject: Subject, text_advice: str) -> Exception:
    """The error for the first cell, row by row, that is no number."""
    for place, cell in np.ndenumerate(cells):
        column = subject(place[1] if len(place) > 1 else 0)
        if is_missing(cell):
            continue
        if isinstance(cell, (str, bytes)):
            return _has_text(column, cell, place[0], text_advice)
        if isinstance(cell, (complex, np.complexfloating)):
            return _is_complex(column)
        try:
            float(cell)
        except TypeError as error:
            return TypeError(f"{column} has no number in row {place[0]}: {error}")
        except (ValueError, OverflowError) as error:
            return ValueError(f"{column} has no usable number in row {place[0]}: {error}")
    return TypeError(f"{subject(0)} has objects that are no numbers")
