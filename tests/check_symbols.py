#!/usr/bin/env python3
"""Checks that no result depends on how the processor or the C library rounds.

    check_symbols.py --compiler CXX FILE...

Of the functions of libm, the files (programs, libraries, archives) may call only those whose
results IEEE 754 fixes. They must not contain fused multiply-add instructions.
"""

import argparse
import re
import subprocess
import sys

# Exact, or correctly rounded by IEEE 754.
ALLOWED = {"ceil", "copysign", "fabs", "floor", "fmod", "frexp", "ldexp", "lrint", "lround",
           "llrint", "llround", "modf", "nearbyint", "nextafter", "remainder", "rint", "round",
           "scalbln", "scalbn", "sqrt", "trunc", "fmin", "fmax", "fdim", "fma", "logb", "ilogb",
           "isinf", "isnan", "finite", "isfinite", "signbit", "fpclassify"}
FUSED = re.compile(r"\svfn?m(?:add|sub)\w+")


def output_of(*command):
    return subprocess.run(command, check=True, text=True, capture_output=True).stdout


def symbols(listing):
    """The names in the output of nm, without versions."""
    lines = (line.split() for line in listing.splitlines())
    return {words[-1].partition("@")[0] for words in lines if len(words) >= 2}


def mathematics(compiler):
    """All functions of libm."""
    library = output_of(compiler, "-print-file-name=libm.so.6").strip()
    names = symbols(output_of("nm", "-D", "--defined-only", library))
    assert {"exp", "log", "powf", "sqrt"} <= names, library
    return names


def fixed_by_standard(name):
    """Whether IEEE 754 fixes the function's result, in any of the three precisions."""
    return name in ALLOWED or name[:-1] in ALLOWED and name[-1] in "fl"


def undefined(file):
    return symbols(output_of("nm", *([] if file.endswith(".a") else ["-D"]), "-u", file))


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--compiler", required=True)
    parser.add_argument("files", nargs="+")
    options = parser.parse_args()
    free = {name for name in mathematics(options.compiler) if not fixed_by_standard(name)}
    faults = 0
    for file in options.files:
        used = undefined(file)
        assert "memcpy" in used, file  # a check that nm could read the file
        for name in sorted(used & free):
            print(f"{file}: {name}: the C library may choose how to round it; see "
                  "src/god/CorrectRounding.h")
            faults += 1
        fused = FUSED.findall(output_of("objdump", "-d", "--no-show-raw-insn", file))
        if fused:
            print(f"{file}: {len(fused)} fused multiply-adds, such as {fused[0].strip()}")
            faults += 1
    print(f"{len(options.files)} files, {len(free)} functions looked for, {faults} faults")
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main())
