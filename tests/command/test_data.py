"""Data files: equivalent forms, refused files, and the line that a message names."""

import re
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

    def test_threads_make_no_difference(self):
        """A file of several blocks, valid or with a fault far from its start."""
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

    def test_ids_above_the_model_are_ignored(self):
        """Extra columns in a file, in any order, change neither scores nor report."""
        self.model()
        wide = ["0", *data_lines(range(40), columns=5)]
        wide[7] += " 2147483647:1"
        wide[9] = " ".join([wide[9].split()[0], *reversed(wide[9].split()[1:])])
        narrow = [re.sub(r" (4|5|2147483647):\S+", "", line) for line in wide]
        self.write("wide.txt", wide)
        self.write("narrow.txt", narrow)
        for mode in "predict", "analyze":
            for threads in "1", "3":
                runs = [self.succeed("-mode", mode, "-fileTest", name + ".txt", "-filePred",
                                     name + ".out", "-numThread", threads)
                        for name in ("wide", "narrow")]
                self.assertEqual(*(self.read(name) for name in ("wide.out", "narrow.out")))
                self.assertEqual(*(run.stdout for run in runs))
                self.assertEqual(["Notice: fileTest wide.txt: 81 values are ignored, the first on "
                                  "line 2: the model has no ids above 3\n", ""],
                                 [run.stderr for run in runs])

    def test_absent_values(self):
        """Leaving a value out gives the same result as writing the missing value or zero."""
        rows = [[i % 10, i % 3, 0, i % 4] for i in range(60)]
        def lines(absent):
            return [" ".join([str(label)] + [f"{j + 1}:{v or absent}" for j, v in enumerate(values)
                                             if v or absent]) for label, *values in rows]
        outputs = ["model.txt", "p.txt", "f.txt"]
        def results(text, *options):
            self.write("data.txt", text)
            run = self.succeed("-fileTrain", "data.txt", "-fileTest", "data.txt", *options)
            for mode, out in ("predict", "p.txt"), ("analyze", "f.txt"):
                self.succeed("-mode", mode, "-fileTest", "data.txt", "-filePred", out, *options)
            return [run.stdout] + [self.read(name) for name in outputs]
        zero = results(lines("0"))
        missing = results(lines("-2147483648"))
        self.assertNotEqual(zero, missing)
        for threads in "1", "3":
            self.assertEqual(zero, results(lines(""), "-absent", "zero", "-numThread", threads))
            self.assertEqual(missing, results(lines(""), "-numThread", threads))
        self.configure("absent = zero")
        self.assertEqual(zero, results(lines("")))
        for mode in "train", "predict", "analyze":
            run = self.run_command("run.cfg", "-mode", mode, "-fileTest", "data.txt", "-filePred",
                                   "p.txt", "-absent", "none")
            self.assertEqual((1, 'ERROR: No such absent: "none", it is missing or zero!\n'),
                             (run.returncode, run.stderr))

    def test_notice_of_absent_values(self):
        """One notice per run if a file leaves out most of its values and absent is not set."""
        half = ["1 1:1 2:2", "2 3:1 4:2"] * 10
        cases = {"half": (half, None), "more": (half + ["1 1:1 1:1 1:1"], 51),
                 "most": (["1 4:0", "2 1:1", "3"] * 10, 83)}
        for name, (lines, percent) in cases.items():
            self.write("data.txt", lines)
            for mode in "train", "predict", "analyze":
                options = ["-mode", mode, "-fileTrain", "data.txt", "-fileTest", "data.txt",
                           "-filePred", "p.txt", "-numBound", "1"]
                notices = re.findall(r"(?m)^Notice: (\w+) data.txt: (\d+) % of the values are left out "
                                     ".*absent = zero.*absent = missing", self.succeed(*options).stderr)
                parameter = "fileTrain" if mode == "train" else "fileTest"
                self.assertEqual([(parameter, str(percent))] if percent else [], notices, name)
                for absent in "zero", "missing":
                    self.assertEqual("", self.succeed(*options, "-absent", absent).stderr)

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
                 ("x 1:5", 'the label "x" is not a number'), ("1 2:1\0", "zero byte")]
        for parameter in "fileTrain", "fileTest":
            for line, message in wrong:
                with self.subTest(line=line, parameter=parameter):
                    self.write("model.txt", OLD)
                    self.write("wrong.txt", good + ["", line] + good)
                    run = self.fail_with(f"{parameter} wrong.txt, line 6: ",
                                         "-" + parameter, "wrong.txt")
                    self.assertRegex(run.stderr, message)
                    self.assertEqual(OLD, self.read("model.txt"))

    def test_ids_that_the_library_misreads(self):
        """The library accepts them as another id; ids that it refuses keep its message."""
        good = data_lines(range(4))
        self.write("train.txt", good)
        self.succeed("-numBound", "1")
        wrong = [("1 1e0:5", "1e0"), ("1 3:1 1e3:5", "1e3"), ("1 5e0:1", "5e0"), ("1 7E:1", "7E"),
                 ("1 4294967297:5", "4294967297"), ("1 -4294967295:5", "-4294967295"),
                 ("1 9999999999:5", "9999999999"), ("1 1:1 2:2 3:3 2e0:7", "2e0")]
        older = [("1 3000000000:5", "Illegal feature id"), ("1 1e0:1 2:x", "value is not a digit"),
                 ("1 0:1 1e0:1", 'Illegal feature id: "0"'), ("1 -1:5", "Illegal feature id")]
        for parameter, *options in ["fileTrain"], ["fileTest", "-mode", "predict", "-filePred", "p"], \
                                   ["fileTest", "-mode", "analyze"]:
            for line, message in wrong + older:
                with self.subTest(line=line, options=options):
                    self.write("wrong.txt", good + ["", line] + good + ["1 1e2:1", "x"])
                    run = self.fail_with(f"{parameter} wrong.txt, line 6: ", *options,
                                         "-" + parameter, "wrong.txt")
                    said = run.stderr.splitlines()[-2:]
                    if (line, message) in older:
                        self.assertRegex(said[0], "^ERROR: .*" + message)
                    else:
                        self.assertIn(f'the id "{message}" is wrong: ids are whole numbers', said[-1])

    def test_lines_that_end_with_cr_alone(self):
        """A row after a CR would be lost, however the library ends its line."""
        lines = data_lines([1, 2, 3])
        self.model("-valSmpRt", "1")
        long = [line.replace(" ", ".25 ", 1) for line in lines]
        for text, line in (("\r".join(lines), 1), ("\r".join(lines) + "\r\n", 1), ("1\r2\r3\r", 1),
                           ("\r".join(long), 1), ("\n".join(lines) + "\r" + lines[0] + "\n", 3),
                           ("\r".join(["1 1:1", "2 1:2", "3 1:3"]), 1),
                           ("\n".join(lines) + "\n1 1:1 9\r1 1:1", 4)):
            for options in ["-fileTrain"], ["-mode", "predict", "-filePred", "p", "-fileTest"], \
                           ["-mode", "analyze", "-fileTest"]:
                with self.subTest(text=text, options=options):
                    self.write("wrong.txt", text)
                    self.fail_with(f"wrong.txt, line {line}: .*lines end with LF or CR LF, not with "
                                   "CR alone", *options, "wrong.txt")
        expected = self.model("-valSmpRt", "1", "-fileTrain", "train.txt")
        text = self.read("train.txt")
        for same in text.replace("\n", "\n\r"), text.replace(" ", "\r"), "\r\r" + text + "\r\r":
            self.write("train.txt", same)
            self.assertEqual(expected, self.model("-valSmpRt", "1"))

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
        run = self.fail_with('train.txt, line 5: query "a" already ended on line 2')
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
