"""The files of a source distribution."""
from __future__ import annotations

import os
import subprocess
import sys

from ._metadata import ROOT

# Folders and files of a tree without git that are not sources.
PRODUCTS = {"build", "dist", "__pycache__", ".cache", ".git", ".mypy_cache", "PKG-INFO"}


def git_listing() -> bytes:
    """The names of the files that git tracks, each followed by NUL."""
    # The tree may belong to another user, as in a container.
    command = ["git", "-c", "safe.directory=*", "-C", str(ROOT), "ls-files", "-z"]
    try:
        return subprocess.run(command, check=True, stdout=subprocess.PIPE).stdout
    except (OSError, subprocess.CalledProcessError) as error:
        sys.exit(f"ERROR: cannot list the sources in {ROOT}: {error}")


def source_files() -> list[str]:
    """The files that git tracks; without git, as in an unpacked distribution, all but products."""
    if (ROOT / ".git").exists():
        names = [os.fsdecode(name) for name in git_listing().split(b"\0") if name]
        return [name for name in names if (ROOT / name).is_file()]
    files = []
    for folder, folders, names in os.walk(ROOT):
        folders[:] = [name for name in folders if name not in PRODUCTS]
        files += [os.path.relpath(os.path.join(folder, name), ROOT) for name in names
                  if name not in PRODUCTS and not name.endswith((".pyc", ".so"))]
    return files
