"""Losses with node values of their own: through the command, on real data, and their errors."""

import math
import random
import unittest

from workbench import OLD, REPOSITORY, Workbench, data_lines


class RealData(Workbench):
    def scores(self, name, *options):
        """Trains on a bundled set with 100 rounds of 0.1; returns labels and scores of the test
        rows."""
        test = REPOSITORY / "data" / f"{name}.test.txt"
        self.write("run.cfg", "modelType = GBDT\nnumTree = 100\nvalShrink = 0.1\nmaxLeaf = 16\n"
                              "valSmpRt = 0.8\nratio = 0.8\nnumThread = 2\nfilePred = p.txt\n"
                              f"fileTrain = {REPOSITORY}/data/{name}.train.txt\n"
                              f"fileTest = {test}\nfileModel = model.txt\n")
        self.succeed(*options)
        labels = [float(line.split()[0]) for line in test.read_text().splitlines()]
        return labels, [float(score) for score in self.read("p.txt").split()]

    def test_log_loss_has_better_probabilities_than_logistic(self):
        def softplus(x):
            return max(x, 0) + math.log1p(math.exp(-abs(x)))

        links = {"LogLoss": lambda f: 1 / (1 + math.exp(-f)),
                 "Logistic": lambda f: softplus(f) / (softplus(f) + softplus(-f))}
        means = {}
        for loss, link in links.items():
            labels, scores = self.scores("wdbc", "-lossFunc", loss)
            means[loss] = -sum(math.log(link(f) if y > 0 else 1 - link(f))
                               for y, f in zip(labels, scores)) / len(labels)
        self.assertLess(means["LogLoss"], 0.85 * means["Logistic"])

    def test_quantiles_cover_their_share(self):
        for quantile in 0.1, 0.5, 0.9:
            labels, scores = self.scores("bike", "-lossFunc", "Quantile", "-quantile",
                                         str(quantile), "-absent", "missing")
            share = sum(y <= f for y, f in zip(labels, scores)) / len(labels)
            self.assertAlmostEqual(quantile, share, delta=0.05)

class Models(Workbench):
    def test_the_first_group_is_the_start_value(self):
        lines = self.model("-lossFunc", "Absolute").splitlines()
        self.assertEqual("6 0 3", lines[0])
        self.assertEqual(["idxTreeArray: 0 size: 1 shrink: 1", "0 1",
                          "0 TERMINAL -1 -1 -1 -1 4.5"], lines[3:6])

    def test_result_files_and_reports(self):
        self.configure("fTestRealTime = true", "fileTest = train.txt", "filePred = p.txt")
        report = self.model("-lossFunc", "Huber", "-fileDebug", "debug.txt")
        self.assertIn("[debug]", report)
        scores = [line.split("\t")[0] for line in self.read("Result.train.txt.5").splitlines()]
        self.assertEqual(len(scores), 60)
        self.succeed("-mode", "analyze", "-filePred", "report.txt")
        self.assertIn("Average Square Root Difference", self.read("report.txt"))


class Outliers(Workbench):
    def test_absolute_and_huber_resist_them(self):
        noise = random.Random(5)
        rows = [[noise.random() for _ in range(3)] for _ in range(900)]
        exact = [4 * a + (2 if b > 0.5 else 0) for a, b, _ in rows]
        values = [" ".join(f"{j + 1}:{v:.4f}" for j, v in enumerate(row)) for row in rows]
        lines = [f"{y + (300 if noise.random() < 0.04 else 0):.4f} {v}"
                 for y, v in zip(exact, values)]
        self.write("train.txt", lines[:600])
        self.write("test.txt", [f"0 {v}" for v in values[600:]])
        self.configure("fileTest = test.txt", "filePred = p.txt", "valShrink = 0.1")
        errors = {}
        for loss in "Square", "Absolute", "Huber":
            self.succeed("-lossFunc", loss, "-numTree", "100")
            scores = [float(score) for score in self.read("p.txt").split()]
            errors[loss] = sum(abs(y - f) for y, f in zip(exact[600:], scores)) / 300
        self.assertLess(errors["Absolute"], 0.1 * errors["Square"])
        self.assertLess(errors["Huber"], 0.4 * errors["Square"])


class Errors(Workbench):
    def test_labels_and_parameters(self):
        self.write("model.txt", OLD)
        self.fail_with('fileTrain train.txt: Row 2 has the label 2: the loss "LogLoss" needs labels '
                       '-1 and 1, or 0 and 1',
                       "-lossFunc", "LogLoss")
        self.write("train.txt", data_lines([1] * 9))
        self.fail_with("All rows have the label 1", "-lossFunc", "LogLoss")
        self.fail_with("Illegal huberDelta: -1, it must be finite and above 0", "-huberDelta", "-1")
        self.fail_with("Illegal quantile: 2, it must be between 0 and 1", "-quantile", "2")
        self.fail_with("No such loss function: LogLoss", "-lossFunc", "LogLoss", "-modelType",
                       "GBRank")
        self.fail_with("No such loss function: logloss", "-lossFunc", "logloss")
        self.assertEqual(OLD, self.read("model.txt"))

    def test_a_label_map_makes_classes(self):
        self.write("train.txt", data_lines([3, 7] * 20))
        self.fail_with("fileTrain train.txt: Row 0 has the label 3", "-lossFunc", "LogLoss")
        self.write("map.txt", ["3 0", "7 1"])
        self.model("-lossFunc", "LogLoss", "-labelTran", "map.txt")


if __name__ == "__main__":
    unittest.main()
