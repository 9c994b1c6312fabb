"""Formats the results as Markdown: tables, and docs/quality.md as a whole."""

import math
import statistics
import textwrap

import reasons
from cases import DEPTH, FOREST_ROWS, HUBER_DELTA, OURS, RATE, ROUNDS, SIDES, TREE_DEPTH
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
  columns in each tree, no limit on the rows of a leaf (`numBound` {bound}). δ of `Huber` is
  {delta}. Labels of two classes are -1 and 1.
- **Forests**: {rounds} trees of unlimited depth. Each tree of Sylvora draws {forest_rows:.1%} of
  the rows without replacement, as many as a bootstrap sample of scikit-learn has distinct rows.
  Each node draws a third of the columns of `bike`, and about the square root of their number
  elsewhere.
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
## Other settings

Sylvora with one setting changed, to show what a difference comes from. They were chosen by trying
them on these very rows, so they are no comparison.

{other}
## All metrics

*Diverged* means that scores grew beyond all bounds: where a loss has a very small second
derivative, a Newton step without regularisation is very large.
"""

SECTIONS = (("Numbers", "regression"), ("Two classes", "two"), ("26 classes", "classes"),
            ("Ranking", "ranking"))


def number(value):
    """Four significant digits. Only the scores of a training that diverged are beyond a million."""
    if abs(value) >= 1e6:
        return "diverged"
    return f"{value:.4g}" if abs(value) >= 1e-4 or value == 0 else f"{value:.1e}"


def cell(values):
    """Mean and spread, with two digits of the spread."""
    if not values:
        return ""
    mean, spread = statistics.mean(values), statistics.stdev(values)
    if abs(mean) >= 1e6:
        return number(mean)
    if 0 < spread < 1e-5:
        return f"{number(mean)} ± {spread:.1e}"
    digits = max(0, 1 - math.floor(math.log10(spread))) if spread else 4
    return f"{mean:.{digits}f} ± {spread:.{digits}f}"


def markdown(header, rows):
    lines = [header, ["---"] * len(header), *rows]
    return "".join("| " + " | ".join(line) + " |\n" for line in lines)


def table(found):
    """One line per data set, loss and metric, without the columns of sides that have none."""
    shown = [side for side in SIDES if any(side in one.values for one in found)]
    rows = [[one.data, f"{one.case.name} {one.case.variant}".strip(), one.metric.name,
             *(cell(one.values.get(side)) for side in shown), one.word() if one.peer else ""]
            for one in found]
    return markdown(["Set", "Loss or model", "Metric", *shown, "Verdict"], rows)


def summary(found):
    rows = [[one.data, one.case.name, one.metric.name, cell(one.values[OURS]),
             cell(one.values[one.peer]), one.peer, one.word()]
            for one in found if one.metric is one.case.metrics[0]]
    words = [row[-1] for row in rows]
    count = ", ".join(f"{word} in {words.count(word)}" for word in (BETTER, EQUAL, WORSE))
    header = ["Set", "Loss or model", "Metric", OURS, "Best peer", "Which", "Verdict"]
    return f"{markdown(header, rows)}\nOf these {len(rows)} lines, Sylvora is {count}.\n"


def worse(found):
    """The lines with this verdict, by loss, with the reason where it is known."""
    parts = {}
    for one in found:
        if one.peer and one.word() == WORSE:
            ours, theirs = (number(statistics.mean(one.values[side])) for side in (OURS, one.peer))
            parts.setdefault(one.case.name, []).append(
                f"  - {one.data}, {one.metric.name}: {ours} against {theirs} of {one.peer}"
                f"{reasons.of_peer(one, number)}\n")
    return "".join(wrapped(f"- **{name}**{reasons.of_case(name)}") + "".join(lines)
                   for name, lines in parts.items()) or "Nothing, by more than the spread.\n"


def wrapped(item):
    return textwrap.fill(item, 100, subsequent_indent="  ", break_on_hyphens=False) + "\n"


def other_settings(compared, varied):
    """Variants beside the case that they vary."""
    usual = {(one.data, one.case.name, one.metric.name): one for one in compared}
    rows = [[one.data, one.case.name, one.case.variant, one.metric.name,
             cell(usual[one.data, one.case.name, one.metric.name].values[OURS]),
             cell(one.values[OURS])] for one in varied]
    return markdown(["Set", "Loss", "Changed", "Metric", "Above", "Changed"], rows)


def document(found, versions, seeds):
    compared = [one for one in found if not one.case.variant]
    varied = [one for one in found if one.case.variant]
    text = TEXT.format(
        **versions, seeds=seeds, rounds=ROUNDS, rate=RATE, depth=DEPTH, leaves=2 ** DEPTH,
        bound=NUM_BOUND, delta=HUBER_DELTA, forest_rows=FOREST_ROWS, tree_depth=TREE_DEPTH,
        tree_leaves=2 ** TREE_DEPTH, summary=summary(compared), worse=worse(compared),
        other=other_settings(compared, varied))
    for title, task in SECTIONS:
        text += f"\n### {title}\n\n{table([one for one in compared if one.case.task == task])}"
    return text
