#!/usr/bin/env python3
"""Checks that a shared library exports exactly what the public headers mark with SYLVORA_API or
SYLVORA_C_API.

    check_exports.py LIBRARY HEADER...
"""

import re
import subprocess
import sys
from pathlib import Path

COMMENT = re.compile(r"//[^\n]*|/\*.*?\*/", re.DOTALL)
MARKED_CLASS = re.compile(r"\bclass SYLVORA_API (\w+)")
MARKED_FUNCTION = re.compile(r"^(?:\[\[nodiscard\]\] )?SYLVORA_(?:C_)?API [^;(]*?(\w+)\(", re.MULTILINE)
MARKED_VARIABLE = re.compile(r"^extern SYLVORA_API [^;]*?(\w+);", re.MULTILINE)
TYPE_DATA = re.compile(r"^(?:typeinfo(?: name)?|vtable|VTT) for ")


def intended_names(headers):
    """The classes, functions and variables that the headers export."""
    names = set()
    for header in headers:
        text = COMMENT.sub("", Path(header).read_text())
        for pattern in (MARKED_CLASS, MARKED_FUNCTION, MARKED_VARIABLE):
            names.update(pattern.findall(text))
    return names


def exported_symbols(library):
    listing = subprocess.run(["nm", "-DC", "--defined-only", library], check=True, text=True,
                             capture_output=True).stdout
    return [line.split(maxsplit=2)[2] for line in listing.splitlines()]


def outer_name(symbol):
    """The class or function at namespace scope that a demangled symbol belongs to."""
    return re.match(r"(?:sylvora::)?(\w*)", TYPE_DATA.sub("", symbol)).group(1)


def main():
    intended = intended_names(sys.argv[2:])
    symbols = exported_symbols(sys.argv[1])
    stray = [symbol for symbol in symbols if outer_name(symbol) not in intended]
    absent = sorted(intended - {outer_name(symbol) for symbol in symbols})
    for symbol in stray:
        print(f"exported, but not marked SYLVORA_API: {symbol}")
    for name in absent:
        print(f"marked SYLVORA_API, but not exported: {name}")
    print(f"{len(symbols)} symbols of {len(intended)} exported names")
    return 1 if stray or absent or not symbols else 0


if __name__ == "__main__":
    sys.exit(main())
