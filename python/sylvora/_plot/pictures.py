"""Style and small helpers of the pictures in `sylvora.plot`."""

from __future__ import annotations

import importlib
import textwrap
from collections.abc import Mapping, Sequence
from typing import TYPE_CHECKING, Any, Optional

if TYPE_CHECKING:
    from matplotlib.axes import Axes

# The palette of Okabe and Ito, which readers with colour blindness can tell apart.
COLOURS = ("#0072B2", "#D55E00", "#009E73", "#CC79A7", "#E69F00", "#56B4E9", "#000000")
LINES = ("-", "--", "-.", ":")
TEXT = "#404040"
FRAME = "#808080"
GRID = "#E4E4E4"
LONGEST_NAME = 30


def require(module: str, package: str) -> Any:
    """Import a module that the package itself does not depend on."""
    try:
        return importlib.import_module(module)
    except ImportError as cause:
        raise ImportError(
            f"This picture needs the package {package}: pip install {package}"
        ) from cause


def colour(i: int) -> str:
    return COLOURS[i % len(COLOURS)]


def line_style(i: int) -> dict[str, Any]:
    """Lines differ in colour and, for prints in grey, in their dashes."""
    return {"color": colour(i), "linestyle": LINES[i % len(LINES)], "linewidth": 1.6}


def new_axes(ax: Optional[Axes], height: float = 0.0) -> Axes:
    """`ax`, or the axes of a new figure of the default size, at least `height` inches high."""
    if ax is not None:
        return ax
    return new_panels(1, height)[0]


def new_panels(count: int, height: float = 0.0) -> list[Axes]:
    """Panels one below the other, with a common x-axis, in a new figure."""
    pyplot = require("matplotlib.pyplot", "matplotlib")
    width, default_height = pyplot.rcParams["figure.figsize"]
    figure, axes = pyplot.subplots(
        count,
        sharex=True,
        squeeze=False,
        figsize=(width, max(default_height, height)),
        layout="constrained",
    )
    return list(axes[:, 0])


def tidy(ax: Axes, grid: str) -> None:
    """Thin frame, light grid along `grid`: "x", "y" or "both"."""
    for side, spine in ax.spines.items():
        spine.set_visible(side in ("left", "bottom"))
        spine.set_linewidth(0.6)
        spine.set_color(FRAME)
    ax.grid(False)
    ax.grid(True, axis=grid, color=GRID, linewidth=0.6)
    ax.set_axisbelow(True)
    ax.tick_params(length=3, width=0.6, color=FRAME, labelsize="small")


def show_rounds(ax: Axes, last: int) -> None:
    """The x-axis from round 1 to the last one."""
    margin = 0.5 if last < 2 else 0.02 * (last - 1)
    ax.set_xlim(1 - margin, last + margin)
    ticker = require("matplotlib.ticker", "matplotlib")
    ax.xaxis.set_major_locator(ticker.MaxNLocator(8, steps=[1, 2, 5, 10], integer=True))


def single_points(values: Any) -> list[int]:
    """Positions of the finite values without a finite neighbour: a line does not show them."""
    numpy = require("numpy", "numpy")
    finite = numpy.isfinite(numpy.concatenate(([numpy.nan], values, [numpy.nan])))
    alone = finite[1:-1] & ~finite[:-2] & ~finite[2:]
    return [int(i) for i in numpy.flatnonzero(alone)]


def curve(ax: Axes, values: Any, name: str, i: int) -> None:
    """Draw values by round, from round 1; NaN leaves a gap."""
    alone = single_points(values)
    marker = {"marker": "o", "markersize": 3.5, "markevery": alone} if alone else {}
    label = shown(name) + ("" if any(value == value for value in values) else " (no values)")
    ax.plot(range(1, len(values) + 1), values, label=label, **marker, **line_style(i))


def label_axes(ax: Axes, x: str, y: str) -> None:
    """Label the axes, in several lines where they are shorter than a label."""
    box = ax.get_window_extent()
    for text, label, pixels in ((x, ax.xaxis.label, box.width), (y, ax.yaxis.label, box.height)):
        letters = max(12, int(pixels / (0.56 * label.get_size() * ax.figure.dpi / 72)))
        lines = [text] if len(text) <= letters else text.replace(" (", "\n(").split("\n")
        label.set_text("\n".join(textwrap.fill(line, letters) for line in lines))


def mark_round(ax: Axes, best: int, text: str) -> None:
    """A vertical line at round `best`, with its text above the axes."""
    ax.axvline(best, color=FRAME, linewidth=0.9, linestyle=(0, (2, 2)), zorder=1.5)
    first, last = ax.get_xlim()
    place = (best - first) / (last - first)
    ax.annotate(
        text,
        (best, 1.0),
        xytext=(0, 3),
        xycoords=("data", "axes fraction"),
        textcoords="offset points",
        ha="left" if place < 0.35 else "right" if place > 0.65 else "center",
        va="bottom",
        fontsize="small",
        color=TEXT,
    )


def legend(ax: Axes) -> None:
    ax.legend(frameon=True, framealpha=0.85, edgecolor="none", fontsize="small", loc="best")


def short(name: str, longest: int = LONGEST_NAME) -> str:
    """The name in one line, without its middle if it is long."""
    line = " ".join(name.split())
    if len(line) <= longest:
        return line
    tail = (longest - 1) // 2
    return line[: longest - 1 - tail] + "…" + line[-tail:]


def shown(name: str) -> str:
    """The name as matplotlib shall show it: a dollar sign does not begin a formula."""
    return short(str(name)).replace("$", r"\$")


def number(value: float, precision: int = 4) -> str:
    """The value with `precision` significant digits, but with all digits before the point, and
    with one behind it if the value is not whole: thresholds such as 2012.5 stay right."""
    if value == 0 or not 1e-4 <= abs(value) < 1e9:
        return f"{value:.{precision}g}"
    whole = len(str(int(abs(value)))) if abs(value) >= 1 else 0
    if value != int(value):
        whole += 1
    return f"{value:.{max(precision, whole)}g}"


def fitted(source: Any, attribute: str = "model_") -> Any:
    """The attribute of an estimator, if it is fitted; other objects as they are."""
    if hasattr(source, attribute):
        return getattr(source, attribute)
    if hasattr(source, "fit"):
        raise ValueError(f"This {type(source).__name__} is not fitted yet: call fit first")
    return source


def one_model(source: Any) -> Any:
    """The model of `source`; a ValueError if it has one for each class."""
    model = fitted(source)
    if isinstance(model, (list, tuple)):
        raise ValueError(
            f"This {type(source).__name__} has a model for each of {len(model)} classes:"
            " pass one of its list model_"
        )
    return model


def names_of(model: Any, count: int, given: Optional[Sequence[str]] = None) -> list[str]:
    """Names of the columns: those given, those of the model, or "column 0", ..."""
    names = given if given is not None else getattr(model, "feature_names", None)
    if names is None:
        return [f"column {i}" for i in range(count)]
    if len(names) != count:
        raise ValueError(f"feature_names must have {count} names, got {len(names)}")
    return [str(name) for name in names]


def by_name(source: Any) -> Mapping[str, Any]:
    """Several models by name; one model gets an empty name."""
    if not isinstance(source, Mapping):
        return {"": source}
    if not source:
        raise ValueError("The mapping of models is empty")
    return source
