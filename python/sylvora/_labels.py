"""Class labels of any kind to codes."""

from __future__ import annotations

from typing import Any, Optional

import numpy as np
from sklearn.utils.multiclass import check_classification_targets

from ._base import Array, label_column


def find_classes(y: Any, num_rows: int) -> tuple[Array, Array]:
    """Return the classes, sorted, and the class of each row as an index into them.

    Parameters
    ----------
    y : array-like of shape (n_samples,)
        Labels that can be sorted.
    num_rows : int
        The length that y must have.

    Raises
    ------
    ValueError
        If the labels are no classes, or y has another shape.
    TypeError
        If labels of several kinds cannot be sorted.
    """
    labels = label_column(y, num_rows)
    check_classification_targets(labels)
    try:
        classes, codes = np.unique(labels, return_inverse=True)
    except TypeError as exception:
        raise TypeError(f"y has labels of kinds that cannot be sorted: {exception}") from None
    return classes, codes


def kept_classes(classes: Array, codes: Array, rows: Optional[Array]) -> tuple[Array, Array]:
    """Return the same for some of the rows; None: all."""
    if rows is None:
        return classes, codes
    kept, codes = np.unique(codes[rows], return_inverse=True)
    return classes[kept], codes


def codes_of(classes: Array, y: Any, num_rows: int, *, argument: str) -> Array:
    """Return the class of each label as an index into the sorted `classes`, as a float64.

    Raises
    ------
    ValueError
        If a label is not among the classes; `argument` names y in the text.
    """
    labels = label_column(y, num_rows, argument)
    codes = np.searchsorted(classes, labels)
    codes[codes == len(classes)] = 0
    unknown = np.flatnonzero(classes[codes] != labels)
    if unknown.size:
        row = unknown[0]
        raise ValueError(
            f"{argument} has the class {labels[row]!r} in row {row}, which no training row has"
        )
    return codes.astype(np.float64)
