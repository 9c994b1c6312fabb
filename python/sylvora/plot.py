"""Pictures of models and trainings, with matplotlib and graphviz.

Every function but `tree` draws into the matplotlib axes `ax`, or into a new figure, and returns the
axes. Nothing is shown, and no global setting is changed: in a script call
``matplotlib.pyplot.show()`` or ``ax.figure.savefig("picture.png")``. matplotlib 3.5 or later.
"""

from __future__ import annotations

from collections.abc import Callable, Collection, Mapping, Sequence
from typing import TYPE_CHECKING, Any, Optional, Union

from ._plot import pictures as _pictures
from ._plot.calibration import calibration
from ._plot.importance import importance
from ._plot.tree import tree
from ._training.best import best_round as _best_round
from ._training.facts import is_larger_better as _is_larger_better

if TYPE_CHECKING:
    from matplotlib.axes import Axes

__all__ = ["calibration", "importance", "learning_curve", "staged_error", "tree"]


def learning_curve(
    model: Any,
    *,
    metrics: Optional[Sequence[str]] = None,
    larger_is_better: Collection[str] = (),
    ax: Any = None,
) -> Any:
    """Draw the metrics of all evaluated sets by round, and mark the best round.

    Parameters
    ----------
    model : Model, fitted estimator or mapping
        What was trained with an `eval_set`; or its `evals_result_`, a mapping from names of sets to
        mappings from metrics to values by round.
    metrics : sequence of str, optional
        The metrics to draw, in this order; without it all, one panel for each.
    larger_is_better : collection of str
        Names of metrics of your own whose larger values are better. The package's own metrics are
        known; of all others the smaller values are better.
    ax : matplotlib.axes.Axes or sequence of them, optional
        One for each metric.

    Returns
    -------
    matplotlib.axes.Axes or list of them
        A list if there are several metrics.

    Raises
    ------
    ValueError
        If no evaluation was recorded, a metric is unknown, or the number of axes is another one
        than that of the metrics.

    Notes
    -----
    The marked round is `best_iteration_`; its text says best only where that holds for the metric
    of the panel. For a mapping, and where a model has none, it is the best round of each metric on
    the last set.

    Examples
    --------
    >>> import matplotlib
    >>> matplotlib.use("Agg")
    >>> ax = learning_curve({"valid": {"rmse": [0.9, 0.7, 0.8]}})
    >>> ax.get_ylabel()
    'rmse (lower is better)'
    >>> ax.texts[0].get_text()
    'best round 2: 0.7'
    """
    result, best = _record(model)
    found = list(dict.fromkeys(metric for values in result.values() for metric in values))
    chosen = found if metrics is None else list(metrics)
    for metric in chosen:
        if metric not in found:
            raise ValueError(f"{metric!r} was not recorded; metrics are: " + ", ".join(found))
    panels = _panels(ax, len(chosen))
    for panel, metric in zip(panels, chosen):
        larger = metric in larger_is_better or _is_larger_better(metric)
        curves = {name: values[metric] for name, values in result.items() if metric in values}
        _draw_curves(panel, curves, best, larger)
        better = "higher" if larger else "lower"
        rounds = "rounds" if panel is panels[-1] or ax is not None else ""
        _pictures.label_axes(panel, rounds, f"{metric} ({better} is better)")
    _pictures.legend(panels[0])
    return panels if len(panels) > 1 else panels[0]


def _record(source: Any) -> tuple[Mapping[str, Mapping[str, Sequence[float]]], Optional[int]]:
    """What was evaluated, by set and metric, and the best round, if it is known."""
    if isinstance(source, Mapping):
        result, best = source, None
    else:
        _pictures.fitted(source)
        result = getattr(source, "evals_result_", None) or {}
        best = getattr(source, "best_iteration_", None)
    if isinstance(result, (list, tuple)):
        raise ValueError("There is a record for each class: pass one of the list evals_result_")
    if not any(len(values) for by_metric in result.values() for values in by_metric.values()):
        raise ValueError("No evaluation was recorded: pass eval_set when you train")
    return result, best if isinstance(best, int) else None


def _panels(ax: Any, count: int) -> list[Any]:
    if count < 1:
        raise ValueError("metrics is empty: pass None to draw all")
    if ax is None:
        return _pictures.new_panels(count, 0.6 + 1.9 * count)
    given = [ax] if hasattr(ax, "plot") else list(getattr(ax, "flat", ax))
    if len(given) != count:
        raise ValueError(f"ax must be {count} axes, one for each metric, got {len(given)}")
    return given


def _draw_curves(
    ax: Axes, curves: Mapping[str, Sequence[float]], best: Optional[int], larger: bool
) -> None:
    for i, (name, values) in enumerate(curves.items()):
        _pictures.curve(ax, values, name, i)
    _pictures.tidy(ax, "both")
    _pictures.show_rounds(ax, max(len(values) for values in curves.values()))
    bests = {name: _best_round(values, larger) or None for name, values in curves.items()}
    name = list(curves)[-1]
    marked = bests[name] if best is None else best
    if marked is None or marked > len(curves[name]):
        return
    # The deciding metric may be another one, and the deciding set need not be the last one.
    name = next((each for each in list(curves)[::-1] if bests[each] == marked), name)
    text = f"best round {marked}: " if bests[name] == marked else f"round {marked}: "
    text += f"{_pictures.shown(name)} " if len(curves) > 1 else ""
    _pictures.mark_round(ax, marked, text + _pictures.number(float(curves[name][marked - 1])))


def staged_error(
    model: Any,
    X: Any = None,
    y: Any = None,
    *,
    metric: Union[str, Callable[[Any, Any], float], None] = None,
    sets: Optional[Mapping[str, tuple[Any, Any]]] = None,
    ax: Optional[Axes] = None,
) -> Axes:
    """Draw the error of a fitted model by the number of rounds, on any data.

    Parameters
    ----------
    model : Model or fitted estimator
        The classifier's one-vs-rest models are taken together.
    X, y : data and labels, optional
        As for `Model.predict` and `fit`: n rows. They may be left out if there are `sets`.
    metric : {"rmse", "mae", "logloss", "error"} or callable, optional
        "error" is the share of wrong classes. A callable gets the n labels and the scores, of shape
        (n,), or (n, classes) for one-vs-rest; labels of classes are their positions in `classes_`.
        Without it: "logloss" for a loss with probabilities, "error" for other classifiers,
        otherwise "rmse".
    sets : mapping from names to pairs (X, y), optional
        Further data, a line for each.
    ax : matplotlib.axes.Axes, optional

    Returns
    -------
    matplotlib.axes.Axes

    Raises
    ------
    ValueError
        Without data; for an unknown metric, or one that the model's loss does not have.

    Examples
    --------
    >>> import matplotlib, numpy
    >>> matplotlib.use("Agg")
    >>> import sylvora
    >>> X = numpy.arange(40.0).reshape(20, 2)
    >>> model = sylvora.train({"n_estimators": 5}, X, X[:, 0])
    >>> ax = staged_error(model, X, X[:, 0])
    >>> ax.get_ylabel()
    'rmse (lower is better)'
    """
    from ._plot.errors import StagedScores

    data: dict[str, tuple[Any, Any]] = {} if X is None else {"X, y": (X, y)}
    data.update(sets or {})
    if not data:
        raise ValueError("There are no data: pass X and y, or sets")
    scores = StagedScores(model, metric)
    curves = {name: scores.errors(*pair) for name, pair in data.items()}
    ax = _pictures.new_axes(ax)
    _draw_curves(ax, curves, None, scores.larger_is_better)
    _pictures.label_axes(ax, "rounds", scores.label)
    if len(curves) > 1:
        _pictures.legend(ax)
    return ax


def __dir__() -> list[str]:
    return __all__
