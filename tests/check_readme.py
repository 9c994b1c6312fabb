#!/usr/bin/env python3
"""Compiles the C++ examples of the documents without linking. Warnings are failures too.

    check_readme.py COMPILER INCLUDE-FOLDER

An example is an indented block that begins with an #include. The code after the includes becomes
the body of a function with a parameter `row`.
"""

import re
import subprocess
import sys
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
DOCUMENTS = [ROOT / "README.md", ROOT / "docs" / "arrays.md"]
BLOCK = re.compile(r"(?:^ {4}.*\n|^\n(?= {4}))+", re.MULTILINE)


def examples(text):
    """Yields the first line number of each example, and its code."""
    for block in BLOCK.finditer(text):
        code = re.sub("^ {4}", "", block.group(), flags=re.MULTILINE)
        if code.lstrip().startswith("#include"):
            yield text.count("\n", 0, block.start()) + 1, code


def program(document, line, code):
    """A compilable source; #line makes the compiler report lines of the document."""
    lines = code.splitlines()
    begin = next(i for i, text in enumerate(lines) if text and not text.startswith("#"))
    return "\n".join([f'#line {line} "{document}"', *lines[:begin],
                      "static int Example([[maybe_unused]] double* row) {",
                      f'#line {line + begin} "{document}"', *lines[begin:],
                      "return 0;", "}", "int main() { return Example(nullptr); }", ""])


def main():
    compiler, include = sys.argv[1:]
    number = failed = 0
    for document, line, code in [(document, *example) for document in DOCUMENTS
                                 for example in examples(document.read_text(encoding="utf-8"))]:
        number += 1
        command = [compiler, "-std=c++17", "-Wall", "-Wextra", "-Werror", "-fsyntax-only",
                   "-I", include, "-x", "c++", "-"]
        failed += subprocess.run(command, input=program(document, line, code), text=True,
                                 check=False).returncode != 0
    print(f"{number} examples, {failed} failed")
    return 1 if failed or not number else 0


if __name__ == "__main__":
    sys.exit(main())
