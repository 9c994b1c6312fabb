"""Shared by the tests of the command: a folder per test, runs of the command, small data."""

import os
import random
import subprocess
import tempfile
import unittest
from pathlib import Path

COMMAND = os.path.abspath(os.environ["SYLVORA_COMMAND"])
REPOSITORY = Path(__file__).resolve().parents[2]
OLD = "an older file\n"  # must still be there after a failed run


def data_lines(labels, qids=None, columns=3, seed=7):
    """A line per label; the first column follows the label, the others are noise."""
    noise = random.Random(seed)
    lines = []
    for i, label in enumerate(labels):
        values = [label + noise.gauss(0, 0.8)] + [noise.random() for _ in range(columns - 1)]
        head = f"{label} qid:{qids[i]}" if qids else f"{label}"
        lines.append(" ".join([head] + [f"{j + 1}:{v:.4f}" for j, v in enumerate(values)]))
    return lines


class Workbench(unittest.TestCase):
    """Each test has its own folder with data and a configuration for a small GBDT."""

    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = Path(folder.name)
        self.write("run.cfg", "modelType = GBDT\nnumTree = 5\nnumThread = 1\nmaxLeaf = 6\n"
                              "fileTrain = train.txt\nfileModel = model.txt\n")
        self.write("train.txt", data_lines([i % 10 for i in range(60)]))

    def write(self, name, content):
        content = content if isinstance(content, str) else "".join(l + "\n" for l in content)
        (self.folder / name).write_bytes(content.encode())

    def read(self, name):
        return (self.folder / name).read_text()

    def configure(self, *lines):
        self.write("run.cfg", self.read("run.cfg") + "\n".join(lines) + "\n")

    def run_command(self, *arguments, **options):
        return subprocess.run([COMMAND, *arguments], cwd=self.folder, text=True, timeout=120,
                              capture_output=True, **options)

    def succeed(self, *options, **settings):
        run = self.run_command("run.cfg", *options, **settings)
        self.assertEqual(0, run.returncode, run.stderr)
        return run

    def fail_with(self, pattern, *options, status=1):
        """Checks that the run ends with `status` and an "ERROR: " line that matches `pattern`."""
        run = self.run_command("run.cfg", *options)
        self.assertEqual(status, run.returncode, run.stderr)
        self.assertRegex(run.stderr, f"(?m)^ERROR: .*{pattern}")
        return run

    def model(self, *options, **settings):
        """Runs the command; returns the content of the model file."""
        self.succeed(*options, **settings)
        return self.read("model.txt")

    def metrics(self, run):
        return dict(line.split(": ") for line in run.stdout.splitlines())
