"""Predictions that are computed chunk by chunk, on demand."""

from __future__ import annotations

from functools import partial
from typing import Any

import numpy as np

from .shares import is_frame


def _of_rows(X: Any, estimator: Any, method: str, kind: Any, num_columns: int) -> Any:
    """The predictions of a chunk, which may be empty."""
    if X.shape[0] == 0:
        return np.empty((0, num_columns) if num_columns else 0, kind)
    return getattr(estimator, method)(X)


def _of_frame(X: Any, estimator: Any, method: str, kind: Any, columns: Any) -> Any:
    import pandas

    values = _of_rows(X, estimator, method, kind, 0 if columns is None else len(columns))
    if columns is None:
        return pandas.Series(values, index=X.index)
    return pandas.DataFrame(values, index=X.index, columns=columns)


def predictions(estimator: Any, method: str, X: Any, dtype: Any, columns: Any = None) -> Any:
    """Return method(X) of an estimator as a collection with the chunks of X.

    Parameters
    ----------
    columns : sequence, optional
        The predictions have these columns; None: one value per row.
    """
    import dask

    # A task of its own, so that each worker gets the model once.
    model = dask.delayed(estimator, pure=False)
    if is_frame(X):
        import pandas

        empty = np.empty(0, dtype) if columns is None else np.empty((0, len(columns)), dtype)
        meta = pandas.Series(empty) if columns is None else pandas.DataFrame(empty, columns=columns)
        function = partial(_of_frame, method=method, kind=dtype, columns=columns)
        return X.map_partitions(function, estimator=model, meta=meta)
    num_columns = 0 if columns is None else len(columns)
    shape: dict[str, Any] = {"drop_axis": 1}
    if columns is not None:
        shape = {"chunks": (X.chunks[0], (num_columns,))}
    return X.map_blocks(
        partial(_of_rows, method=method, kind=dtype, num_columns=num_columns),
        estimator=model,
        dtype=dtype,
        meta=np.empty((0,) * (2 if num_columns else 1), dtype),
        **shape,
    )
