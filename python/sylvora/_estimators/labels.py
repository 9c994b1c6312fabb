"""Class labels of any kind to codes."""

from __future__ import annotations

from collections.abc import Iterable
from typing import Any, Optional

import numpy as np
from sklearn.utils.multiclass import check_classification_targets

from .base import label_column
from .._training.fit import EvaluationData
from .._data.names import checked_text
from .._data.numbers import Array


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
        If the labels are no classes or one is missing, or y has another shape.
    """
    labels = _labels_of(y, num_rows, "y")
    check_classification_targets(labels)
    classes, codes = np.unique(labels, return_inverse=True)
    return classes, codes


def _is_missing(label: Any) -> bool:
    """Whether a label is None, or not equal to itself: NaN, NaT, NA."""
    try:
        return label is None or not bool(label == label)
    except TypeError:  # pandas.NA has no truth value
        return True


def _labels_of(y: Any, num_rows: int, argument: str) -> Array:
    labels = label_column(y, num_rows, argument)
    if labels.dtype.kind != "O":
        return labels
    for row, label in enumerate(labels):
        if _is_missing(label):
            raise ValueError(f"{argument}: the label of row {row} is missing ({label!r})")
    # Numbers that came as objects, such as those of nullable columns.
    numbers = np.asarray(labels.tolist())
    return numbers if numbers.dtype.kind in "biuf" else labels


def kept_classes(classes: Array, codes: Array, rows: Optional[Array]) -> tuple[Array, Array]:
    """Return the same for some of the rows; None: all."""
    if rows is None:
        return classes, codes
    kept, codes = np.unique(codes[rows], return_inverse=True)
    return classes[kept], codes


def class_names(classes: Iterable[Any]) -> list[str]:
    """Return the classes as texts for the description of a model.

    Raises
    ------
    ValueError
        If a description cannot hold a text.
    """
    return [checked_text(str(label), "y: the class") for label in classes]


def codes_of(classes: Array, y: Any, num_rows: int, *, argument: str) -> Array:
    """Return the class of each label as an index into the sorted `classes`, as a float64.

    Raises
    ------
    ValueError
        If a label is not among the classes; `argument` names y in the text.
    """
    labels = _labels_of(y, num_rows, argument)
    if (labels.dtype.kind in "US") != (classes.dtype.kind in "US"):
        raise ValueError(
            f"{argument} has labels of the type {labels.dtype}, those of the training rows have "
            f"{classes.dtype}"
        )
    codes = np.searchsorted(classes, labels)
    codes[codes == len(classes)] = 0
    unknown = np.flatnonzero(classes[codes] != labels)
    if unknown.size:
        row = unknown[0]
        raise ValueError(
            f"{argument} has the class {labels[row]!r} in row {row}, which no training row has"
        )
    return codes.astype(np.float64)


def check_all_classes(evaluation: Iterable[EvaluationData], classes: Array) -> None:
    """Check that each set has rows of all classes, which the metric "auc" needs.

    Raises
    ------
    ValueError
        If one has not.
    """
    for data in evaluation:
        absent = np.setdiff1d(np.arange(len(classes)), data.labels.astype(np.intp))
        if absent.size:
            raise ValueError(
                f"eval_set[{data.name!r}] has no row of the class {classes[absent[0]]!r}, which the"
                ' metric "auc" needs: add some, or choose other metrics with eval_metric'
            )
