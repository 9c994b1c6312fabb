"""The reliability curve of `sylvora.plot`."""

from __future__ import annotations

from collections.abc import Collection, Iterable
from dataclasses import dataclass
from typing import TYPE_CHECKING, Any, Optional

from . import pictures as _pictures

if TYPE_CHECKING:
    from matplotlib.axes import Axes


def calibration(
    model: Any,
    X: Any = None,
    y: Any = None,
    *,
    bins: int = 10,
    strategy: str = "quantile",
    ax: Optional[Axes] = None,
) -> Axes:
    """Draw how often the larger of two classes occurs, against its predicted probability.

    A strip below shows how many rows have which probability. With one model, bars show the 95 %
    interval of each share (Wilson's). The legend has the expected calibration error (ECE): the mean
    distance of the points from the diagonal, weighted by their rows.

    Parameters
    ----------
    model : fitted classifier, Model, array of n probabilities, or mapping from names to them
    X : data of n rows
        Not needed for probabilities.
    y : array of n labels
        Of two classes; those above 0, or the classifier's second class, count as the larger one.
    bins : int
        Number of groups of rows, each of which gives a point.
    strategy : {"quantile", "uniform"}
        Bins with equal numbers of rows, or of equal width.
    ax : matplotlib.axes.Axes, optional

    Returns
    -------
    matplotlib.axes.Axes

    Raises
    ------
    ValueError
        For more than two classes, values that are no probabilities, or a model without them.

    Examples
    --------
    >>> import matplotlib
    >>> matplotlib.use("Agg")
    >>> ax = calibration([0.1, 0.2, 0.8, 0.9], y=[0, 0, 1, 1], bins=2)
    >>> ax.get_legend().get_texts()[1].get_text()
    'ECE 0.150'
    """
    if bins < 1:
        raise ValueError(f"bins must be at least 1, got {bins}")
    if strategy not in ("quantile", "uniform"):
        raise ValueError(f"strategy must be 'quantile' or 'uniform', got {strategy!r}")
    models = _pictures.by_name(model)
    curves = {name: _curve(one, X, y, bins, strategy) for name, one in models.items()}
    ax = _pictures.new_axes(ax)
    end = _limit(curves.values())
    ax.plot([0, end], [0, end], "--", color=_pictures.FRAME, linewidth=0.9, label="perfect")
    for i, (name, curve) in enumerate(curves.items()):
        _draw(ax, curve, f"{_pictures.shown(name)}: " * bool(name), i)
        if len(curves) == 1:
            low, high = _wilson(curve)
            ax.vlines(curve.predicted, low, high, color=_pictures.colour(i), linewidth=1)
    _draw_rows(ax, curves.values(), end)
    _pictures.tidy(ax, "both")
    _pictures.label_axes(ax, "predicted probability", "observed share")
    _pictures.legend(ax)
    return ax


@dataclass
class _Curve:
    """Points of a curve, and all probabilities."""

    predicted: Any
    observed: Any
    rows: Any
    probabilities: Any

    def error(self) -> float:
        distance = abs(self.predicted - self.observed)
        return float((distance * self.rows).sum() / self.rows.sum())


def _curve(model: Any, X: Any, y: Any, bins: int, strategy: str) -> _Curve:
    import numpy

    probabilities = _probabilities(model, X)
    positive = _positive(model, y)
    if len(probabilities) != len(positive):
        raise ValueError(f"y has {len(positive)} labels for {len(probabilities)} probabilities")
    if not ((probabilities >= 0) & (probabilities <= 1)).all():
        raise ValueError("Probabilities must be numbers from 0 to 1")
    edges = numpy.linspace(0, 1, bins + 1)
    if strategy == "quantile":
        edges = numpy.unique(numpy.quantile(probabilities, edges))
    places = numpy.searchsorted(edges[1:-1], probabilities, side="right")
    rows = numpy.bincount(places, minlength=len(edges))
    used = rows > 0
    predicted = numpy.bincount(places, probabilities, minlength=len(edges))[used] / rows[used]
    observed = numpy.bincount(places, positive, minlength=len(edges))[used] / rows[used]
    return _Curve(predicted, observed, rows[used], probabilities)


def _probabilities(model: Any, X: Any) -> Any:
    import numpy

    if hasattr(model, "fit") or hasattr(model, "predict"):
        if not hasattr(model, "predict_proba"):
            raise ValueError(f"This {type(model).__name__} has no probabilities")
        if X is None:
            raise ValueError("X is needed to ask the model for probabilities")
        probabilities = numpy.asarray(model.predict_proba(X))
        if probabilities.ndim != 2 or probabilities.shape[1] != 2:
            raise ValueError(
                "The model has more than two classes: pass the probabilities of one of them, as in"
                " calibration(model.predict_proba(X)[:, 0], y=(y == model.classes_[0]))"
            )
        return probabilities[:, 1]
    return numpy.asarray(model, dtype=numpy.float64).ravel()


def _positive(model: Any, y: Any) -> Any:
    import numpy

    if y is None:
        raise ValueError("y is needed: the labels of the rows")
    labels = numpy.asarray(y).ravel()
    if len(labels) == 0:
        raise ValueError("y has no labels")
    classes = getattr(model, "classes_", None)
    if classes is not None:
        return labels == classes[-1]
    if len(numpy.unique(labels)) > 2:
        raise ValueError("y has more than two labels: pass y == class for one of the classes")
    return labels > 0


def _wilson(curve: _Curve) -> tuple[Any, Any]:
    """The 95 % interval of each share (Wilson 1927)."""
    import numpy

    z = 1.96
    n = curve.rows
    centre = (curve.observed + z * z / (2 * n)) / (1 + z * z / n)
    spread = curve.observed * (1 - curve.observed) / n + z * z / (4 * n * n)
    half = z * numpy.sqrt(spread) / (1 + z * z / n)
    return centre - half, centre + half


def _limit(curves: Collection[_Curve]) -> float:
    """The end of both axes: 1, or less if all probabilities and shares are small."""
    largest = max(float(max(c.probabilities.max(), c.observed.max())) for c in curves)
    if len(curves) == 1:
        largest = max(largest, *(float(_wilson(c)[1].max()) for c in curves))
    return 1.0 if largest > 0.5 else 1.05 * largest


def _draw(ax: Axes, curve: _Curve, name: str, i: int) -> None:
    label = f"{name}ECE {curve.error():.3f}"
    style = _pictures.line_style(i)
    ax.plot(curve.predicted, curve.observed, marker="o", markersize=4, label=label, **style)


def _draw_rows(ax: Axes, curves: Iterable[_Curve], end: float) -> None:
    """A strip below 0 that shows how the probabilities are distributed."""
    import numpy

    counts = [numpy.histogram(c.probabilities, 40, (0, end))[0] for c in curves]
    highest = max(int(count.max()) for count in counts)
    low, high = -0.3 * end, -0.1 * end
    for i, count in enumerate(counts):
        heights = low + (high - low) * count / highest
        edges = numpy.linspace(0, end, 41)
        ax.stairs(heights, edges, baseline=low, color=_pictures.colour(i), linewidth=1.0)
    ticker = _pictures.require("matplotlib.ticker", "matplotlib")
    ticks = [t for t in ticker.MaxNLocator(5).tick_values(0, end) if t <= end * 1.001]
    texts = [f"{tick:g}" for tick in ticks]
    ax.set_xticks(ticks, texts)
    ax.set_yticks([high, *ticks], [f"{highest:,} rows", *texts])
    ax.set_xlim(-0.02 * end, 1.02 * end)
    ax.set_ylim(low, 1.02 * end)
