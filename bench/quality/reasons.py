"""Why Sylvora is worse, where that is known."""

import statistics

from cases import DEFAULT, OURS, PLAIN

FIRST_ORDER = (": the value of a leaf is the mean of the gradients, not a Newton step, so 100 "
               "rounds of rate 0.1 change the scores less than those of the peers. A higher rate "
               "helps on `letter-halves` (see \"Other settings\").")
FEW_VALUES = (": the gradients take two or three values, so splits often tie, and the sides choose "
              "differently. Why the choice of scikit-learn does better is not known. A larger "
              "`numBound` narrows the gap (see \"Other settings\").")
BY_CASE = {
    "Square": (": nothing but ties between splits, rounding and the start value differs between "
               "Sylvora, XGBoost plain and scikit-learn."),
    "Absolute": FEW_VALUES,
    "Quantile 0.1": FEW_VALUES,
    "Quantile 0.9": FEW_VALUES,
    "Logistic": FIRST_ORDER,
    "Exponential": FIRST_ORDER,
    "HingeSquare": FIRST_ORDER,
    "LogLoss": (": these settings overfit such a small set. Sylvora's ways to avoid that are flat "
                "trees and a larger `numBound` (see \"Other settings\")."),
}


def of_case(name):
    return BY_CASE.get(name, ": the reason is not known.")


def of_peer(verdict, number):
    """What the best peer gets without its regularisation, if it is no better than ours then."""
    if verdict.peer != DEFAULT or PLAIN not in verdict.values:
        return ""
    ours, plain = (statistics.mean(verdict.values[side]) for side in (OURS, PLAIN))
    if verdict.metric.sign * (plain - ours) < 0:
        return ""
    return f", which gets {number(plain)} without its regularisation"
