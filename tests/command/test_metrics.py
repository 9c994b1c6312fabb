"""The printed metrics against simple O(n^2) implementations of their definitions."""

import math
import random
import unittest
from collections import Counter
from itertools import combinations

from workbench import Workbench, data_lines


def ordered_share(rows):
    """The share of the pairs with different labels whose scores have the order of the labels."""
    pairs = [(a[0] - b[0]) * (a[1] - b[1]) for a, b in rows if a[1] != b[1]]
    return sum(1 if p > 0 else 0.5 if p == 0 else 0 for p in pairs) / len(pairs)


def ndcg(rows, cutoff):
    """None if no label is above 0. Rows with equal scores each get the mean of their gains."""
    def gained(ranked):
        return sum(gain / math.log2(k + 2) for k, gain in enumerate(ranked[:cutoff]))
    tied = {}
    for score, label in rows:
        tied.setdefault(score, []).append(2.0 ** label - 1)
    ranked = [sum(tied[score]) / len(tied[score]) for score, _ in sorted(rows, reverse=True)]
    best = gained(sorted((2.0 ** label - 1 for _, label in rows), reverse=True))
    return gained(ranked) / best if best > 0 else None


class Metrics(Workbench):
    def evaluate(self, labels, *options, qids=None, mapped=lambda label: label):
        """Trains and scores; returns the metrics and the (score, label) rows. The test metrics and
        scores of training must equal those of mode predict."""
        self.write("train.txt", data_lines(labels[::-1], qids and qids[::-1]))
        self.write("test.txt", data_lines(labels, qids, seed=8))
        options += ("-fileTest", "test.txt", "-filePred")
        trained = self.succeed(*options, "trained.txt")
        predicted = self.succeed(*options, "predicted.txt", "-mode", "predict")
        self.assertEqual(trained.stdout, predicted.stdout)
        self.assertEqual(self.read("trained.txt"), self.read("predicted.txt"))
        scores = [float(line) for line in self.read("trained.txt").splitlines()]
        self.assertEqual(len(labels), len(scores))
        return self.metrics(trained), list(zip(scores, map(mapped, labels)))

    def check(self, metrics, expected):
        self.assertEqual(list(expected), list(metrics))
        for name, value in expected.items():
            self.assertAlmostEqual(value, float(metrics[name]), delta=2e-5 * max(1, abs(value)),
                                   msg=name)

    def test_regression(self):
        labels = [random.Random(1).randint(0, 9) + i % 4 for i in range(80)]
        metrics, rows = self.evaluate(labels)
        self.check(metrics, {"rows": 80, "RMSE": math.sqrt(sum((s - l) ** 2 for s, l in rows) / 80),
                             "MAE": sum(abs(s - l) for s, l in rows) / 80})

    def test_two_values_after_the_label_map(self):
        self.write("map.txt", "0 -1\n1 1\n2 1\n")
        labels = [random.Random(i).randint(0, 2) for i in range(90)]
        metrics, rows = self.evaluate(labels, "-labelTran", "map.txt", "-lossFunc", "Exponential",
                                      "-maxLeaf", "3", mapped=lambda label: 1 if label else -1)
        self.assertEqual(["rows", "RMSE", "MAE", "AUC"], list(metrics))
        self.assertAlmostEqual(ordered_share(combinations(rows, 2)), float(metrics["AUC"]), 5)

    def test_classification(self):
        for model in "RandomForest", "CART":
            metrics, rows = self.evaluate([i % 3 + (i % 5 == 0) * 0.25 for i in range(90)],
                                          "-modelType", model, "-fRegCls", "CLS")
            pairs = Counter((int(label), int(score)) for score, label in rows)
            expected = {"rows": 90, "accuracy": sum(n for (l, p), n in pairs.items() if l == p) / 90}
            expected.update({f"confusion[{l}][{p}]": n for (l, p), n in sorted(pairs.items())})
            self.check(metrics, expected)

    def test_ranking(self):
        labels = [random.Random(i).choice([0, 0, 1, 2, 4]) for i in range(120)] + [0, 0, 0]
        qids = [f"q{i // 12}" for i in range(123)]
        metrics, rows = self.evaluate(labels, "-modelType", "GBRank", "-maxLeaf", "2", qids=qids)
        queries = [[row for row, qid in zip(rows, qids) if qid == q] for q in sorted(set(qids))]
        expected = {"rows": 123, "queries": 11, "queries without a relevant row": 1}
        for cutoff in 1, 5, 10:
            shares = [ndcg(query, cutoff) for query in queries]
            expected[f"NDCG@{cutoff}"] = sum(share for share in shares if share is not None) / 10
        expected["correctly ordered pairs"] = ordered_share(
            pair for query in queries for pair in combinations(query, 2))
        self.check(metrics, expected)

    def test_ranking_without_queries(self):
        self.write("bare.txt", data_lines([1, 0]))
        self.evaluate([2, 1, 0, 1] * 3, "-modelType", "GBRank", qids=[i // 4 for i in range(12)])
        run = self.succeed("-mode", "predict", "-fileTest", "bare.txt", "-filePred", "p.txt")
        self.assertRegex(run.stderr, "NOTICE: .*no ranking metrics")
        self.assertEqual("rows: 2", run.stdout.splitlines()[0])


if __name__ == "__main__":
    unittest.main()
