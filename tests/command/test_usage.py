"""Usage errors, help, configuration checks, and the progress line."""

import os
import pty
import re
import subprocess
import unittest

from workbench import COMMAND, REPOSITORY, Workbench


class Usage(Workbench):
    def test_wrong_usage_is_status_2(self):
        for arguments in [], ["--nonsense"], ["run.cfg", "-mode", "dance"]:
            with self.subTest(arguments):
                run = self.run_command(*arguments)
                self.assertEqual((2, ""), (run.returncode, run.stdout))
                self.assertRegex(run.stderr, "^ERROR: .*\nUsage: sylvora CFG")
        self.assertFalse((self.folder / "model.txt").exists())

    def test_version_and_help_need_no_configuration(self):
        for option, pattern in ("--version", r"^sylvora \d+\.\d+\.\d+\n$"), \
                               ("--help", r"numTree\n.*\n +default 500; accepted: 1 or more"):
            run = self.run_command(option)
            self.assertEqual((0, ""), (run.returncode, run.stderr))
            self.assertRegex(run.stdout, pattern)

    def test_the_parameter_document_is_current(self):
        printed = self.run_command("--help=markdown").stdout
        self.assertEqual((REPOSITORY / "docs/parameters.md").read_text(), printed,
                         "renew it: sylvora --help=markdown > docs/parameters.md")
        shown = self.run_command("--help").stdout
        for key in re.findall(r"^\| `(\w+)`", printed, re.M):
            self.assertRegex(shown, rf"(?m)^  -?{key}$")

    def test_each_unknown_key_gets_one_warning(self):
        self.configure("numTre = 3", "NUMTREE = 4", "numTre = 5", "# depth = 1")
        lines = self.succeed().stderr.splitlines()
        self.assertEqual(2, len(lines), lines)
        for line, place, key in (lines[0], 7, "numTre"), (lines[1], 8, "NUMTREE"):
            self.assertRegex(line, rf'^WARNING: run.cfg, line {place}: .*"{key}".*"numTree"')

    def test_unwritten_output_is_no_success(self):
        with open("/dev/full", "w") as full:
            run = subprocess.run([COMMAND, "--help"], stdout=full, stderr=subprocess.PIPE)
        self.assertEqual((1, b"ERROR: standard output"), (run.returncode, run.stderr[:22]))


class Settings(Workbench):
    def test_integers_are_read_as_written(self):
        """The library drops exponents and wraps around beyond 32 bits; the command refuses both."""
        for value in "1e1", "7E", "+", "-", "4294967301", "-4294967291", "9" * 30:
            with self.subTest(value):
                self.write("cfg", self.read("run.cfg") + f"# 7\n  numTree = {value} 8\nnumTree = 5\n")
                run = self.run_command("cfg")
                self.assertEqual(1, run.returncode)
                self.assertRegex(run.stderr, f'^ERROR: cfg, line 8: numTree "{re.escape(value)}" '
                                             r"would be read as -?\d+: write an integer")
                self.fail_with(f'-numTree "{re.escape(value)}" would be read as', "-numTree", value,
                               "-numTree", "5", "-mode", "none")
        self.fail_with('-numTree "" would be read as 0', "-numTree", "")
        self.fail_with("-numTree is not a digit!", "-numBound", "1e1", "-numTree", "1.5")
        expected = self.model("-numTree", "5")
        for value in "+5", "005", "+0" + 99 * "0" + "5":
            self.assertEqual(expected, self.model("-numTree", value))

    def test_lines_that_end_with_cr_alone(self):
        """Settings and labels after a CR would be lost silently."""
        text = self.read("run.cfg")
        expected = self.model("-labelTran", "map")
        for name, wrong, line in (("cfg", text.replace("\n", "\r"), 1),
                                  ("cfg", "# a\r" + text.replace("\n", "\r"), 1),
                                  ("cfg", text + "maxLeaf = 5\rmaxDepth = 1\n", 7),
                                  ("map", "0 1\r2 3\r", 1)):
            self.write("cfg", text)
            self.write(name, wrong)
            run = self.run_command("cfg", "-labelTran", "map")
            self.assertEqual(1, run.returncode)
            self.assertRegex(run.stderr, rf"(?m)^ERROR: (labelTran )?{name}, line {line}: has text "
                                         "after a carriage return: lines end with LF or CR LF")
        self.write("map", "")
        for ends in "\r\n", "\n\r":
            self.write("cfg", text.replace("\n", ends))
            self.assertEqual(0, self.run_command("cfg", "-labelTran", "map").returncode)
            self.assertEqual(expected, self.read("model.txt"))

    def test_pipes_are_checked_like_files(self):
        text = self.read("run.cfg")
        for more, message in (("numTre = 1\n", "WARNING: /dev/stdin, line 7: no parameter"),
                              ("numTree = 1e9\n", 'ERROR: /dev/stdin, line 7: numTree "1e9"'),
                              ("maxLeaf = 5\rnumTree = 1\n", "ERROR: /dev/stdin, line 7: has ")):
            run = self.run_command("/dev/stdin", input=text + more)
            self.assertRegex(run.stderr, "^" + message)
        run = self.run_command("run.cfg", "-labelTran", "/dev/stdin", input="0 1\r2 3\r")
        self.assertRegex(run.stderr, "^ERROR: labelTran /dev/stdin, line 1: has text")


class Progress(Workbench):
    def on_terminal(self, *options):
        try:
            ours, theirs = pty.openpty()
        except OSError as none:  # a bare chroot has no /dev/pts
            self.skipTest(f"no terminal available: {none}")
        run = subprocess.Popen([COMMAND, "run.cfg", *options], cwd=self.folder, stderr=theirs,
                               stdout=subprocess.DEVNULL)
        os.close(theirs)
        shown = b""
        try:
            while piece := os.read(ours, 4096):
                shown += piece
        except OSError:  # EIO: the other side of the terminal is closed
            pass
        os.close(ours)
        self.assertEqual(0, run.wait())
        return shown.decode()

    def test_one_line_on_a_terminal(self):
        cases = ((["-numTree", "12"], "round", 12),
                 (["-modelType", "RandomForest", "-fRegCls", "REG", "-numTree", "4"], "tree", 4))
        for options, unit, total in cases:
            shown = self.on_terminal(*options)
            drawn = [line for line in shown.split("\r") if line.strip()]
            self.assertRegex(drawn[0], rf"^{unit} 1 of {total}, \d+ %, \d+ s left *$")
            self.assertRegex(drawn[-1], rf"^{unit} {total} of {total}, 100 %, 0 s left *$")
            self.assertLess(len(drawn), total)
            self.assertTrue(shown.endswith("\r\n"), repr(shown))

    def test_silence_elsewhere(self):
        self.assertEqual("", self.succeed().stderr)
        self.configure("fPrint = true")
        self.assertEqual("", self.on_terminal())


if __name__ == "__main__":
    unittest.main()
