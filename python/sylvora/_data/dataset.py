"""Data that are coded once and trained on any number of times."""

from __future__ import annotations

import math
from collections.abc import Iterator, Sequence
from typing import Any, Optional

import numpy as np
import numpy.typing as npt

from .. import _core
from .tables import Frame, as_table, with_names
from .names import given_names


class Dataset:
    """Training data that are sorted and coded once, by the first training that uses them.

    Parameters
    ----------
    X : array-like of shape (num_rows, num_columns)
        Whatever `fit` of an estimator takes.
    missing : float or None, default=nan
        NaN: NaN, None and null are missing. Another number: that number, too. None: a missing value
        is an error of the training.
    feature_names : sequence of str, optional
        One name per column, in the order of `X`, in place of the names that `X` may have.

    Attributes
    ----------
    num_rows, num_columns : int
        The shape.
    feature_names : list of str or None
        Names of the columns.
    missing : float or None
        As passed.

    Raises
    ------
    ValueError, TypeError
        Data that cannot be trained on, by row and column. Infinite values are an error of the
        training.

    Notes
    -----
    The values of `X` are borrowed, not copied, and kept alive. Do not change them as long as the
    set or a subset of it is in use, not from another thread either: trainings would read some of
    the old values and some of the new ones.

    Any number of threads may use a set at the same time. A set cannot be pickled; pickle `X`.

    Examples
    --------
    >>> import numpy as np
    >>> from sylvora import Dataset
    >>> X = np.arange(12.0).reshape(6, 2)
    >>> data = Dataset(X, feature_names=["age", "size"])
    >>> data
    Dataset(num_rows=6, num_columns=2, feature_names=['age', 'size'])
    >>> data.subset([0, 2, 4]).num_rows
    3
    """

    def __init__(
        self,
        X: Any,
        *,
        missing: Optional[float] = math.nan,
        feature_names: Optional[Sequence[str]] = None,
    ) -> None:
        frame = as_table(X, missing=missing)
        self._missing = missing
        self._is_shared = False  # with other ranks of a training
        # The settings of the checkpoint of each training, in turn.
        self._checkpoints: Optional[Iterator[dict[str, str]]] = None
        self._names = frame.names
        if feature_names is not None:
            self._names = given_names(feature_names, frame.num_columns)
        try:
            self._core = _core.Dataset(frame.table)
        except ValueError as error:
            raise with_names(error, self._names) from None

    @classmethod
    def _gathered(
        cls, communicator: _core._Communicator, frame: Frame, missing: Optional[float]
    ) -> Dataset:
        """The rows of all ranks of a training, of which `frame` has those of this one.

        All ranks call it, and from then on use the sets alike, one training after the other.
        """
        whole = cls.__new__(cls)
        whole._missing, whole._names, whole._is_shared = missing, frame.names, True
        whole._checkpoints = None
        try:
            whole._core = _core.Dataset.gather(communicator, frame.table)
        except ValueError as error:
            raise with_names(error, frame.names) from None
        return whole

    @property
    def num_rows(self) -> int:
        """Number of rows."""
        return self._core.num_rows

    @property
    def num_columns(self) -> int:
        """Number of columns."""
        return self._core.num_columns

    @property
    def feature_names(self) -> Optional[list[str]]:
        """Names of the columns, or None."""
        return None if self._names is None else list(self._names)

    @property
    def missing(self) -> Optional[float]:
        """What is missing besides NaN; None: nothing is."""
        return self._missing

    def subset(self, rows: npt.ArrayLike) -> Dataset:
        """Return the given rows as a set that shares values and codes with this one.

        Parameters
        ----------
        rows : array-like of shape (n,) of int, or of shape (num_rows,) of bool
            Row numbers from 0, in any order, also repeated; or which rows to take.

        Returns
        -------
        Dataset
            With at least one row.

        Raises
        ------
        ValueError
            No rows, a row that does not exist, a mask of another length.
        TypeError
            Neither whole numbers nor bool.
        """
        part = Dataset.__new__(Dataset)
        part._core = self._core.subset(_row_numbers(rows, self.num_rows))
        part._missing, part._names = self._missing, self._names
        part._is_shared, part._checkpoints = self._is_shared, self._checkpoints
        return part

    def _next_checkpoint(self) -> dict[str, str]:
        """The settings of the checkpoint of the training that begins."""
        return {} if self._checkpoints is None else next(self._checkpoints)

    def _column(self, column: int) -> npt.NDArray[np.float64]:
        """A copy of a column; a missing value is -2147483648, as trainings read it."""
        values = np.empty(self.num_rows)
        self._core.column(column, values)
        return values

    def __repr__(self) -> str:
        names = f", feature_names={self._names}" if self._names else ""
        return f"Dataset(num_rows={self.num_rows}, num_columns={self.num_columns}{names})"

    def __reduce__(self) -> str:
        raise TypeError(
            "a Dataset cannot be pickled or copied: it borrows the memory of X; pass X on, and "
            "make a Dataset of it there"
        )


def _row_numbers(rows: npt.ArrayLike, num_rows: int) -> npt.NDArray[np.int32]:
    chosen = np.asarray(rows)
    if chosen.ndim != 1:
        raise ValueError(f"rows must be one-dimensional, not of shape {chosen.shape}")
    if chosen.dtype.kind == "b":
        if len(chosen) != num_rows:
            raise ValueError(f"rows: the mask has {len(chosen)} items for {num_rows} rows")
        chosen = np.flatnonzero(chosen)
    if len(chosen) == 0:
        raise ValueError("rows: a subset needs at least one row")
    if chosen.dtype.kind not in "iu":
        raise TypeError(f"rows must be whole numbers or bool, not {chosen.dtype}")
    outside = (chosen < 0) | (chosen >= num_rows)
    if outside.any():
        at = int(outside.argmax())
        raise ValueError(
            f"rows: item {at} is {chosen[at]}; row numbers go from 0 to {num_rows - 1}"
        )
    return np.ascontiguousarray(chosen, dtype=np.int32)
