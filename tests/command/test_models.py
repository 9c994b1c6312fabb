"""Verification of models before they replace an older one, and the digits of model files."""

import os
import re
import threading
import unittest

from workbench import OLD, REPOSITORY, Workbench, data_lines


class Verification(Workbench):
    def refuse(self, pattern, *options):
        """The run fails with one line that matches `pattern`, and keeps the older model."""
        self.write("model.txt", OLD)
        run = self.fail_with(pattern, *options)
        self.assertEqual(1, run.stderr.count("ERROR:"), run.stderr)
        self.assertEqual(OLD, self.read("model.txt"))
        self.assertEqual(["model.txt", "run.cfg", "train.txt"],
                         sorted(path.name for path in self.folder.iterdir()))

    def test_ranking_without_pairs(self):
        self.configure("modelType = GBRank")
        queries = [i // 5 for i in range(60)]
        self.write("train.txt", data_lines([1] * 60, queries))
        self.refuse("round 1: no query has two rows with different labels")
        self.write("train.txt", data_lines(range(60), range(60)))
        self.refuse("round 1: no query has two rows with different labels")
        self.write("train.txt", data_lines([int(i == 0) for i in range(60)], queries))
        self.refuse(r"round \d+: none of the drawn rows has a partner with another label; "
                    "raise valSmpRt", "-valSmpRt", "0.2", "-numTree", "60")

    def test_numbers_that_grow_beyond_bounds(self):
        signs = [1 if i % 3 else -1 for i in range(60)]
        self.write("train.txt", data_lines(signs))
        for loss, shrink in ("Exponential", "400"), ("Square", "4"):
            self.refuse(r"round \d+: .*lower valShrink", "-lossFunc", loss, "-valShrink", shrink,
                        "-numTree", "2000", "-ratio", "1", "-numBound", "50")
        self.write("train.txt", [f"1.7e308 1:{i}" for i in range(20)])
        self.refuse("round 1: the labels are too large")
        self.refuse("tree 1: the labels are too large", "-modelType", "RandomForest", "-fRegCls",
                    "REG")

    def test_growth_in_the_last_round(self):
        """What the last round did to the predictions is not left for another round to find."""
        signs = [1 if i % 3 else -1 for i in range(60)]
        self.write("train.txt", data_lines(signs))
        options = ["-valShrink", "1e38", "-valSmpRt", "1", "-ratio", "1", "-numBound", "1"]
        first = next(rounds for rounds in range(1, 30) if self.run_command(
            "run.cfg", *options, "-numTree", str(rounds)).returncode != 0)
        self.refuse(f"round {first}: .*lower valShrink", *options, "-numTree", str(first))
        self.refuse(f"round {first}: .*lower valShrink", *options, "-numTree", "60")

    def test_a_model_that_cannot_be_read_again(self):
        self.write("test.txt", data_lines([1, 2]))
        os.mkfifo(self.folder / "pipe")
        for place in "pipe", "/dev/null":
            self.fail_with(f"fileModel {place}: is no regular file, and the model is read again",
                           "-fileModel", place, "-fileTest", "test.txt")

    def test_a_pipe_gets_what_a_file_gets(self):
        wanted = self.model()
        os.mkfifo(self.folder / "pipe")
        got = []
        reader = threading.Thread(target=lambda: got.append(self.read("pipe")))
        reader.start()
        self.succeed("-fileModel", "pipe")
        reader.join()
        self.assertEqual([wanted], got)

    def test_a_reader_that_goes_away_leaves_nothing_behind(self):
        """Of a text that is longer than a pipe holds."""
        os.mkfifo(self.folder / "pipe")
        (self.folder / "tmp").mkdir()
        self.write("train.txt", data_lines(range(400), columns=9))

        def read_a_little():
            with open(self.folder / "pipe", "rb") as pipe:
                pipe.read(10)
        reader = threading.Thread(target=read_a_little)
        reader.start()
        run = self.run_command(
            "run.cfg", "-fileModel", "pipe", "-numTree", "400", "-maxLeaf", "60", "-maxDepth", "8",
            env={**os.environ, "TMPDIR": str(self.folder / "tmp")})
        reader.join()
        self.assertEqual(1, run.returncode, run.stderr)
        self.assertIn("Broken pipe", run.stderr)
        self.assertEqual([], list((self.folder / "tmp").iterdir()))

    @unittest.skipIf(os.environ.get("SYLVORA_SANITIZE"), "sanitizers need all address space")
    def test_a_forest_that_does_not_fit_into_memory(self):
        import resource
        self.write("train.txt", data_lines([i * 7919 % 1000 for i in range(8000)], columns=2))
        forest = ["-modelType", "RandomForest", "-fRegCls", "REG", "-numTree", "60", "-numBound",
                  "1"]
        self.write("model.txt", OLD)
        outcomes = set()
        for megabytes in range(14, 80, 3):
            def limit(size=megabytes << 20):
                resource.setrlimit(resource.RLIMIT_AS, (size, size))
            run = self.run_command("run.cfg", *forest, preexec_fn=limit)
            self.assertIn(run.returncode, (0, 1, 127), run.stderr)
            if run.returncode == 0:
                break
            self.assertEqual(OLD, self.read("model.txt"))
            outcomes.update(re.findall("of 60 was not grown|of memory|GB, available are|allocate",
                                       run.stderr))
        self.assertIn("of 60 was not grown", outcomes)


class Digits(Workbench):
    def setUp(self):
        super().setUp()
        # Unix times a minute apart, whose midpoints have ten digits.
        self.write("train.txt", [f"{i // 40 % 2} 1:{1600000000 + 60 * i}" for i in range(2000)])
        self.configure("fileTest = train.txt")

    def test_rounded_thresholds_are_reported(self):
        run = self.succeed()
        self.assertRegex(run.stderr, r"(?m)^Notice: fileModel model.txt: thresholds are rounded to "
                                     r"six digits, so [\d.]+ % of the training rows reach "
                                     r"another leaf .*; digits = 17 writes them in full$")
        rounded = float(self.metrics(run)["RMSE"])
        run = self.succeed("-digits", "17")
        self.assertNotIn("rounded", run.stderr)
        self.assertLess(float(self.metrics(run)["RMSE"]), rounded)
        self.assertIn(" 0.10000000149011612\n", self.model("-digits", "17", "-valShrink", "0.1"))
        self.fail_with("Illegal digits: 9, it must be 6 or 17!", "-digits", "9")

    def test_bundled_data_lose_nothing(self):
        for name in "bike", "wdbc", "letter-tree":
            run = self.run_command(str(REPOSITORY / "examples" / f"{name}.cfg"), "-fileTrain",
                                   str(REPOSITORY / "data" / f"{name.split('-')[0]}.train.txt"),
                                   "-fileTest", "", "-fileModel", "model.txt")
            self.assertEqual(0, run.returncode, run.stderr)
            self.assertNotIn("rounded", run.stderr)


if __name__ == "__main__":
    unittest.main()
