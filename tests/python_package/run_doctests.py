#!/usr/bin/env python3
"""Runs the examples in the docstrings of all modules of the package `sylvora`.

Modules that need a package that is not installed are skipped, with a line that names it.
"""
import doctest
import importlib
import os
import pkgutil
import sys
import tempfile

import sylvora

OPTIONS = doctest.ELLIPSIS | doctest.NORMALIZE_WHITESPACE


def modules():
    """The package and its modules, as far as what they need is installed."""
    yield sylvora
    for found in pkgutil.walk_packages(sylvora.__path__, "sylvora."):
        try:
            yield importlib.import_module(found.name)
        except ModuleNotFoundError as error:
            if (error.name or "sylvora").partition(".")[0] == "sylvora":
                raise
            print(f"skipped {found.name}: {error}")


def main():
    os.environ["MPLBACKEND"] = "Agg"
    failed = examples = 0
    for module in modules():
        # Examples may write files.
        with tempfile.TemporaryDirectory() as folder:
            os.chdir(folder)
            result = doctest.testmod(module, optionflags=OPTIONS)
            os.chdir("/")
        print(f"{module.__name__}: {result.attempted} examples")
        failed += result.failed
        examples += result.attempted
    print(f"{examples} examples, {failed} failed")
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
