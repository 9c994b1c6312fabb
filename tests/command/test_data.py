"""Data files: what is read alike, what is refused and where the message points."""

import unittest

from workbench import OLD, Workbench, data_lines


class Reading(Workbench):
    def test_forms_of_one_text(self):
        lines = self.read("train.txt").splitlines()
        expected = self.model()
        forms = {
            "CR LF": "".join(line + "\r\n" for line in lines),
            "no final newline": "\n".join(lines),
            "blank lines": "\n \n\t\r\n" + "\n\n".join(lines) + "\n\n  ",
            "tabs": "".join("\t" + line.replace(" ", " \t") + " \n" for line in lines),
            "a short token ends a line": "".join(line + " 5 9:9:9\n" for line in lines),
            "query ids that nobody needs": "".join(line + " qid:a:b\n" for line in lines),
        }
        for name, text in forms.items():
            with self.subTest(name):
                self.write("train.txt", text)
                self.assertEqual(expected, self.model())

    def test_pipe_and_long_line(self):
        self.write("train.txt", data_lines([1, 2, 3, 4], columns=30000))
        expected = self.model("-numBound", "1")
        text = self.read("train.txt")
        self.assertEqual(expected, self.model("-numBound", "1", "-fileTrain", "/dev/stdin",
                                              input=text))

    def test_threads_do_not_show(self):
        """A file of several blocks, right or with a fault far from its begin."""
        lines = data_lines([i % 5 for i in range(9000)], [i // 9 for i in range(9000)], columns=8)
        options = ["-numTree", "2", "-fileTest", "train.txt", "-filePred", "pred.txt"]
        self.write("run.cfg", "modelType = GBRank\nfileTrain = train.txt\nfileModel = model.txt\n")
        wrong = {5000: "1 qid:555 2:x", 8000: "1 qid:12 1:1", 8999: "x"}
        for broken in ({}, wrong, {7777: lines[0]}, {8999: "1 1:1"}):
            self.write("train.txt", [broken.get(i, line) for i, line in enumerate(lines)])
            seen = set()
            for threads in ("1", "3", "8", None):
                given = ["-numThread", threads] if threads else []
                for mode in "train", "predict", "analyze":
                    self.write("pred.txt", OLD)
                    run = self.run_command("run.cfg", "-mode", mode, *options, *given)
                    said = [line for line in run.stderr.splitlines() if "NOTICE" not in line]
                    seen.add((mode, run.returncode, run.stdout, "\n".join(said),
                              self.read("model.txt"), self.read("pred.txt")))
            self.assertEqual(3, len(seen), broken)

    def test_dimension_is_that_of_the_widest_file(self):
        widest = {"fileTrain": 3, "fileTest": 7, "fileDev": 5}
        self.configure("fileTest = test.txt", "fileDev = dev.txt")
        for name, columns in widest.items():
            self.write(name[4:].lower() + ".txt", data_lines(range(9), columns=columns))
        self.assertEqual("5 0 7", self.model().splitlines()[0])
        self.write("wide.txt", ["1 1:1", "2 9:1"])
        run = self.succeed("-mode", "predict", "-fileTest", "wide.txt", "-filePred", "p.txt")
        self.assertEqual(2, len(self.read("p.txt").splitlines()), run.stderr)

    def test_queries_are_any_text(self):
        labels = [i % 3 for i in range(24)]
        options = ["-modelType", "GBRank"]
        self.write("train.txt", data_lines(labels, [i // 6 for i in range(24)]))
        expected = self.model(*options)
        self.write("train.txt", data_lines(labels, [["x y", ":", "7.0", "é"][i // 6][:1]
                                                    for i in range(24)]))
        self.assertEqual(expected, self.model(*options))


class Refusals(Workbench):
    def test_wrong_lines(self):
        good = data_lines(range(4))
        wrong = [("1 2:x", "feature value is not a digit"), ("1 y:2", "feature id is not an int"),
                 ("1 word", "wrong feature format"), ("1 0:5", r"Illegal feature id: .*\[1, 3\]"),
                 ("x 1:5", 'the label "x" is no number'), ("1 2:1\0", "zero byte")]
        for parameter in "fileTrain", "fileTest":
            for line, message in wrong:
                with self.subTest(line=line, parameter=parameter):
                    self.write("model.txt", OLD)
                    self.write("wrong.txt", good + ["", line] + good)
                    run = self.fail_with(f"{parameter} wrong.txt, line 6: ",
                                         "-" + parameter, "wrong.txt")
                    self.assertRegex(run.stderr, message)
                    self.assertEqual(OLD, self.read("model.txt"))

    def test_unusable_files(self):
        (self.folder / "folder").mkdir()
        self.write("empty.txt", " \n")
        self.write("bare.txt", ["1", "2"])
        self.write("huge.txt", ["1 1:1", "2 2147483647:1"] + 4000 * ["1 1:1"])
        for name, message in (("none.txt", ": cannot be opened: No such file"),
                              ("folder", ": is a directory"), ("empty.txt", ": .* 0 rows"),
                              ("bare.txt", ": .* 2 rows of 0 columns"),
                              ("huge.txt", ", line 2: with ids up to 2147483647 .* GB")):
            with self.subTest(name):
                self.fail_with(f"fileTrain {name}{message}", "-fileTrain", name)

    def test_queries_of_a_ranking(self):
        labels = [2, 1, 0, 2, 1, 0]
        self.configure("modelType = GBRank")
        self.write("train.txt", data_lines(labels, "aabbab"))
        run = self.fail_with('train.txt, line 5: query "a" stood on line 2')
        self.assertNotIn("Size of qid", run.stderr)
        lines = data_lines(labels, "aaabbb")
        self.write("train.txt", lines[:3] + ["2 1:1"] + lines[3:])
        run = self.fail_with("train.txt, line 4: has no query id")
        self.assertIn("ERROR: Size of qid does not match the data!\n", run.stderr)

    def test_empty_samples(self):
        self.write("train.txt", data_lines(range(40)))
        self.fail_with("valSmpRt 0.02 of 40 rows", "-valSmpRt", "0.02")
        self.write("train.txt", data_lines([i % 3 for i in range(40)], [i // 4 for i in range(40)]))
        self.fail_with("valSmpRt 0.05 of 10 queries", "-valSmpRt", "0.05", "-modelType", "GBRank",
                       "-randomMode", "QUERY")
        self.succeed("-valSmpRt", "0.1", "-modelType", "GBRank", "-randomMode", "QUERY")


if __name__ == "__main__":
    unittest.main()
