"""The picture of a tree of `sylvora.plot`."""

from __future__ import annotations

from collections.abc import Iterator, Sequence
from typing import TYPE_CHECKING, Any, Optional

from . import pictures as _pictures

if TYPE_CHECKING:
    from graphviz import Digraph

# What the library reads for a missing value.
_MISSING = -2147483648.0
# Colours of outputs below, at and above the root's; black text is readable on all of them.
_BELOW, _EQUAL, _ABOVE = (0x7F, 0xB8, 0xDE), (0xFA, 0xFA, 0xFA), (0xF2, 0xA9, 0x5C)
_CLASSES = ("#A6CEE6", "#F5B98F", "#8FD3BF", "#E9C4D8", "#F3D08A", "#CFCFCF", "#F4EC93")
_GRAPH = {
    "fontname": "Helvetica",
    "fontsize": "11",
    "fontcolor": _pictures.TEXT,
    "labelloc": "b",
    "ordering": "out",
    "nodesep": "0.2",
    "ranksep": "0.35",
}
_NODES = {
    "shape": "box",
    "style": "filled,rounded",
    "fontname": "Helvetica",
    "fontsize": "11",
    "color": _pictures.FRAME,
    "penwidth": "0.6",
    "margin": "0.1,0.05",
}
_EDGES = {
    "fontname": "Helvetica",
    "fontsize": "9",
    "fontcolor": _pictures.TEXT,
    "color": _pictures.FRAME,
    "penwidth": "0.8",
    "arrowsize": "0.6",
}


def tree(
    model: Any,
    index: int = 0,
    *,
    max_depth: Optional[int] = None,
    precision: int = 4,
    feature_names: Optional[Sequence[str]] = None,
) -> Digraph:
    """Draw a tree as a graph. Notebooks show it as it is.

    An inner node has its condition, the rows of the training that reached it, if the model knows
    them, and its output; a leaf has its output and what it adds to the score. The colour says
    whether an output is below (blue) or above (orange) that of the root; in a classification it is
    that of the class.

    Parameters
    ----------
    model : Model or fitted estimator
    index : int
        Number of the tree, from 0 over all rounds; -1 is the last one. If the loss has a start
        value, tree 0 is that value alone.
    max_depth : int, optional
        What is below this depth is cut off; the root has depth 0. In the place of each cut stands
        the number of nodes, or the leaf if it is a single one.
    precision : int
        Significant digits of numbers. Digits before the point are never cut.
    feature_names : sequence of str, optional
        Names of all columns instead of those of the model.

    Returns
    -------
    graphviz.Digraph
        ``.render("tree", format="pdf")`` writes a file; that needs the program dot of Graphviz.

    Raises
    ------
    ValueError
        If the model has no such tree, or one model for each class.
    ImportError
        Without the package graphviz.

    Examples
    --------
    >>> import numpy
    >>> import sylvora
    >>> X = numpy.arange(40.0).reshape(20, 2)
    >>> model = sylvora.train({"n_estimators": 5}, X, X[:, 0], feature_names=["age", "size"])
    >>> "age ≤ " in tree(model, 4).source or "size ≤ " in tree(model, 4).source
    True
    """
    graphviz = _pictures.require("graphviz", "graphviz")
    drawing = _Drawing(model, index, precision, feature_names)
    if max_depth is not None and max_depth < 0:
        raise ValueError(f"max_depth must be at least 0, or None, got {max_depth}")
    graph = graphviz.Digraph(
        graph_attr={**_GRAPH, "label": graphviz.escape("\n" + drawing.caption())},
        node_attr=_NODES,
        edge_attr=_EDGES,
    )
    _add_nodes(graph, drawing, max_depth)
    return graph


def _add_nodes(graph: Digraph, drawing: _Drawing, max_depth: Optional[int]) -> None:
    from graphviz import escape

    for node, parent, depth in drawing.nodes(max_depth):
        if max_depth is not None and depth > max_depth and drawing.splits(node):
            graph.node(str(node), drawing.cut_text(node), style="dashed,rounded")
        else:
            text, tip = (escape(each) for each in drawing.text(node))
            graph.node(str(node), text, fillcolor=drawing.colour(node), tooltip=tip)
        if parent >= 0:
            left = drawing.tree.left[parent] == node
            graph.edge(str(parent), str(node), label=" yes" if left else " no")


class _Drawing:
    """What is written in the nodes of a tree."""

    def __init__(
        self, source: Any, index: int, precision: int, feature_names: Optional[Sequence[str]]
    ) -> None:
        model = _pictures.one_model(source)
        if not hasattr(model, "tree"):
            raise ValueError(f"A {type(model).__name__} has no trees: pass a Model")
        count = int(model.n_trees)
        if not -count <= index < count:
            raise ValueError(f"There is no tree {index}: the model has {count}")
        if precision < 1:
            raise ValueError(f"precision must be at least 1, got {precision}")
        self._index = index % count
        self._model = model
        self._classes = getattr(source, "classes_", getattr(model, "classes", None))
        self._precision = precision
        self.tree = model.tree(self._index)
        self._names = _pictures.names_of(model, int(model.n_features), feature_names)
        outputs = [float(value) for value in self.tree.output]
        self._centre = outputs[0]
        self._reach = max(abs(value - self._centre) for value in outputs)

    def nodes(self, max_depth: Optional[int]) -> Iterator[tuple[int, int, int]]:
        """Node, parent (-1 for the root) and depth, parents first, up to one below `max_depth`."""
        waiting = [(0, -1, 0)]
        while waiting:
            node, parent, depth = waiting.pop()
            yield node, parent, depth
            if self.splits(node) and (max_depth is None or depth <= max_depth):
                for child in (self.tree.right[node], self.tree.left[node]):
                    waiting.append((int(child), node, depth + 1))

    def cut_text(self, node: int) -> str:
        """What stands for an inner node and all nodes below it."""
        waiting, count = [node], 0
        while waiting:
            top = waiting.pop()
            count += 1
            if self.splits(top):
                waiting += [int(self.tree.left[top]), int(self.tree.right[top])]
        return f"… {count} nodes"

    def text(self, node: int) -> tuple[str, str]:
        """The lines of a node, and the tip that appears under the pointer."""
        lines, tip = [], f"node {node}"
        if self.splits(node):
            name = self._names[int(self.tree.column[node])]
            threshold = float(self.tree.threshold[node])
            lines.append(f"{_pictures.short(name)} ≤ {self._number(threshold)}")
            tip = f"{name} ≤ {threshold!r}"
            if threshold < _MISSING:
                lines.append("missing: no")
        rows = int(self.tree.cover[node])
        if rows >= 0:
            lines.append(f"{rows:,} row" + "s" * (rows != 1))
        return "\n".join(lines + self._output_lines(node)), tip

    def colour(self, node: int) -> str:
        output = float(self.tree.output[node])
        if self._classifies():
            return _CLASSES[int(output) % len(_CLASSES)]
        share = (output - self._centre) / self._reach if self._reach > 0 else 0.0
        end = _ABOVE if share > 0 else _BELOW
        mixed = (round(a + abs(share) * (b - a)) for a, b in zip(_EQUAL, end))
        return "#" + "".join(f"{part:02X}" for part in mixed)

    def caption(self) -> str:
        count, groups = int(self._model.n_trees), int(self._model.n_groups)
        lines = [f"tree {self._index} of {count}, counted from 0"] if count > 1 else []
        if self.splits(0):
            lines += self._missing_lines()
        else:
            starts = self._index == 0 and getattr(self._model, "n_rounds", groups) < groups
            lines.append("the start value" if starts else "no splits")
        if self._classifies() and count > 1:
            lines.append("the class with most votes is predicted")
        elif count > groups:
            lines.append("the prediction is the mean over the trees")
        elif float(self.tree.shrink) != 1.0:
            lines.append(f"adds {self._number(float(self.tree.shrink))} × output to the score")
        return "\n".join(lines)

    def _missing_lines(self) -> list[str]:
        missing = getattr(self._model, "missing", float("nan"))
        return [] if missing is None else ["missing values go left"]

    def _output_lines(self, node: int) -> list[str]:
        output = float(self.tree.output[node])
        if self._classifies():
            if self._classes is None or not 0 <= int(output) < len(self._classes):
                return [f"class {self._number(output)}"]
            return [f"class {_pictures.short(str(self._classes[int(output)]))}"]
        lines = [f"output {self._number(output)}"]
        shrink = float(self.tree.shrink)
        if not self.splits(node) and shrink != 1.0:
            lines.append(f"adds {'+' * (output > 0)}{self._number(shrink * output)}")
        return lines

    def _classifies(self) -> bool:
        return int(self._model.n_classes) > 0

    def _number(self, value: float) -> str:
        return _pictures.number(value, self._precision)

    def splits(self, node: int) -> bool:
        """Whether it is an inner node."""
        return int(self.tree.left[node]) >= 0
