"""Converts the bundled data sets (data/README.md) into raw files (bench/driver/RawData.h)."""

import array
from pathlib import Path

FOLDER = Path(__file__).resolve().parent.parent.parent / "data"
CLASSES = "-classes"  # the set's labels are classes; without it, they are numbers


def parse(line):
    """The label, the query (or None) and the values by id of a data line."""
    label, *rest = line.split()
    query = rest.pop(0) if rest and rest[0].startswith("qid:") else None
    values = {int(column): float(value)
              for column, value in (word.split(":") for word in rest)}
    return float(label), query, values


def write_raw(name, path):
    """Writes the training rows of a set; absent ids are zeros in the source. Queries are counted
    from 0, as in the synthetic sets."""
    file = FOLDER / f"{name.removesuffix(CLASSES)}.train.txt"
    labels, queries, rows = zip(*map(parse, file.read_text(encoding="ascii").splitlines()))
    columns = max(max(row) for row in rows)
    numbers = {query: number for number, query in enumerate(dict.fromkeys(queries))}
    ranked = queries[0] is not None
    classes = int(max(labels)) + 1 if name.endswith(CLASSES) else 0
    header = [len(rows), columns, classes, len(numbers) if ranked else 0]
    with open(path, "wb") as raw:
        array.array("i", header).tofile(raw)
        array.array("f", labels).tofile(raw)
        if ranked:
            array.array("i", [numbers[query] for query in queries]).tofile(raw)
        for row in rows:
            array.array("f", [row.get(k, 0.0) for k in range(1, columns + 1)]).tofile(raw)
