#!/usr/bin/env python3
"""Checks that includes go in one direction through the rooms of the source tree.

A file may include headers of its own room and of the rooms before it, nothing of the rooms after
it; the binding and the command do not know each other. A room is src/<Room>.h together with the
folder src/<Room>/. The rooms inside the engine and the command have an order of their own. A folder
that is not in an order below is an error: put it in its place.
"""

import re
import sys
from pathlib import Path

ORDER = ["Libdef", "claim", "god", "CheckIn", "Sort", "base", "engine/train",
         "engine/train/histogram", "engine/train/lists", "engine/score", "Node", "Tree", "Output",
         "TreeLearner"]
FACES = ["binding", "frontend/reading", "frontend"]
# Neighbours that know nothing of each other.
APART = [("engine/train/histogram", "engine/train/lists"), ("engine/train", "engine/score"),
         ("binding", "frontend")]
INCLUDE = re.compile(r'^\s*#\s*include\s*"([^"]+)"')


def room_of(path, root):
    """The room that a file belongs to: src/<Room>.h, or its folder below src/ or beside it."""
    parts = path.relative_to(root).parts
    if parts[0] == "src" and len(parts) == 2:
        return Path(parts[1]).stem
    return "/".join(parts[1:-1] if parts[0] == "src" else parts[:-1])


def find_header(name, includer, root):
    """The file that `#include "name"` means: beside the includer, or below src/ or frontend/."""
    for folder in (includer.parent, root / "src", root / "frontend"):
        header = (folder / name).resolve()
        if header.is_file():
            return header
    return None


def complaint(includer_room, header_room):
    """Why a file of one room must not include a header of the other; empty if it may."""
    for room in (includer_room, header_room):
        if room not in ORDER + FACES:
            return f"the room {room} has no place in the order of tests/check_includes.py"
    if header_room == includer_room:
        return ""
    for pair in APART:
        if any(includer_room.startswith(one) and header_room.startswith(other)
               for one, other in (pair, pair[::-1])):
            return f"{includer_room} and {header_room} must not know each other"
    order = ORDER + FACES
    if order.index(header_room) < order.index(includer_room):
        return ""
    return f"{includer_room} comes before {header_room} and must not use it"


def check_file(path, root):
    """Prints the bad includes of a file and returns how many there are."""
    faults = 0
    for number, line in enumerate(path.read_text().splitlines(), 1):
        match = INCLUDE.match(line)
        if not match:
            continue
        header = find_header(match.group(1), path, root)
        if header is None:
            reason = f"{match.group(1)} does not exist"
        else:
            reason = complaint(room_of(path, root), room_of(header, root))
        if reason:
            print(f"{path.relative_to(root)}:{number}: {reason}")
            faults += 1
    return faults


def main():
    root = Path(__file__).resolve().parent.parent
    files = [path for top in ["src"] + FACES for path in sorted((root / top).rglob("*"))
             if path.suffix in (".h", ".cpp", ".inl")]
    faults = sum(check_file(path, root) for path in files)
    print(f"{len(files)} files, {faults} bad includes")
    return 1 if faults or not files else 0


if __name__ == "__main__":
    sys.exit(main())
