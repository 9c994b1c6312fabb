"""Writes wheels and source distributions whose bytes depend only on what they contain."""
from __future__ import annotations

import base64
import gzip
import hashlib
import io
import os
import sys
import tarfile
import time
import zipfile
from dataclasses import dataclass
from pathlib import Path

FIRST_ZIP_TIME = 315532800  # 1980-01-01


@dataclass(frozen=True)
class Entry:
    """A file in an archive."""

    name: str
    data: bytes
    executable: bool = False

    @property
    def mode(self) -> int:
        return 0o100755 if self.executable else 0o100644


def time_of_files() -> int:
    """SOURCE_DATE_EPOCH if it is set (https://reproducible-builds.org), else a fixed time."""
    text = os.environ.get("SOURCE_DATE_EPOCH", "")
    if text and not text.isdigit():
        sys.exit(f"ERROR: SOURCE_DATE_EPOCH={text}: expected seconds since 1970")
    return max(FIRST_ZIP_TIME, int(text or 0))


def replace_file(path: Path, data: bytes) -> str:
    """Writes a file whole or not at all; returns its name."""
    unfinished = path.with_name(path.name + ".part")
    unfinished.write_bytes(data)
    os.replace(unfinished, path)
    return path.name


def record_line(entry: Entry) -> str:
    digest = base64.urlsafe_b64encode(hashlib.sha256(entry.data).digest()).decode().rstrip("=")
    return f"{entry.name},sha256={digest},{len(entry.data)}\n"


def write_wheel(path: Path, entries: list[Entry], details: list[Entry]) -> str:
    """Writes a wheel; returns its name. `details` are the files of .dist-info, which come last."""
    ordered = sorted(entries, key=lambda entry: entry.name) + details
    record = details[0].name.rpartition("/")[0] + "/RECORD"
    lines = [record_line(entry) for entry in ordered] + [f"{record},,\n"]
    ordered.append(Entry(record, "".join(lines).encode()))
    moment = time.gmtime(time_of_files())[:6]
    output = io.BytesIO()
    with zipfile.ZipFile(output, "w", zipfile.ZIP_DEFLATED, compresslevel=9) as archive:
        for entry in ordered:
            info = zipfile.ZipInfo(entry.name, moment)
            info.compress_type = zipfile.ZIP_DEFLATED
            info.create_system = 3  # Unix, where attributes are modes
            info.external_attr = entry.mode << 16
            archive.writestr(info, entry.data)
    return replace_file(path, output.getvalue())


def write_sdist(path: Path, folder: str, entries: list[Entry]) -> str:
    """Writes a .tar.gz of the entries in `folder`; returns its name."""
    moment = time_of_files()
    output = io.BytesIO()
    with tarfile.open(fileobj=output, mode="w", format=tarfile.PAX_FORMAT) as archive:
        for entry in sorted(entries, key=lambda entry: entry.name):
            info = tarfile.TarInfo(f"{folder}/{entry.name}")
            info.size = len(entry.data)
            info.mode = entry.mode & 0o777
            info.mtime = moment
            archive.addfile(info, io.BytesIO(entry.data))
    return replace_file(path, gzip.compress(output.getvalue(), 9, mtime=moment))
