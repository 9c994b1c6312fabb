#!/usr/bin/env python3
"""Checks that includes between the modules of the source tree go in one direction.

A module is src/<Module>.h together with the folder src/<Module>/; folders of the engine, the
command and the binding are modules too. A file may include headers of its own module and of the
modules before it in ORDER + FRONT_ENDS. Modules of a pair in APART must not include each other. A
folder that is missing from these lists is an error: add it.
"""

import re
import sys
from pathlib import Path

ORDER = ["Libdef", "Communicator", "Ranks", "claim", "DataBlock", "RandomStream", "god",
         "LossFunctions", "Links", "CheckIn", "Sort", "base", "OwnColumns",
         "engine/train", "engine/train/histogram", "engine/train/lists", "engine/score", "DataSet",
         "Node", "Tree", "Output", "Checkpoint", "Evaluation", "TrainingOptions", "ModelText",
         "TreeLearner", "sylvora_c"]
FRONT_ENDS = ["binding", "python/core", "frontend/reading", "frontend", "mpi"]
# Pairs of modules that must not include each other.
APART = [("engine/train/histogram", "engine/train/lists"), ("engine/train", "engine/score"),
         ("binding", "frontend"), ("python/core", "frontend")]
INCLUDE = re.compile(r'^\s*#\s*include\s*"([^"]+)"')


def module_of(path, root):
    """The module of a file: its name for src/<Module>.h, else its folder."""
    parts = path.relative_to(root).parts
    if parts[0] == "src" and len(parts) == 2:
        return Path(parts[1]).stem
    return "/".join(parts[1:-1] if parts[0] == "src" else parts[:-1])


def find_header(name, includer, root):
    """The file that `#include "name"` finds: next to the includer, or below src/ or frontend/."""
    for folder in (includer.parent, root / "src", root / "frontend", root / "binding"):
        header = (folder / name).resolve()
        if header.is_file():
            return header
    return None


def complaint(includer_module, header_module):
    """Why a file of one module must not include a header of the other; empty if it may."""
    for module in (includer_module, header_module):
        if module not in ORDER + FRONT_ENDS:
            return f"the module {module} is missing from the order in tests/check_includes.py"
    if header_module == includer_module:
        return ""
    for pair in APART:
        if any(includer_module.startswith(one) and header_module.startswith(other)
               for one, other in (pair, pair[::-1])):
            return f"{includer_module} and {header_module} must not include each other"
    order = ORDER + FRONT_ENDS
    if order.index(header_module) < order.index(includer_module):
        return ""
    return f"{includer_module} comes before {header_module} and must not include it"


def check_file(path, root):
    """Prints the wrong includes of a file and returns their number."""
    faults = 0
    for number, line in enumerate(path.read_text().splitlines(), 1):
        match = INCLUDE.match(line)
        if not match:
            continue
        header = find_header(match.group(1), path, root)
        if header is None:
            reason = f"{match.group(1)} does not exist"
        else:
            reason = complaint(module_of(path, root), module_of(header, root))
        if reason:
            print(f"{path.relative_to(root)}:{number}: {reason}")
            faults += 1
    return faults


def main():
    root = Path(__file__).resolve().parent.parent
    files = [path for top in ["src"] + FRONT_ENDS for path in sorted((root / top).rglob("*"))
             if path.suffix in (".h", ".cpp", ".inl")]
    faults = sum(check_file(path, root) for path in files)
    print(f"{len(files)} files, {faults} bad includes")
    return 1 if faults or not files else 0


if __name__ == "__main__":
    sys.exit(main())
