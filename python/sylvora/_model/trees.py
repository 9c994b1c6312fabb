"""Trees as arrays, and what they say about the columns."""

from __future__ import annotations

import operator
from dataclasses import dataclass
from typing import TYPE_CHECKING

import numpy as np

from .. import _core

if TYPE_CHECKING:
    from numpy.typing import NDArray

    from .model import Model

# Values of children that differ relatively by less are the same but for rounding.
_ROUNDING = 1e-12
_NODE = np.dtype(
    [
        ("threshold", np.float64),
        ("output", np.float64),
        ("column", np.int32),
        ("left", np.int32),
        ("right", np.int32),
        ("cover", np.int32),
    ]
)


@dataclass(frozen=True)
class Tree:
    """One tree of a model; see `Model.tree`. Node 0 is the root.

    A row goes to the left child if its value is at most the threshold. A missing value is
    -2147483648.

    Attributes
    ----------
    threshold, output : ndarray of float64, shape (n_nodes,)
        The threshold of a split, and the value of a node before it is multiplied by `shrink`: the
        number of the class in a classification.
    column, left, right : ndarray of int32, shape (n_nodes,)
        The column of a split and its children; -1 for a leaf.
    cover : ndarray of int32, shape (n_nodes,)
        The number of training rows that reach the node, -1 if it is not known.
    group : int
        The group of the tree, from 0.
    shrink : float
        What the values are multiplied by in scores.
    """

    threshold: NDArray[np.float64]
    output: NDArray[np.float64]
    column: NDArray[np.int32]
    left: NDArray[np.int32]
    right: NDArray[np.int32]
    cover: NDArray[np.int32]
    group: int
    shrink: float


def tree_of(model: Model, index: int) -> Tree:
    index = operator.index(index)
    if not 0 <= index < model.num_trees:
        raise IndexError(f"There is no tree {index}: the model has {model.num_trees}")
    data, group, shrink = _core.Model.tree(model, index)
    nodes = np.frombuffer(data, _NODE)
    fields = {name: np.ascontiguousarray(nodes[name]) for name in _NODE.names or ()}
    return Tree(**fields, group=group, shrink=shrink)


def importance_of(model: Model, kind: str) -> NDArray[np.float64]:
    if kind not in ("gain", "split", "cover"):
        raise ValueError(f"kind must be 'gain', 'split' or 'cover', got {kind!r}")
    if kind == "gain" and model.num_classes > 0:
        raise ValueError("A classification has no gain: choose 'split' or 'cover'")
    total = np.zeros(model.num_columns)
    for tree in model.trees():
        splits = np.flatnonzero(tree.column >= 0)
        if kind != "split" and len(splits) > 0 and tree.cover[0] < 0:
            raise ValueError(
                f"{kind!r} needs row counts, which the model file does not have: save it with "
                "description=True from this package, or choose 'split'"
            )
        np.add.at(total, tree.column[splits], _weights(tree, splits, kind))
    return total


def _weights(tree: Tree, splits: NDArray[np.intp], kind: str) -> NDArray[np.float64]:
    if kind == "split":
        return np.ones(len(splits))
    if kind == "cover":
        return tree.cover[splits].astype(np.float64)
    value = tree.output * tree.shrink
    left, right = tree.left[splits], tree.right[splits]
    difference = value[left] - value[right]
    size = np.maximum(np.abs(value[left]), np.abs(value[right]))
    difference[np.abs(difference) <= _ROUNDING * size] = 0.0
    covers = tree.cover.astype(np.float64)
    gain: NDArray[np.float64] = covers[left] * covers[right] / covers[splits] * difference**2
    return gain
