"""Builds wheels and source distributions of `sylvora` (PEP 517, PEP 660) without other packages.

The extension module is compiled by CMake, which must be installed with a compiler. Settings, as in
``pip install . -C KEY=VALUE``:

``-D<variable>``
    sets a CMake variable.
``build-folder``
    a CMake build folder whose module is already built for this interpreter; nothing is compiled.

Without pip: ``python3 -m sylvora_build`` in this folder's parent.
"""
from __future__ import annotations

import sys
import tempfile
from collections.abc import Mapping
from pathlib import Path
from typing import Optional, Union

from ._archive import Entry, write_sdist, write_wheel
from ._cmake import built_package, compile_module, install_module
from ._metadata import (ROOT, base_name, dist_info_files, dist_info_name, metadata_text, wheel_tag)
from ._sources import source_files

Settings = Optional[Mapping[str, Union[str, list[str]]]]


def get_requires_for_build_wheel(config_settings: Settings = None) -> list[str]:
    return []


get_requires_for_build_editable = get_requires_for_build_wheel
get_requires_for_build_sdist = get_requires_for_build_wheel


def prepare_metadata_for_build_wheel(metadata_directory: str,
                                     config_settings: Settings = None) -> str:
    folder = Path(metadata_directory) / dist_info_name()
    folder.mkdir()
    for name, data in dist_info_files().items():
        (folder / name).write_bytes(data)
    return folder.name


prepare_metadata_for_build_editable = prepare_metadata_for_build_wheel


def build_wheel(wheel_directory: str, config_settings: Settings = None,
                metadata_directory: Optional[str] = None) -> str:
    built, defines = parse_settings(config_settings)
    with tempfile.TemporaryDirectory(prefix="sylvora-") as scratch:
        if built is None:
            built = Path(scratch, "build")
            compile_module(built, defines)
        package = install_module(built, Path(scratch, "staging"))
        entries = [Entry(f"sylvora/{path.relative_to(package).as_posix()}", path.read_bytes(),
                         path.suffix == ".so")
                   for path in package.rglob("*") if path.is_file()]
    return pack_wheel(wheel_directory, entries)


def build_editable(wheel_directory: str, config_settings: Settings = None,
                   metadata_directory: Optional[str] = None) -> str:
    """A wheel that leads to build/editable/, where the module is beside links to the sources."""
    built, defines = parse_settings(config_settings)
    if built is None:
        built = ROOT / "build" / "editable" / wheel_tag()
        compile_module(built, defines)
    folder = built_package(built).parent
    return pack_wheel(wheel_directory, [Entry("sylvora.pth", f"{folder}\n".encode())])


def build_sdist(sdist_directory: str, config_settings: Settings = None) -> str:
    entries = [Entry(name, (ROOT / name).read_bytes(), (ROOT / name).stat().st_mode & 0o100 != 0)
               for name in source_files()]
    entries.append(Entry("PKG-INFO", metadata_text().encode()))
    return write_sdist(Path(sdist_directory, f"{base_name()}.tar.gz"), base_name(), entries)


def pack_wheel(folder: str, entries: list[Entry]) -> str:
    details = [Entry(f"{dist_info_name()}/{name}", data)
               for name, data in dist_info_files().items()]
    return write_wheel(Path(folder, f"{base_name()}-{wheel_tag()}.whl"), entries, details)


def parse_settings(settings: Settings) -> tuple[Optional[Path], list[str]]:
    """The build folder, if one is set, and arguments for CMake."""
    folder = None
    defines = []
    for key, value in (settings or {}).items():
        values = value if isinstance(value, list) else [value]
        if key == "build-folder":
            folder = Path(values[-1]).resolve()
        elif key.startswith("-D"):
            defines += [f"{key}={one}" for one in values]
        else:
            sys.exit(f"ERROR: unknown config setting {key!r}; expected build-folder, or -DNAME for "
                     "the CMake variable NAME")
    if folder and defines:
        sys.exit(f"ERROR: {defines[0]} has no effect on what build-folder={folder} already has; "
                 "leave one of them out")
    return folder, defines
