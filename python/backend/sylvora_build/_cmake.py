"""Compiles the extension module with CMake."""
from __future__ import annotations

import os
import shlex
import shutil
import subprocess
import sys
import sysconfig
from pathlib import Path

from ._metadata import ROOT

VERSION = "{}.{}".format(*sys.version_info[:2])


def missing_tools() -> list[tuple[str, str]]:
    """What is missing for a build, and the Debian packages that have it."""
    compilers = shlex.split(os.environ.get("CXX", ""))[:1] or ["c++", "g++", "clang++"]
    header = Path(sysconfig.get_paths()["include"], "Python.h")
    needs = [("CMake 3.25 or later", "cmake", ["cmake"]),
             ("Ninja or make", "ninja-build", ["ninja", "make"]),
             (f"a C++17 compiler ({' or '.join(compilers)})", "g++", compilers)]
    missing = [(what, package) for what, package, programs in needs
               if not any(map(shutil.which, programs))]
    if not header.is_file():
        missing.append((f"{header} of this interpreter", "python3-dev"))
    return missing


def run(*command: str) -> None:
    """Runs a command; if it fails, the build ends with a line that refers to its output."""
    status = subprocess.run(command, stdin=subprocess.DEVNULL).returncode
    if status != 0:
        sys.exit(f"ERROR: cannot build sylvora: its messages above say why this failed: "
                 f"{shlex.join(command)}")


def compile_module(folder: Path, defines: list[str]) -> None:
    """Builds the module for this interpreter in a new or older build folder."""
    missing = missing_tools()
    if missing:
        sys.exit("ERROR: cannot build sylvora: not found: {}. On Debian: apt-get install {}".format(
            ", ".join(what for what, _ in missing), " ".join(package for _, package in missing)))
    generator = []
    if shutil.which("ninja") and "CMAKE_GENERATOR" not in os.environ:
        generator = ["-G", "Ninja"]
    run("cmake", "-S", str(ROOT), "-B", str(folder), *generator, "-DCMAKE_BUILD_TYPE=Release",
        "-DSYLVORA_BUILD_TESTS=OFF", f"-DSYLVORA_PYTHONS={sys.executable}", *defines)
    run("cmake", "--build", str(folder), "--target", "sylvora_python",
        "--parallel", str(len(os.sched_getaffinity(0))))


def built_package(folder: Path) -> Path:
    """The package inside a build folder: the module and links to the sources."""
    package = folder / "python" / VERSION / "sylvora"
    if not any(package.glob("_core*.so")):
        sys.exit(f"ERROR: {folder} has no module for Python {VERSION}: build the target "
                 "sylvora_python there, with this interpreter in SYLVORA_PYTHONS")
    return package


def install_module(folder: Path, staging: Path) -> Path:
    """Installs from a build folder into an empty one; returns where the package is in it."""
    built_package(folder)
    run("cmake", "--install", str(folder), "--component", "python", "--prefix", str(staging))
    packages = list(staging.glob(f"lib/python{VERSION}/*-packages/sylvora"))
    if len(packages) != 1:
        sys.exit(f"ERROR: {folder} does not install into lib/python{VERSION}/: clear its "
                 "SYLVORA_PYTHON_INSTALL_DIR")
    return packages[0]
