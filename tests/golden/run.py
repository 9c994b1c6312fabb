#!/usr/bin/env python3
"""Runs the command on every case folder beside this file and compares the results.

    run.py --command build/release/sylvora [--module build/release/python/3.11]
           [--case NAME]... [--threads N] [-j JOBS]

A case is a training run (case.cfg, with the options of args.txt) in a copy of its folder. Its exit
status, its files and its lines on both streams are compared with expect/. If expect/ has files for
them, a predict run, an analyze run and scoring with the Python module follow. With --threads, runs
get `-numThread N` as their last option, and only exit status and files are compared: they must not
depend on the number of threads. All cases are run; the exit status is 1 if any differs.
"""

import argparse
import difflib
import itertools
import math
import os
import re
import shutil
import subprocess
import sys
import tempfile
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

CASES = Path(__file__).resolve().parent
TIMING = re.compile(r"((?:Remaining time for|Time for) generating (?:all )?trees: )\d+( seconds)")
MISSING = -2147483648.0
DIFF_LINES = 24
ROWS_SCORED = 60
SECONDS_ALLOWED = 120


# ---- scores of the module: run in a separate interpreter, so that a crash fails only one case

def feature_row(line, dim):
    """The feature values of a data line, read as the library reads them: at most `dim` pairs, and
    nothing after a token of fewer than three characters."""
    values = [MISSING] * dim
    tokens = itertools.takewhile(lambda token: len(token) >= 3, line.split()[1:])
    pairs = (token.split(":", 1) for token in tokens)
    features = (pair for pair in pairs if pair[0] not in ("qid", "QID"))
    for name, value in itertools.islice(features, dim):
        values[int(name) - 1] = float(value)
    return values


def score(model, data):
    """Prints for each row of `data` the list that the module returns, or its error message."""
    import sylvora
    dim = int(Path(model).read_text().split(maxsplit=3)[2])
    handle = sylvora.LoadModel(model)
    rows = [line for line in Path(data).read_text().splitlines() if line.strip()]
    for line in rows[:ROWS_SCORED]:
        try:
            print(sylvora.OnlineTesting(handle, feature_row(line, dim)))
        except sylvora.error as error:
            print(error)
    sylvora.ReleaseModel(handle)


# ---- comparisons: each returns a description of the difference, or an empty string

def difference(name, expected, actual):
    """What a reader needs to see of two lists of lines that are not the same."""
    if expected == actual:
        return ""
    show = lambda lines: [repr(line) for line in lines]
    diff = difflib.unified_diff(show(expected), show(actual), f"{name}, expected", f"{name}, is",
                                n=1, lineterm="")
    head = list(itertools.islice(diff, DIFF_LINES + 1))
    return "\n".join(head[:DIFF_LINES] + (["..."] if len(head) > DIFF_LINES else []))


def compare_file(name, expected, actual):
    """Two files, byte for byte; either both or neither is there."""
    if not expected.exists():
        return f"{name}: should not have been written" if actual.exists() else ""
    if not actual.exists():
        return f"{name}: was not written"
    lines = [path.read_bytes().split(b"\n") for path in (expected, actual)]
    return difference(name, *lines)


def compare_stream(name, expected, actual):
    """Every expected line must appear, in this order; other lines may come between them."""
    remaining = iter(actual.splitlines())
    for number, line in enumerate(expected.splitlines(), 1):
        if line not in remaining:
            return (f"{name}: line {number} does not follow: {line!r}\n"
                    + difference(name, expected.splitlines(), actual.splitlines()))
    return ""


def as_value(line):
    """A list of numbers as comparable values; any other line as its text."""
    try:
        numbers = [float(item) for item in line.strip("[]").split(",")]
    except ValueError:
        return line
    return ["nan" if math.isnan(number) else number for number in numbers]


def compare_scores(expected, actual):
    expected, actual = expected.splitlines(), actual.splitlines()
    if [as_value(line) for line in expected] == [as_value(line) for line in actual]:
        return ""
    return difference("predict.txt", expected, actual)


# ---- one case

class Case:
    """One case in its working copy, and the differences found."""

    def __init__(self, folder, copy, options):
        self.expect = folder / "expect"
        self.copy = copy
        self.options = options
        self.args = (folder / "args.txt").read_text().splitlines()
        self.faults = []

    def check(self, fault):
        if fault:
            self.faults.append(fault)

    def expects(self, name):
        return (self.expect / name).exists()

    def command(self, *more, program=None):
        threads = ["-numThread", str(self.options.threads)] if self.options.threads else []
        call = [*(program or [self.options.command]), "case.cfg", *self.args, *more, *threads]
        return subprocess.run(call, cwd=self.copy, capture_output=True, text=True,
                              timeout=SECONDS_ALLOWED, check=False)

    def check_status(self, run, expected, what):
        if run.returncode != expected:
            self.check(f"{what}: exit status {run.returncode}, expected {expected}\n"
                       f"{run.stderr[-4000:]}")

    def train(self):
        run = self.command(program=self.options.ranks)
        self.check_status(run, int((self.expect / "rc").read_text()), "train")
        names = {path.name for path in self.expect.glob("*.txt*")} | {"model.txt"}
        streams = {"stdout.txt": run.stdout, "stderr.txt": run.stderr}
        later = {"scores.txt", "features.txt", "predict.txt"}
        for name in sorted(names - set(streams) - later):
            self.check(compare_file(name, self.expect / name, self.copy / name))
        if not self.options.threads:
            for name, text in streams.items():
                expected = (self.expect / name).read_text()
                self.check(compare_stream(name, expected, TIMING.sub(r"\1T\2", text)))

    def derive(self, mode, name):
        """Runs another mode, which writes `name`, and compares the file."""
        if self.expects(name):
            self.check_status(self.command("-mode", mode, "-filePred", name), 0, mode)
            self.check(compare_file(name, self.expect / name, self.copy / name))

    def score(self):
        """Scores rows with the module and compares the lists."""
        data = "test.txt" if (self.copy / "test.txt").exists() else "train.txt"
        environment = dict(os.environ, PYTHONPATH=str(self.options.module))
        if self.options.preload:
            environment["LD_PRELOAD"] = self.options.preload
            # The interpreter never frees some memory, which is no leak of ours.
            environment["ASAN_OPTIONS"] = os.environ.get("ASAN_OPTIONS", "") + ":detect_leaks=0"
        run = subprocess.run([sys.executable, __file__, "--score", "model.txt", data],
                             cwd=self.copy, env=environment, capture_output=True, text=True,
                             timeout=SECONDS_ALLOWED, check=False)
        self.check_status(run, 0, "scoring through the module")
        self.check(compare_scores((self.expect / "predict.txt").read_text(), run.stdout))

    def run(self):
        self.train()
        if (self.copy / "model.txt").exists():
            self.derive("predict", "scores.txt")
            self.derive("analyze", "features.txt")
            if self.expects("predict.txt") and self.options.module and not self.options.threads:
                self.score()


def run_case(folder, options):
    """Runs a case in a copy of its folder and returns its faults."""
    with tempfile.TemporaryDirectory(prefix="sylvora-golden-") as parent:
        copy = Path(parent) / folder.name
        shutil.copytree(folder, copy, ignore=shutil.ignore_patterns("expect"))
        case = Case(folder, copy, options)
        try:
            case.run()
        except (OSError, ValueError, subprocess.TimeoutExpired) as error:
            case.check(f"{type(error).__name__}: {error}")
        return case.faults


def parse_options():
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n", maxsplit=1)[0])
    parser.add_argument("--command", type=os.path.abspath, help="the command to run")
    parser.add_argument("--ranks", nargs=2, metavar=("PROGRAM", "RANKS"),
                        help="train by RANKS ranks, with the program of tests/ranks")
    parser.add_argument("--module", type=os.path.abspath,
                        help="folder of the Python module; without it predict.txt is not compared")
    parser.add_argument("--preload", help="libraries to preload before the module")
    parser.add_argument("--case", action="append", help="only this case (repeatable)")
    parser.add_argument("--threads", type=int, default=0, help="add -numThread to every run")
    parser.add_argument("-j", "--jobs", type=int, default=os.cpu_count(), help="cases at a time")
    parser.add_argument("--score", nargs=2, metavar=("MODEL", "DATA"),
                        help="only print the module's results for the rows of DATA")
    options = parser.parse_args()
    if not options.score and not options.command:
        parser.error("--command is needed")
    return options


def main():
    options = parse_options()
    if options.score:
        score(*options.score)
        return 0
    folders = sorted(path.parent for path in CASES.glob("*/case.cfg"))
    if options.case:
        folders = [folder for folder in folders if folder.name in options.case]
    with ThreadPoolExecutor(options.jobs) as pool:
        results = list(pool.map(lambda folder: run_case(folder, options), folders))
    failed = 0
    for folder, faults in zip(folders, results):
        if faults:
            failed += 1
            print(f"---- {folder.name}", *faults, sep="\n")
    print(f"{len(folders) - failed} cases agree, {failed} differ")
    return 1 if failed or not folders else 0


if __name__ == "__main__":
    sys.exit(main())
