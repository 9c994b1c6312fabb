"""Formats the results as Markdown: tables, and docs/quality.md as a whole."""

import statistics

import reasons
from cases import (CASES, DEPTH, FOREST_ROWS, HUBER_DELTA, OURS, RATE, ROUNDS, SIDES, TREE_DEPTH)
from sides import NUM_BOUND
from verdicts import BETTER, EQUAL, WORSE

TEXT = """\
# Quality

How well the models of Sylvora predict rows that they have not seen, beside XGBoost {xgboost} and
scikit-learn {sklearn} of Debian 12, at equal depth, rounds and rate. The whole page is written by

    scripts/quality --write

which builds the checked-out sources, installs missing peers and takes a few minutes. Without
`--write` it prints the tables only; `--set NAME` takes one data set. It is not part of CI.

## Method

- **Data**: the bundled sets ([data/README.md](../data/README.md)), both files together.
  `letter-halves` is `letter` as a two-class set, A to M against N to Z. Each set is divided {seeds}
  times at random, 80 % for training and 20 % for testing; the rows of a query, and rows with equal
  features, stay together. All sides get the same files; ids that are absent are zeros.
- **Boosting**: {rounds} rounds of rate {rate}, depth {depth}, at most {leaves} leaves, all rows and
  columns in each tree, no limit on the rows of a leaf (`numBound` {bound}). Labels of two classes
  are -1 and 1. δ of `Huber` is {delta}.
- **Forests**: {rounds} trees of unlimited depth. Each tree of Sylvora draws {forest_rows:.1%} of the
  rows without replacement, as many as a bootstrap sample of scikit-learn has distinct rows. Each
  node draws a third of the columns of `bike`, and about the square root of their number elsewhere.
  **Single trees** (`CART`): depth {tree_depth}, at most {tree_leaves} leaves.
- **Metrics** are those of the test rows, computed from the scores of each side by the same code,
  with the definitions of the command. Log loss uses the link of each loss
  ([losses.md](losses.md)). Coverage is the share of the labels that are not above their scores.
- **Tables** give the mean over the {seeds} divisions ± the standard deviation. The verdict compares
  Sylvora with the best peer, the one with the best mean: *worse* or *better* if the mean of the
  differences, division by division, is larger than their standard deviation, otherwise *equal*.

## The settings of the peers

- **XGBoost plain** has no regularisation, as Sylvora: `reg_lambda` 0, `min_child_weight` 0, and our
  start value. **XGBoost default** has its own regularisation, `reg_lambda` 1 and `min_child_weight`
  1, and its own start value. Both have `tree_method` exact. `reg:absoluteerror` has `hist` with
  more bins than there are values, since the leaves of that loss are not set with `exact`.
  `reg:pseudohubererror`, with `huber_slope` {delta}, is a smooth loss like `Huber`. `rank:pairwise`
  draws one partner per row and round, Sylvora uses all pairs. XGBoost {xgboost} has no quantile
  loss.
- **scikit-learn**: `GradientBoosting*` with `criterion="squared_error"`, the criterion of our
  splits. Its `huber` estimates δ in each round, as the 0.9-quantile of the residuals.
- `Logistic` and `HingeSquare` are in no peer. They are compared with the peers' logistic loss,
  `Exponential` with the exponential loss of scikit-learn and the logistic loss of XGBoost.

## Summary

By data set and loss, on the metric that the loss is made for:

{summary}
## What is worse

{worse}

## All metrics
"""

SECTIONS = (("Numbers", "regression"), ("Two classes", "two"), ("26 classes", "classes"),
            ("Ranking", "ranking"))


def number(value):
    """Four significant digits; a value beyond a million means that a training diverged."""
    if abs(value) >= 1e6:
        return "diverged"
    text = f"{value:.4g}"
    return f"{value:.0f}" if "e+" in text else f"{value:.1e}" if "e-" in text else text


def cell(values):
    if not values:
        return ""
    mean, spread = statistics.mean(values), statistics.stdev(values)
    if abs(mean) >= 1e6:
        return number(mean)
    return f"{number(mean)} ± {spread:.1g}" if spread < 1 else f"{number(mean)} ± {number(spread)}"


def markdown(header, rows):
    lines = [header, ["---"] * len(header), *rows]
    return "".join("| " + " | ".join(line) + " |\n" for line in lines)


def table(found):
    """One line per data set, loss and metric, without the columns of sides that have none."""
    shown = [side for side in SIDES if any(side in one.values for one in found)]
    rows = [[one.data, one.case.name, one.metric.name,
             *(cell(one.values.get(side)) for side in shown), one.word() if one.peer else ""]
            for one in found]
    return markdown(["Set", "Loss or model", "Metric", *shown, "Verdict"], rows)


def main_metrics(found):
    return [one for one in found if one.metric is one.case.metrics[0]]


def summary(found):
    rows = [[one.data, one.case.name, one.metric.name, cell(one.values[OURS]),
             cell(one.values[one.peer]), one.peer, one.word()] for one in main_metrics(found)]
    words = [row[-1] for row in rows]
    count = ", ".join(f"{word} in {words.count(word)}" for word in (BETTER, EQUAL, WORSE))
    header = ["Set", "Loss or model", "Metric", OURS, "Best peer", "Which", "Verdict"]
    return f"{markdown(header, rows)}\nOf {len(rows)} lines, Sylvora is {count}.\n"


def worse(found):
    """A paragraph per loss, with the reason where it is known."""
    parts = []
    for case in dict.fromkeys(one.case.name for one in found):
        losing = [one for one in found if one.case.name == case and one.peer and one.word() == WORSE]
        if losing:
            lines = "".join(f"  - {one.data}, {one.metric.name}: {number(statistics.mean(one.values[OURS]))}"
                            f" against {number(statistics.mean(one.values[one.peer]))} of {one.peer}"
                            f"{reasons.of_peer(one)}\n" for one in losing)
            parts.append(f"- **{case}**{reasons.of_case(case)}\n{lines}")
    return "".join(parts).rstrip() or "Nothing, by more than the spread."


def document(found, versions, seeds):
    text = TEXT.format(
        **versions, seeds=seeds, rounds=ROUNDS, rate=RATE, depth=DEPTH, leaves=2 ** DEPTH,
        bound=NUM_BOUND, delta=HUBER_DELTA, forest_rows=FOREST_ROWS, tree_depth=TREE_DEPTH,
        tree_leaves=2 ** TREE_DEPTH, summary=summary(found), worse=worse(found))
    tasks = {case.name + case.task: case.task for case in CASES}
    for title, task in SECTIONS:
        rows = [one for one in found if tasks.get(one.case.name + one.case.task) == task]
        text += f"\n### {title}\n\n{table(rows)}"
    return text
