"""Builds a package without pip, prints its path and size:

    PYTHONPATH=python/backend python3 -m sylvora_build wheel|sdist FOLDER [KEY=VALUE]...

FOLDER is made if it is missing. The settings KEY=VALUE are those of the package sylvora_build.
"""
from __future__ import annotations

import sys
from collections.abc import Callable
from pathlib import Path

from . import Settings, build_sdist, build_wheel

BUILDERS: dict[str, Callable[[str, Settings], str]] = {"wheel": build_wheel, "sdist": build_sdist}


def main(arguments: list[str]) -> int:
    if len(arguments) < 2 or arguments[0] not in BUILDERS:
        print(__doc__.strip(), file=sys.stderr)
        return 2
    kind, folder, *pairs = arguments
    settings = {key: value for key, _, value in (pair.partition("=") for pair in pairs)}
    Path(folder).mkdir(parents=True, exist_ok=True)
    path = Path(folder, BUILDERS[kind](folder, settings))
    print(f"{path}: {path.stat().st_size} bytes")
    return 0


sys.exit(main(sys.argv[1:]))
