"""Tables, names, labels, queries and weights from what users pass.

Values are borrowed where they are; only types and layouts that the library cannot read are copied:
lists, objects, float16 and long doubles, foreign byte order, rows that are repeated by a stride of
0, and sparse matrices whose indices do not ascend. Packages of data frames are recognised if they
have been imported; this module imports none but NumPy.
"""

from __future__ import annotations

import math
from collections.abc import Sequence
from dataclasses import dataclass
from numbers import Real
from typing import Any, Optional

from .._core import Table
from .names import order_of, with_names
from .sources import Missing, source_of
from .targets import as_labels, as_queries, as_weights

__all__ = [
    "Frame",
    "as_labels",
    "as_queries",
    "as_table",
    "as_weights",
    "with_names",
]


@dataclass(frozen=True)
class Frame:
    """A table and what is known of it.

    Attributes
    ----------
    table : Table
        The values, borrowed.
    names : list of str or None
        Names of the table's columns, in the table's order, if the data have names.
    num_rows, num_columns : int
        At least 1.
    """

    table: Table
    names: Optional[list[str]]
    num_rows: int
    num_columns: int


def as_table(
    X: Any,
    *,
    missing: Optional[float] = math.nan,
    names: Optional[Sequence[str]] = None,
    argument: str = "X",
    num_columns: Optional[int] = None,
) -> Frame:
    """Return a table that borrows the values of `X`.

    Parameters
    ----------
    X : array-like of shape (n_samples, n_features)
        A NumPy array of any number type and strides, a masked or record array, a pandas.DataFrame,
        an object with the Arrow C interface (polars, pyarrow), a matrix of scipy.sparse, in which
        an absent value is 0, a list of rows, or anything that NumPy can convert.
    missing : float or None
        NaN: NaN, None and null are missing. Another number: a value that equals it as a double,
        too. None: a missing value is an error.
    names : sequence of str, optional
        Names of the columns that are wanted. If `X` has names, its columns are brought into this
        order; otherwise they are taken as they come.
    argument : str
        What errors call `X`.
    num_columns : int, optional
        The number of columns that is wanted.

    Raises
    ------
    ValueError
        Not two-dimensional, no rows, no columns, other columns than those wanted, names that occur
        twice; with missing=None a missing value (a NaN in an array only when the table is used).
    TypeError
        Values that are no numbers, by column and row.

    Notes
    -----
    Infinite values are found when the table is used; see `with_names`.
    """
    rule = _missing_rule(missing)
    source = source_of(X, argument, rule)
    rows, columns = source.shape
    if rows == 0 or columns == 0:
        what = "0 sample(s)" if rows == 0 else "0 feature(s)"
        raise ValueError(
            f"{argument}: Found array with {what} (shape=({rows}, {columns})) while a minimum of 1 "
            "is required."
        )
    order = None
    found = source.names
    if names is not None:
        order = order_of(found, names, argument)
        if order is not None:
            found = list(names)
        num_columns = num_columns if num_columns is not None else len(names)
    if num_columns is not None and columns != num_columns:
        raise ValueError(
            f"{argument} has {columns} features, but Model is expecting {num_columns} features as "
            "input"
        )
    return Frame(source.table(order, rule), found, rows, columns)


def _missing_rule(missing: Optional[float]) -> Missing:
    """The number that is missing besides NaN, and whether NaN is refused instead."""
    if missing is None:
        return None, True
    if not isinstance(missing, Real) or isinstance(missing, bool):
        raise TypeError(f"missing must be a number, NaN or None, not {missing!r}")
    try:
        number = float(missing)
    except OverflowError:
        number = math.inf
    if math.isinf(number):
        raise ValueError("missing must not be infinite: infinite values are refused")
    return (None if math.isnan(number) else number), False
