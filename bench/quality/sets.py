"""The bundled data sets, and their splits into rows for training and for testing."""

import random
from dataclasses import dataclass
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent.parent
TEST_SHARE = 0.2


@dataclass(frozen=True)
class DataSet:
    """`task` is "regression", "two", "classes" or "ranking". `columns` is the number of columns,
    `drawn` the number of those that a node of a forest draws. `relabel` changes the label of a
    row."""
    name: str
    task: str
    columns: int
    drawn: int = 0
    file: str = ""
    relabel: callable = None

    def lines(self):
        """All rows, those of the bundled training file first."""
        for part in ("train", "test"):
            path = ROOT / "data" / f"{self.file or self.name}.{part}.txt"
            for line in path.read_text(encoding="ascii").splitlines():
                label, _, rest = line.partition(" ")
                yield f"{self.relabel(label) if self.relabel else label} {rest}"


SETS = (
    DataSet("bike", "regression", 12, 4),
    DataSet("wdbc", "two", 30, 5),
    DataSet("mushroom", "two", 126, 11),
    # The letters A to M against N to Z: a two-class set that is not easy to separate.
    DataSet("letter-halves", "two", 16, 4, "letter",
            lambda label: "-1" if float(label) < 13 else "1"),
    DataSet("letter", "classes", 16, 4),
    DataSet("rank", "ranking", 300),
)


@dataclass(frozen=True)
class Split:
    """One division of a set. `labels` and `queries` are those of the test rows."""
    data: DataSet
    seed: int
    folder: Path
    labels: tuple
    queries: tuple

    @property
    def train(self):
        return self.folder / "train.txt"

    @property
    def test(self):
        return self.folder / "test.txt"


def group_of(line):
    """The rows of a query stay together, and so do rows that differ at most in their label."""
    rest = line.partition(" ")[2]
    return rest.split()[0] if rest.startswith("qid:") else rest


def split(data, seed, folder):
    """Divides a set at random and writes its two files into a folder below `folder`."""
    lines = list(data.lines())
    groups = list(dict.fromkeys(group_of(line) for line in lines))
    random.Random(seed).shuffle(groups)
    held_out = set(groups[:round(TEST_SHARE * len(groups))])
    place = folder / f"{data.name}-{seed}"
    place.mkdir(parents=True, exist_ok=True)
    test = [line for line in lines if group_of(line) in held_out]
    train = [line for line in lines if group_of(line) not in held_out]
    for name, rows in (("train", train), ("test", test)):
        (place / f"{name}.txt").write_text("".join(row + "\n" for row in rows), encoding="ascii")
    return Split(data, seed, place, tuple(float(row.split()[0]) for row in test),
                 tuple(group_of(row) for row in test))
