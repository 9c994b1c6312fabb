#!/usr/bin/env python3
"""Runs a script of examples/ as a user would, in a new folder.

    run.py SCRIPT FOLDER

It must end with status 0, print no "False" and no warning, and save a picture named like the
script.
"""

import os
import shutil
import subprocess
import sys
from pathlib import Path


def faults(script, folder):
    """Yields what is wrong."""
    environment = {**os.environ, "MPLBACKEND": "Agg", "MPLCONFIGDIR": str(folder)}
    run = subprocess.run([sys.executable, script, folder], env=environment, text=True,
                         stdout=subprocess.PIPE, stderr=subprocess.STDOUT, check=False)
    print(run.stdout)
    if run.returncode != 0:
        yield f"status {run.returncode}"
    if "False" in run.stdout:
        yield "something that should be equal is not"
    if "Warning" in run.stdout:
        yield "a warning"
    picture = folder / (script.stem + ".png")
    if not picture.is_file() or picture.read_bytes()[:8] != b"\x89PNG\r\n\x1a\n":
        yield f"{picture.name} is missing or not a PNG"


def main():
    script, folder = map(Path, sys.argv[1:])
    shutil.rmtree(folder, ignore_errors=True)
    folder.mkdir(parents=True)
    found = list(faults(script, folder))
    print("\n".join(found), file=sys.stderr)
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main())
