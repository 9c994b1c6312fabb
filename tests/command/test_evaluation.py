"""Development data: the table of metrics, early stopping, notices and errors."""

import os
import pty
import re
import subprocess
import unittest

from workbench import COMMAND, Workbench, data_lines


def screen_of(shown):
    """The lines of a terminal after what it was sent."""
    lines, column = [[]], 0
    for character in shown.replace("\r\n", "\n"):
        if character == "\n":
            lines.append([])
            column = 0
        elif character == "\r":
            column = 0
        else:
            lines[-1][column:column + 1] = [character]
            column += 1
    return ["".join(line).rstrip() for line in lines]


class Evaluation(Workbench):
    def setUp(self):
        super().setUp()
        self.write("dev.txt", data_lines([i * 7 % 10 for i in range(50)], seed=3))
        self.configure("fileDev = dev.txt", "numBound = 2", "valShrink = 0.5", "digits = 17")

    def rmse_of(self, rounds):
        run = self.succeed("-numTree", str(rounds), "-fileModel", "other.txt", "-fileTest",
                           "dev.txt")
        return self.metrics(run)["RMSE"]

    def test_table(self):
        plain = self.model("-numTree", "10")
        run = self.succeed("-numTree", "10", "-evalEvery", "4", "-fileTest", "dev.txt")
        self.assertEqual(plain, self.read("model.txt"))
        self.assertEqual("", run.stderr)
        header, *lines = run.stdout.splitlines()[:4]
        self.assertEqual(["round", "dev", "rmse", "dev", "mae"], header.split())
        self.assertEqual(["4", "8", "10"], [line.split()[0] for line in lines])
        self.assertEqual([self.rmse_of(k) for k in (4, 8, 10)],
                         [line.split()[1] for line in lines])
        self.assertEqual({len(header)}, {len(line) for line in lines})
        self.assertRegex(run.stdout, r"\nrows: 50\nRMSE: \S+\nMAE: \S+\n$")

    def test_early_stop(self):
        for threads in "1", "4":
            options = ("-numTree", "300", "-earlyStop", "5", "-fileTest", "dev.txt", "-numThread",
                       threads)
            run = self.succeed(*options, "-fileModel", "cut.txt")
            best, value = re.match(r"best round (\d+): dev rmse (\S+)\nrows: ",
                                   run.stdout).groups()
            self.assertLess(int(best), 250)
            self.assertEqual(self.model("-numTree", best), self.read("cut.txt"))
            self.assertEqual(value, self.metrics(run)["RMSE"])
            self.assertEqual([value] * 2, [self.rmse_of(best), value])
            table = self.succeed(*options, "-evalEvery", "1000", "-fileModel", "cut.txt").stdout
            self.assertEqual(str(int(best) + 5), table.splitlines()[1].split()[0])

    def test_other_models(self):
        for options, names in ((["RandomForest", "-fRegCls", "CLS"], ["accuracy"]),
                               (["CART", "-fRegCls", "REG"], ["rmse", "dev", "mae"])):
            run = self.succeed("-modelType", *options, "-evalEvery", "3", "-fileTest", "dev.txt")
            header, line, _, first = run.stdout.splitlines()[:4]
            self.assertEqual(["round", "dev", *names], header.split())
            self.assertEqual(["1", first.split(": ")[1]], line.split()[:2])
            self.fail_with("earlyStop needs the rounds of GBDT or GBRank", "-modelType", *options,
                           "-earlyStop", "3")

    def test_label_map(self):
        self.write("map.txt", [f"{label} {-1 if label < 5 else 1}" for label in range(10)])
        run = self.succeed("-labelTran", "map.txt", "-lossFunc", "Logistic", "-evalEvery", "9",
                           "-fileTest", "dev.txt")
        table, metrics = run.stdout.splitlines()[:2], self.metrics_below_table(run)
        self.assertEqual("round dev logloss dev auc dev accuracy".split(), table[0].split())
        self.assertEqual(metrics["AUC"], table[1].split()[2])

    def metrics_below_table(self, run):
        return dict(line.split(": ") for line in run.stdout.splitlines() if ": " in line)

    def test_notices_and_errors(self):
        run = self.succeed()
        self.assertEqual(1, len(run.stderr.splitlines()))
        self.assertRegex(run.stderr, "^Notice: fileDev dev.txt: is read but not used; evalEvery")
        self.assertEqual("", run.stdout)
        self.fail_with("Illegal earlyStop: -1", "-earlyStop", "-1")
        self.fail_with("Illegal evalEvery: -5", "-evalEvery", "-5")
        self.write("dev.txt", data_lines([1.0] * 9))
        self.write("train.txt", data_lines([(-1) ** i for i in range(60)]))
        self.fail_with('fileDev dev.txt: metric "auc" needs labels of exactly two values',
                       "-evalEvery", "5", "-lossFunc", "Exponential")
        self.succeed("-earlyStop", "5", "-lossFunc", "Exponential")
        queries = [i // 6 for i in range(60)]
        self.write("train.txt", data_lines([i % 3 for i in range(60)], queries))
        self.fail_with('fileDev dev.txt: metric "ndcg@10" needs a query id for each row',
                       "-evalEvery", "5", "-modelType", "GBRank")
        self.write("run.cfg", self.read("run.cfg").replace("fileDev = dev.txt", ""))
        self.fail_with("earlyStop 3: needs development data to evaluate; set fileDev",
                       "-earlyStop", "3")
        self.fail_with("evalEvery 3: needs development data", "-evalEvery", "3")

    def test_table_and_progress_line_on_a_terminal(self):
        """The progress line is wider than the table, and must leave nothing of it behind."""
        options = ["-numTree", "2000000000", "-evalEvery", "7", "-earlyStop", "9"]
        expected = self.succeed(*options).stdout.splitlines()
        try:
            ours, theirs = pty.openpty()
        except OSError as none:  # a bare chroot has no /dev/pts
            self.skipTest(f"no terminal available: {none}")
        run = subprocess.Popen([COMMAND, "run.cfg", *options], cwd=self.folder, stderr=theirs,
                               stdout=theirs)
        os.close(theirs)
        shown = b""
        try:
            while piece := os.read(ours, 4096):
                shown += piece
        except OSError:  # EIO: the other side of the terminal is closed
            pass
        os.close(ours)
        self.assertEqual(0, run.wait())
        self.assertIn("round 1 of 2000000000", shown.decode())
        lines = screen_of(shown.decode())
        progress = [line for line in lines if " left" in line]
        self.assertRegex("|".join(progress), r"^round \d+ of 2000000000, 0 %, [^|]* left$")
        self.assertEqual(expected, [line for line in lines if line and line not in progress])


if __name__ == "__main__":
    unittest.main()
