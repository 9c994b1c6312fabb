"""Builds a release in build/bench."""

import subprocess
import sys
import time
from pathlib import Path

from contestants import PYTHON

ROOT = Path(__file__).resolve().parent.parent.parent
FOLDER = ROOT / "build" / "bench"


def step(name, log, command):
    """Runs a command with its output in `log`; on a terminal, shows the latest line."""
    print(f"{name} (log: {log})", flush=True)
    begin = time.monotonic()
    with open(log, "w", encoding="utf-8") as file, \
            subprocess.Popen(command, cwd=ROOT, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                             text=True) as child:
        for line in child.stdout:
            file.write(line)
            if sys.stdout.isatty():
                print(f"\r\033[K{line.rstrip()[:79]}", end="", flush=True)
    if sys.stdout.isatty():
        print("\r\033[K", end="")
    if child.returncode:
        raise SystemExit(f"ERROR: failed: {' '.join(command)}; see {log}")
    print(f"{name}: done in {time.monotonic() - begin:.0f} s", flush=True)


def driver():
    """Builds the driver and the module of our Python package; returns the driver."""
    FOLDER.mkdir(parents=True, exist_ok=True)
    step("configuring", FOLDER / "configure.log",
         ["cmake", "--preset", "release", "-B", str(FOLDER), "-DSYLVORA_BUILD_BENCH=ON",
          "-DSYLVORA_BUILD_TESTS=OFF", f"-DSYLVORA_PYTHONS={PYTHON}"])
    step("building", FOLDER / "build.log",
         ["cmake", "--build", str(FOLDER), "--target", "sylvora_bench", "sylvora_python"])
    return FOLDER / "bench" / "sylvora_bench"


def modules():
    """The folder of our Python package; "" before it is built."""
    return next(iter((FOLDER / "python").glob("3.*")), "")
