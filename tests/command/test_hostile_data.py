"""Untrusted data files: very long lines, odd numbers and bytes, folders, pipes and devices.

Each is read, or refused with file and line, in memory proportional to its size.
"""

import os
import subprocess
import threading
import unittest

from workbench import COMMAND, OLD, Workbench


class Measured(Workbench):
    def run_measured(self, *options):
        """Exit status, standard error and peak memory in bytes of a run. The memory of this process
        at the start of the run is included."""
        with open(self.folder / "stderr", "w+b") as stderr:
            run = subprocess.Popen([COMMAND, "run.cfg", *options], cwd=self.folder,
                                   stdout=subprocess.DEVNULL, stderr=stderr)
            _, status, usage = os.wait4(run.pid, 0)
            run.returncode = os.waitstatus_to_exitcode(status)
            stderr.seek(0)
            return run.returncode, stderr.read().decode(), usage.ru_maxrss * 1024

    def assert_in_proportion(self, memory, name, values):
        """Memory is at most a few times text and values, plus a constant; more under sanitizers."""
        slack = 8 if os.environ.get("SYLVORA_SANITIZE") else 1
        text = (self.folder / name).stat().st_size
        self.assertLess(memory, slack * (7 * text + 6 * 8 * values + (64 << 20)), f"{text} bytes")


class HugeIds(Measured):
    def test_largest_id(self):
        """Training refuses rows of the largest possible width before it allocates them, if they do
        not fit. The other modes use only the model's columns."""
        self.succeed()
        for line in "1 2147483647:1", "1 2147483646:1 1:1":
            self.write("wide.txt", ["1 1:1"] * 200 + [line])
            run = self.run_command("run.cfg", "-fileTrain", "wide.txt", "-fileModel", "wide.model")
            self.assertIn(run.returncode, (0, 1), run.stderr)
            for mode in "predict", "analyze":
                status, stderr, memory = self.run_measured("-mode", mode, "-fileTest", "wide.txt",
                                                           "-filePred", "out.txt")
                self.assertEqual(0, status, stderr)
                self.assert_in_proportion(memory, "wide.txt", 3 * 201)


class LongLines(Measured):  # after HugeIds, because these tests use much memory themselves
    def test_a_million_features_in_a_line_of_100_megabytes(self):
        self.succeed()
        columns, digits = 1_000_000, "3" * 98
        line = "1 qid:a " + " ".join(f"{j}:0.{digits}" for j in range(1, columns + 1))
        self.assertGreater(len(line), 100 << 20)
        self.write("long.txt", line)
        self.write("run.cfg", self.read("run.cfg") + "maxDepth = 1\nnumTree = 1\n")
        for options in (["-fileTrain", "long.txt", "-valSmpRt", "1", "-fileModel", "wide.txt"],
                        ["-mode", "predict", "-fileTest", "long.txt", "-filePred", "p.txt"]):
            status, stderr, memory = self.run_measured(*options)
            self.assertEqual(0, status, stderr[:1000])
            self.assert_in_proportion(memory, "long.txt", columns)
        self.assertEqual(1, len(self.read("p.txt").splitlines()))
        self.write("long.txt", line + "x")
        status, stderr, memory = self.run_measured("-fileTrain", "long.txt")
        self.assertEqual(1, status)
        self.assertRegex(stderr, r"(?m)^ERROR: fileTrain long.txt, line 1: ")
        self.assert_in_proportion(memory, "long.txt", columns)

    def test_one_token_of_100_megabytes(self):
        self.write("model.txt", OLD)
        for line in "1 1:" + "7" * (100 << 20), "1 " + "7" * (100 << 20), "7" * (100 << 20) + " 1:1":
            self.write("long.txt", "1 1:1\n1 1:2\n" + line)
            status, stderr, memory = self.run_measured("-fileTrain", "long.txt")
            self.assertEqual(1, status)
            self.assertRegex(stderr, r"(?m)^ERROR: fileTrain long.txt, line 3: ")
            self.assert_in_proportion(memory, "long.txt", 3)
        self.assertEqual(OLD, self.read("model.txt"))


class OddBytes(Workbench):
    def predict(self, line):
        """The score of a line that follows a valid one, or the error message about it."""
        self.write("odd.txt", "1 1:1\n" + line)
        run = self.run_command("run.cfg", "-mode", "predict", "-fileTest", "odd.txt", "-filePred",
                               "p.txt")
        if run.returncode == 0:
            return self.read("p.txt").splitlines()[1]
        self.assertEqual(1, run.returncode, run.stderr)
        self.assertIn("ERROR: fileTest odd.txt, line 2: ", run.stderr)
        return "refused"

    def test_lines(self):
        self.succeed("-numTree", "20")
        zeros = "0" * 10000
        cases = [
            # line                          equivalent line
            ("1 1:2 2:3", "1 1:2 2:3\n"),
            ("1 1:2 2:3\r\n", "1 1:2 2:3\n"),
            ("1 qid:f\u00fcr 1:2 2:3", "1 1:2 2:3\n"),
            (f"1 1:2.{zeros}1 2:3", "1 1:2 2:3\n"),
            (f"1 1:{zeros}2 2:3", "1 1:2 2:3\n"),
            (f"1 1:{zeros}2{zeros}e-10000 2:3", "1 1:2 2:3\n"),
            (f"1 1:0.{zeros}2e10001 2:3", "1 1:2 2:3\n"),
            (f"1 1:1{zeros} 2:-1{zeros}", "1 1:1e999 2:-1e999\n"),
            (f"1 {zeros}1:2 2:3", "1 1:2 2:3\n"),
            ("1 +1:2 2:3", "1 1:2 2:3\n"),
            ("1 4294967297:2 2:3", None), ("1 -4294967295:2", None), ("1 1e0:2", None),
            ("1 0:2", None), ("1 -1:2", None), ("1 -2147483648:2", None), ("1 -2147483649:2", None),
            ("1 4294967296:2", None), (f"1 {'9' * 10000}:2", None), ("1 1:2\0", None),
            ("1\0 1:2", None), ("1 \u0661:2", None), ("1 1:\uff12", None), ("\u00fc 1:2", None),
            ("\ufeff1 1:2", None), ("1 1:0x10", None), ("1 1:nan", None), ("1 1:1,5", None),
        ]
        for line, same in cases:
            with self.subTest(line[:40]):
                self.assertEqual("refused" if same is None else self.predict(same),
                                 self.predict(line))

class NoFiles(Workbench):
    def test_folders_and_pipes(self):
        """For every input parameter: a folder is refused, a pipe is read like the file."""
        expected = self.model("-fileTest", "train.txt", "-labelTran", "map.txt")
        (self.folder / "folder").mkdir()
        self.write("map.txt", "")
        predict = ["-mode", "predict", "-fileTest", "train.txt", "-filePred", "p.txt"]
        self.succeed(*predict)
        scores = self.read("p.txt")
        cases = {"train.txt": ["run.cfg", "-fileTrain"], "model.txt": ["run.cfg", *predict, "-fileModel"],
                 "run.cfg": []}
        for name, arguments in cases.items():
            with self.subTest(name):
                run = self.run_command(*arguments, "folder")
                self.assertEqual(1, run.returncode, run.stderr)
                self.assertRegex(run.stderr, "(?mi)^error: .*(folder|model file)")
                pipe = self.folder / "pipe"
                os.mkfifo(pipe)
                content = (self.folder / name).read_bytes()
                writer = threading.Thread(target=lambda: pipe.write_bytes(content))
                writer.start()
                run = self.run_command(*arguments, "pipe")
                writer.join()
                pipe.unlink()
                self.assertEqual(0, run.returncode, run.stderr)
        self.assertEqual((expected, scores), (self.read("model.txt"), self.read("p.txt")))

    def test_devices_that_never_end(self):
        for parameter in "fileTrain", "fileTest", "labelTran":
            for device in "/dev/zero", "/dev/urandom":
                self.fail_with(f"{parameter} {device}: is a device", "-" + parameter, device)
        self.succeed("-labelTran", "/dev/null")


if __name__ == "__main__":
    unittest.main()
