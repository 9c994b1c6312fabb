"""Runs of sylvora-mpi write the files and print the lines of sylvora."""

from mpibench import MpiBench
from workbench import data_lines


class RanksTest(MpiBench):

    def compare(self, ranks, *options):
        """Compares the model file, the scores and standard output."""
        options = [*map(str, options), "-filePred", "scores.txt"]
        one = self.succeed(*options)
        files = [self.read("model.txt"), self.read("scores.txt")]
        for name in ("model.txt", "scores.txt"):
            (self.folder / name).unlink()
        run = self.ranks(ranks, *options)
        self.assertEqual(files, [self.read("model.txt"), self.read("scores.txt")])
        self.assertEqual(one.stdout, run.stdout)

    def setUp(self):
        super().setUp()
        self.configure("digits = 17")
        self.write("train.txt", data_lines([i % 10 for i in range(300)], columns=7))
        self.write("test.txt", data_lines([i % 10 for i in range(40)], columns=7, seed=8))

    def test_models_are_those_of_one_process(self):
        queries = [i // 10 for i in range(300)]
        self.write("queries.txt", data_lines([i % 3 for i in range(300)], queries, columns=5))
        self.write("classes.txt", data_lines([i % 4 for i in range(300)], columns=5))
        rank = ["-modelType", "GBRank", "-lossFunc", "CrossEntropy"]
        classes = ["-fRegCls", "CLS"]
        cases = [(1, "train.txt", []), (2, "train.txt", ["-numThread", "4"]),
                 (3, "queries.txt", rank), (4, "classes.txt", ["-modelType", "CART", *classes]),
                 (3, "classes.txt", ["-modelType", "RandomForest", *classes]),
                 (9, "train.txt", ["-ratio", "0.5"])]
        for ranks, data, options in cases:
            with self.subTest(ranks=ranks, data=data, options=options):
                self.compare(ranks, "-fileTrain", data, "-fileTest",
                             "test.txt" if data == "train.txt" else data, *options)

    def test_a_checkpoint_is_continued_by_another_number_of_ranks(self):
        whole = self.model("-numTree", "9")
        options = ["-checkpoint", "check.txt"]
        self.ranks(3, *options, "-numTree", 4)
        self.ranks(2, *options, "-numTree", 6)
        self.succeed(*options, "-numTree", "7")
        self.ranks(4, *options, "-numTree", 9)
        self.assertEqual(whole, self.read("model.txt"))
