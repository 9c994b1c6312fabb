"""Draws the time of a round: growth_plot.py RESULTS SVG. RESULTS is a file of bench/results, or one
with the same "rounds", "class" and "processor"."""

import json
import sys

import matplotlib

matplotlib.use("svg")
# pylint: disable=wrong-import-position
import matplotlib.pyplot as plt

# The same points give the same bytes.
plt.rcParams.update({"svg.hashsalt": "round-cost", "svg.fonttype": "none", "font.size": 9})
STYLES = {"sylvora": ("Sylvora", "tab:blue", "o"), "xgboost-hist": ("XGBoost hist", "tab:red", "s"),
          "lightgbm": ("LightGBM", "tab:green", "^"),
          "xgboost-exact": ("XGBoost exact", "tab:gray", "x")}


def panel(axes, points, along, across):
    """Draws milliseconds by `along`, "rows" or "columns", at the most frequent value of
    `across`."""
    values = [point[across] for point in points]
    fixed = max(set(values), key=lambda value: (values.count(value), value))
    for side, (title, colour, marker) in STYLES.items():
        for share, line in ((1.0, "-"), (0.6, "--")):
            curve = sorted((point[along], point["milliseconds"]) for point in points
                           if point[across] == fixed and point["side"] == side and
                           point["share"] == share)
            if curve:
                axes.plot(*zip(*curve), line, color=colour, marker=marker, markersize=4,
                          label=title if share == 1 else f"{title}, 60 % of both")
    axes.set(xscale="log", yscale="log", xlabel=along, ylabel="ms per round",
             title=f"{fixed:,} {across}")
    axes.grid(True, which="both", linewidth=0.3)


def main():
    results, svg = sys.argv[1:]
    with open(results, encoding="utf-8") as file:
        stored = json.load(file)
    threads = stored["rounds"][0]["threads"]
    figure, (left, right) = plt.subplots(1, 2, figsize=(9, 4.2), layout="constrained")
    panel(left, stored["rounds"], "rows", "columns")
    panel(right, stored["rounds"], "columns", "rows")
    left.legend(fontsize=7)
    figure.suptitle(f"{stored['class']} ({stored['processor']}), "
                    f"{threads} thread{'s' * (threads > 1)}")
    figure.savefig(svg, metadata={"Date": None})


if __name__ == "__main__":
    main()
