"""What packages say about themselves: names, tags and the files of their .dist-info folder."""
from __future__ import annotations

import ast
import re
import sys
import sysconfig
from pathlib import Path
from typing import Any

ROOT = Path(__file__).resolve().parents[3]
FIRST_STABLE_ABI = (3, 11)


def read_project(text: str) -> dict[str, Any]:
    """The table `project` of pyproject.toml, with its subtables.

    tomllib comes with Python 3.11. This reads only what the file uses: strings without escapes and
    arrays of them, whose text is a Python literal too.
    """
    project: dict[str, Any] = {}
    table: dict[str, Any] | None = None
    pending = ""
    for line in text.splitlines():
        header = re.fullmatch(r"\[+(?:(project)(?:\.([\w-]+))?|.*?)\]+", line)
        if header and not pending:
            name, subtable = header.groups()
            table = (project.setdefault(subtable, {}) if subtable else project) if name else None
        elif table is not None and (pending or line and not line.startswith("#")):
            pending += line + "\n"
            key, _, value = pending.partition("=")
            try:
                table[key.strip()] = ast.literal_eval(value.strip())
                pending = ""
            except SyntaxError:  # an array that continues in the next line
                continue
    if pending:
        sys.exit(f"ERROR: pyproject.toml: cannot read the value of {pending.splitlines()[0]}")
    return project


def version() -> str:
    """The version of the CMake project, the only place that has it."""
    text = (ROOT / "CMakeLists.txt").read_text(encoding="utf-8")
    found = re.search(r"^project\(sylvora\s+VERSION\s+([\d.]+)", text, re.MULTILINE)
    if not found:
        sys.exit("ERROR: CMakeLists.txt: no project(sylvora VERSION ...)")
    return str(found[1])


def base_name() -> str:
    return f"sylvora-{version()}"


def dist_info_name() -> str:
    return f"{base_name()}.dist-info"


def wheel_tag() -> str:
    """The interpreters and platforms that a wheel built by this interpreter is for."""
    if sys.implementation.name != "cpython" or sysconfig.get_config_var("Py_GIL_DISABLED"):
        sys.exit("ERROR: sylvora needs CPython with its global lock; this interpreter is "
                 f"{sys.implementation.name} without it")
    if sysconfig.get_platform() != "linux-x86_64":
        sys.exit(f"ERROR: sylvora is for Linux on x86-64; this is {sysconfig.get_platform()}")
    if sys.version_info >= FIRST_STABLE_ABI:
        return f"cp{FIRST_STABLE_ABI[0]}{FIRST_STABLE_ABI[1]}-abi3-linux_x86_64"
    abi = "cp" + str(sysconfig.get_config_var("SOABI")).split("-")[1]
    return f"cp{sys.version_info[0]}{sys.version_info[1]}-{abi}-linux_x86_64"


def metadata_text() -> str:
    """The file METADATA of a wheel and PKG-INFO of a source distribution."""
    project = read_project((ROOT / "pyproject.toml").read_text(encoding="utf-8"))
    lines = ["Metadata-Version: 2.1",
             f"Name: {project['name']}",
             f"Version: {version()}",
             f"Summary: {project['description']}",
             f"Keywords: {','.join(project['keywords'])}",
             f"License: {project['license']['text']}",
             f"Requires-Python: {project['requires-python']}"]
    lines += [f"Classifier: {classifier}" for classifier in project["classifiers"]]
    for extra, packages in project["optional-dependencies"].items():
        lines.append(f"Provides-Extra: {extra}")
        lines += [f'Requires-Dist: {package}; extra == "{extra}"' for package in packages]
    lines.append("Description-Content-Type: text/markdown; charset=UTF-8")
    readme = Path(ROOT, project["readme"]).read_text(encoding="utf-8")
    return "\n".join(lines) + "\n\n" + readme


def dist_info_files() -> dict[str, bytes]:
    """The files of the folder .dist-info, less RECORD."""
    wheel = ["Wheel-Version: 1.0", f"Generator: sylvora_build {version()}",
             "Root-Is-Purelib: false", f"Tag: {wheel_tag()}"]
    return {"LICENSE": (ROOT / "LICENSE").read_bytes(),
            "METADATA": metadata_text().encode(),
            "WHEEL": "".join(f"{line}\n" for line in wheel).encode()}
