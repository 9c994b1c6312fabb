#!/usr/bin/env python3
"""Runs the Python code of the documents, and compares what it prints with what they show.

    check_guide.py FOLDER

The code is in blocks fenced as python. Those of a document run in order with the same names, in a
new folder that has the CSV files of examples/bundled.py. A block fenced as text, directly behind
one of code, is what that prints.
"""

import contextlib
import difflib
import io
import os
import re
import shutil
import sys
import traceback
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
DOCUMENTS = ["README.md", "docs/python.md", "docs/python-objectives.md"]
BLOCK = re.compile(r"^```python\n(.*?)^```\n(?:\n```text\n(.*?)^```\n)?", re.MULTILINE | re.DOTALL)


def run(code, place, names):
    """Returns what the code prints, with the traceback of an exception."""
    output = io.StringIO()
    try:
        with contextlib.redirect_stdout(output), contextlib.redirect_stderr(output):
            exec(compile(code, place, "exec"), names)  # noqa: S102
    except Exception:  # noqa: BLE001
        output.write(traceback.format_exc())
    return output.getvalue()


def check(document):
    """Prints the faults of a document; returns the numbers of blocks and of faults."""
    text = (ROOT / document).read_text(encoding="utf-8")
    names = {"__name__": "__main__"}
    number = failed = 0
    for block in BLOCK.finditer(text):
        number += 1
        line = text.count("\n", 0, block.start(1)) + 1
        place = f"{document}:{line}"
        found = run("\n" * (line - 1) + block[1], place, names)
        if found != (block[2] or ""):
            failed += 1
            print(f"{place}: printed (+) differs from the document (-)")
            wanted = (block[2] or "").splitlines()
            print("\n".join(difflib.ndiff(wanted, found.splitlines())))
    return number, failed


def main():
    folder = Path(sys.argv[1])
    shutil.rmtree(folder, ignore_errors=True)
    folder.mkdir(parents=True)
    sys.path.insert(0, str(ROOT / "examples"))
    import bundled

    bundled.write_csv(folder, "bike", "wdbc", "rank")
    os.chdir(folder)
    counts = [check(document) for document in DOCUMENTS]
    failed = sum(faults for _, faults in counts)
    print(f"{sum(number for number, _ in counts)} blocks of code, {failed} failed")
    return 1 if failed or any(number == 0 for number, _ in counts) else 0


if __name__ == "__main__":
    sys.exit(main())
