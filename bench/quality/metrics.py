"""The measures of quality, each a function of labels and scores. The formulas and the treatment of
ties are those of the command's metrics."""

import math
from collections import defaultdict


def mean(values):
    values = list(values)
    return sum(values) / len(values)


def rmse(labels, scores):
    return math.sqrt(mean((f - y) ** 2 for y, f in zip(labels, scores)))


def mae(labels, scores):
    return mean(abs(f - y) for y, f in zip(labels, scores))


def huber(labels, scores, delta):
    """Squared error / 2 up to a residual of `delta`, linear beyond."""
    sizes = (abs(f - y) for y, f in zip(labels, scores))
    return mean(r * r / 2 if r <= delta else delta * (r - delta / 2) for r in sizes)


def pinball(labels, scores, q):
    return mean(max(q * (y - f), (q - 1) * (y - f)) for y, f in zip(labels, scores))


def coverage(labels, scores):
    """The share of the labels that are not above their scores."""
    return mean(y <= f for y, f in zip(labels, scores))


def log_loss(labels, scores, link):
    """`link` turns a score into the probability of the class 1. Probabilities are kept 1e-15 away
    from 0 and 1, as in scikit-learn."""
    chances = (link(f) if y > 0 else 1 - link(f) for y, f in zip(labels, scores))
    return -mean(math.log(min(max(p, 1e-15), 1 - 1e-15)) for p in chances)


def sigmoid(f):
    return 1 / (1 + math.exp(-f)) if f >= 0 else 1 - 1 / (1 + math.exp(f))


def softplus(f):
    return max(f, 0) + math.log1p(math.exp(-abs(f)))


# From scores to probabilities: see docs/losses.md.
LINKS = {
    "sigmoid": sigmoid,
    "twice": lambda f: sigmoid(2 * f),
    "logistic": lambda f: softplus(f) / (softplus(f) + softplus(-f)),
}


def auc(labels, scores):
    """The share of correctly ordered pairs of rows with different labels; a tie counts half."""
    pairs = sorted(zip(scores, labels))
    below = ordered = 0
    begin = 0
    while begin < len(pairs):
        end = begin
        while end < len(pairs) and pairs[end][0] == pairs[begin][0]:
            end += 1
        ones = sum(label > 0 for _, label in pairs[begin:end])
        zeros = end - begin - ones
        ordered += ones * (below + zeros / 2)
        below += zeros
        begin = end
    return ordered / (below * (len(pairs) - below))


def sign_error(labels, scores):
    return mean((f > 0) != (y > 0) for y, f in zip(labels, scores))


def class_error(labels, scores):
    return mean(f != y for y, f in zip(labels, scores))


def by_query(labels, scores, queries):
    groups = defaultdict(list)
    for label, score, query in zip(labels, scores, queries):
        groups[query].append((score, label))
    return groups.values()


def discounted_gain(keyed, cutoff):
    """`keyed` has pairs of key and gain; rows of equal keys each get the mean of their gains."""
    gains = defaultdict(list)
    for key, gain in keyed:
        gains[key].append(gain)
    total = place = 0
    for key in sorted(gains, reverse=True):
        tied = gains[key]
        places = range(place, min(place + len(tied), cutoff))
        total += mean(tied) * sum(1 / math.log2(i + 2) for i in places)
        place += len(tied)
    return total


def ndcg(labels, scores, queries, cutoff=10):
    shares = []
    for rows in by_query(labels, scores, queries):
        gains = [(score, 2 ** label - 1) for score, label in rows]
        ideal = discounted_gain([(gain, gain) for _, gain in gains], cutoff)
        if ideal > 0:
            shares.append(discounted_gain(gains, cutoff) / ideal)
    return mean(shares)


def ordered_pairs(labels, scores, queries):
    """The share of correctly ordered pairs of rows of a query with different labels; a tie counts
    half."""
    pairs = ordered = 0
    for rows in by_query(labels, scores, queries):
        for score, label in rows:
            lower = [other for other, grade in rows if grade < label]
            pairs += len(lower)
            ordered += sum((other < score) + (other == score) / 2 for other in lower)
    return ordered / pairs
