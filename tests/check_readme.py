#!/usr/bin/env python3
"""Compiles the C++ examples of README.md without linking. Warnings are failures too.

    check_readme.py COMPILER INCLUDE-FOLDER

An example is an indented block that begins with an #include. The code after the includes becomes
the body of a function with a parameter `row`.
"""

import re
import subprocess
import sys
from pathlib import Path

README = Path(__file__).resolve().parent.parent / "README.md"
BLOCK = re.compile(r"(?:^ {4}.*\n|^\n(?= {4}))+", re.MULTILINE)


def examples(text):
    """Yields the first line number of each example, and its code."""
    for block in BLOCK.finditer(text):
        code = re.sub("^ {4}", "", block.group(), flags=re.MULTILINE)
        if code.lstrip().startswith("#include"):
            yield text.count("\n", 0, block.start()) + 1, code


def program(line, code):
    """A compilable source; #line makes the compiler report lines of README.md."""
    lines = code.splitlines()
    begin = next(i for i, text in enumerate(lines) if text and not text.startswith("#"))
    return "\n".join([f'#line {line} "{README}"', *lines[:begin],
                      "static int Example(double* row) {",
                      f'#line {line + begin} "{README}"', *lines[begin:],
                      "return 0;", "}", "int main() { return Example(nullptr); }", ""])


def main():
    compiler, include = sys.argv[1:]
    number = failed = 0
    for line, code in examples(README.read_text(encoding="utf-8")):
        number += 1
        command = [compiler, "-std=c++17", "-Wall", "-Wextra", "-Werror", "-fsyntax-only",
                   "-I", include, "-x", "c++", "-"]
        failed += subprocess.run(command, input=program(line, code), text=True,
                                 check=False).returncode != 0
    print(f"{number} examples, {failed} failed")
    return 1 if failed or not number else 0


if __name__ == "__main__":
    sys.exit(main())
