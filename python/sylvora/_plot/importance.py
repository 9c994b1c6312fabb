"""The importance of features, for `sylvora.plot`."""

from __future__ import annotations

from collections.abc import Mapping, Sequence
from math import fsum, isfinite
from os.path import commonprefix
from typing import TYPE_CHECKING, Any, Optional

from . import pictures as _pictures

if TYPE_CHECKING:
    from matplotlib.axes import Axes

_KINDS = {
    "gain": "gain: total improvement by the splits",
    "split": "split: number of nodes that split on the feature",
    "cover": "cover: training rows that reach its splits",
}


def importance(
    model: Any,
    *,
    kind: Optional[str] = None,
    top: Optional[int] = 20,
    normalise: bool = True,
    ax: Optional[Axes] = None,
) -> Axes:
    """Draw the importance of the features as bars, the largest on top.

    Parameters
    ----------
    model : Model, fitted estimator, mapping or array
        The values of an estimator with a model for each class are added. A mapping from names to
        values, or an array of values, is drawn as it is; `kind` has no meaning then.
    kind : {"gain", "split", "cover"}, optional
        See `Model.feature_importance`. Without it "gain", but "cover" for a classification by
        votes, which has no gain; the label of the axis says which.
    top : int or None
        Number of features to draw; None draws all. The others are summed up in one line.
    normalise : bool
        Draw shares of the sum instead of the values themselves.
    ax : matplotlib.axes.Axes, optional

    Returns
    -------
    matplotlib.axes.Axes

    Raises
    ------
    ValueError
        For an unknown `kind`; for a model without the row counts of its nodes, which has the kind
        "split" only; for values that are not finite.

    Examples
    --------
    >>> import matplotlib
    >>> matplotlib.use("Agg")
    >>> ax = importance({"age": 3.0, "income": 1.0})
    >>> [label.get_text() for label in ax.get_yticklabels()]
    ['age', 'income']
    """
    names, values, label = _importance_values(model, kind, normalise)
    if top is not None and top < 1:
        raise ValueError(f"top must be at least 1, or None, got {top}")
    order = sorted(range(len(values)), key=lambda i: -values[i])
    shown = order[:top]
    rest = [values[i] for i in order[len(shown) :]]
    scale = 100.0 if normalise else 1.0
    texts = [_value_text(values[i], normalise) for i in shown]
    labels = _distinct(names, shown)
    if rest:
        labels.append(f"{len(rest)} further feature" + "s" * (len(rest) > 1))
        texts.append(_value_text(sum(rest), normalise) + " together" * (len(rest) > 1))
    lengths = [values[i] * scale for i in shown] + [0.0] * bool(rest)
    ax = _pictures.new_axes(ax, 0.75 + 0.19 * len(lengths))
    _draw_bars(ax, lengths, labels, texts)
    if rest:
        ax.get_yticklabels()[-1].set_color(_pictures.FRAME)
    _pictures.label_axes(ax, label + (", share in %" if normalise else ""), "")
    # Long names leave little room below the bars; the label may begin below the names.
    ax.set_xlabel(ax.get_xlabel(), loc="right")
    return ax


def _importance_values(
    source: Any, kind: Optional[str], normalise: bool
) -> tuple[list[str], list[float], str]:
    """Names, values and the label of the axis."""
    model = _pictures.fitted(source)
    label = "importance"
    if isinstance(model, Mapping):
        names, values = [str(name) for name in model], _floats(model.values())
    elif hasattr(model, "feature_importance") or hasattr(source, "model_"):
        parts = model if isinstance(model, list) else [model]
        if kind is None:
            kind = "cover" if parts[0].n_classes > 0 else "gain"
        values = [sum(cells) for cells in zip(*(_of_kind(part, kind) for part in parts))]
        names = _pictures.names_of(parts[0], len(values))
        label = _KINDS[kind]
    else:
        values = _floats(model)
        names = _pictures.names_of(None, len(values))
    if not values or not all(isfinite(value) for value in values):
        raise ValueError("Importances must be finite numbers, at least one")
    return names, _shares(values) if normalise else values, label


def _of_kind(model: Any, kind: str) -> list[float]:
    if kind not in _KINDS:
        raise ValueError(f"kind must be 'gain', 'split' or 'cover', got {kind!r}")
    try:
        return _floats(model.feature_importance(kind))
    except ValueError as cause:
        if "split" in str(cause):
            raise
        raise ValueError(f"{cause}; kind='split' is known for every model") from cause


def _floats(values: Any) -> list[float]:
    return [float(value) for value in values]


def _shares(values: list[float]) -> list[float]:
    whole = fsum(values)
    return [value / whole for value in values] if whole > 0 else values


def _value_text(value: float, share: bool) -> str:
    if not share:
        return _pictures.number(value)
    return f"{100 * value:.1f} %" if abs(value) >= 0.0005 or value == 0 else "< 0.1 %"


def _distinct(names: Sequence[str], chosen: Sequence[int]) -> list[str]:
    """Short names; those that would look alike show where they differ, or the column's number."""
    labels = [_pictures.shown(names[i]) for i in chosen]
    groups: dict[str, list[int]] = {}
    for place, label in enumerate(labels):
        groups.setdefault(label, []).append(place)
    for places in groups.values():
        if len(places) > 1:
            windows = _differences([names[chosen[place]] for place in places])
            for place, window in zip(places, windows):
                labels[place] = window
    return [
        f"{label} [{i}]" if labels.count(label) > 1 else label for i, label in zip(chosen, labels)
    ]


def _differences(names: Sequence[str]) -> list[str]:
    """The part of each name around what the names do not have in common."""
    front = len(commonprefix(list(names)))
    back = len(commonprefix([name[front:][::-1] for name in names]))
    texts = []
    for name in names:
        spare = max(0, _pictures.LONGEST_NAME - 2 - (len(name) - front - back))
        begin = max(0, front - spare // 2)
        end = min(len(name), begin + _pictures.LONGEST_NAME - 2)
        text = "…" * (begin > 0) + name[begin:end] + "…" * (end < len(name))
        texts.append(_pictures.shown(text))
    return texts


def _draw_bars(
    ax: Axes, lengths: Sequence[float], labels: Sequence[str], texts: Sequence[str]
) -> None:
    places = range(len(lengths))
    ax.barh(places, lengths, color=_pictures.colour(0), height=0.72)
    _pictures.tidy(ax, "x")
    inches = ax.get_window_extent().height / ax.figure.dpi
    size = max(4.0, min(8.5, 72 * inches / max(1, len(lengths)) * 0.8))
    ax.set_yticks(places, labels, fontsize=size)
    room = max(0.0, (6 - len(lengths)) / 2)  # a few bars are not thicker than many
    ax.set_ylim(len(lengths) - 0.4 + room, -0.6 - room)
    ax.tick_params(axis="y", length=0)
    for place, length, text in zip(places, lengths, texts):
        ax.annotate(
            text,
            (length, place),
            xytext=(3 if length >= 0 else -3, 0),
            textcoords="offset points",
            ha="left" if length >= 0 else "right",
            va="center",
            fontsize=size,
            color=_pictures.TEXT,
        )
    ax.margins(x=0.16)
    if min(lengths, default=0.0) >= 0:
        ax.set_xlim(left=0)
    if not any(lengths):
        ax.set_xlim(0, 1)
