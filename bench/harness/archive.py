"""The results that the repository keeps: a file per machine, from which scripts/bench and
scripts/round-cost write docs/performance.md.

    {"class": TEXT, "processor": TEXT, "machine": [LINE], "rows": [ROW], "rounds": [POINT]}

ROW is a row as rows.py makes it; POINT is described in growth.py.
"""

import json
from pathlib import Path

import machine
import report
from rows import merged
from workloads import WORKLOADS, aim_of

ROOT = Path(__file__).resolve().parent.parent.parent
FOLDER = ROOT / "bench" / "results"
DOCUMENT = ROOT / "docs" / "performance.md"


def machines():
    """The contents of all files, in the order of their names, each with its name as "id"."""
    return [{**json.loads(path.read_text(encoding="utf-8")), "id": path.stem}
            for path in sorted(FOLDER.glob("*.json"))]


def text_of(contents):
    """JSON with one line per row, point and line of text."""
    def text(value):
        if isinstance(value, list) and value:
            return "[\n  " + ",\n  ".join(text(one) for one in value) + "\n ]"
        return json.dumps(value, ensure_ascii=False)

    fields = (f" {json.dumps(key)}: {text(value)}" for key, value in contents.items())
    return "{\n" + ",\n".join(fields) + "\n}\n"


def put(new_rows, new_points, peers):
    """Adds results to the file of this machine, and returns its path. They replace those of the
    same workloads, numbers of threads and peers, or of the same points. `peers` is a text with
    their versions."""
    path = FOLDER / f"{machine.machine_id()}.json"
    old = json.loads(path.read_text(encoding="utf-8")) if path.exists() else {}
    points = merged(old.get("rounds", []), new_points, ("rows", "columns", "share", "side"))
    contents = {
        "class": machine.machine_class(), "processor": machine.processor(),
        "machine": machine.description() + ["peers: " + peers],
        "rows": merged(old.get("rows", []), new_rows), "rounds": points,
    }
    FOLDER.mkdir(exist_ok=True)
    temporary = path.with_suffix(".part")
    temporary.write_text(text_of(contents), encoding="utf-8")
    temporary.rename(path)
    return path


def write_page():
    order = [workload.name for workload in WORKLOADS]
    report.write_into(DOCUMENT, report.page(machines(), order, aim_of))
