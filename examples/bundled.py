"""The bundled data as tables with named columns.

    python3 examples/bundled.py             # writes them as CSV files below build/examples/

`table("bike", "train")` is the same as a pandas.DataFrame. data/README.md says where the data come
from. Your own data need none of this: begin with `pandas.read_csv`.
"""

from __future__ import annotations

import sys
from pathlib import Path

import pandas
from sklearn.datasets import load_svmlight_file

ROOT = Path(__file__).resolve().parent.parent
_MEASURED = (
    "radius texture perimeter area smoothness compactness concavity concave_points symmetry"
    " fractal_dimension"
).split()
# The columns of each set, and the name of its label. The columns of rank have no names.
_COLUMNS = {
    "bike": "season yr mnth hr holiday weekday workingday weathersit temp atemp hum windspeed"
    .split(),
    "wdbc": [f"{kind}_{what}" for kind in ("mean", "error", "worst") for what in _MEASURED],
    "rank": [f"c{i}" for i in range(1, 301)],
}
_LABEL = {"bike": "rentals", "wdbc": "diagnosis", "rank": "grade"}
_CLASSES = {-1.0: "benign", 1.0: "malignant"}


def table(name: str, part: str) -> pandas.DataFrame:
    """Return the part "train" or "test" of the set "bike", "wdbc" or "rank".

    The label is the last column; in rank it is preceded by the column query.
    """
    columns = _COLUMNS[name]
    X, y, queries = load_svmlight_file(
        ROOT / "data" / f"{name}.{part}.txt", n_features=len(columns), query_id=True
    )
    result = pandas.DataFrame(X.toarray(), columns=columns)
    if name == "rank":
        result["query"] = queries
    label = pandas.Series(y)
    result[_LABEL[name]] = label.map(_CLASSES) if name == "wdbc" else label.astype(int)
    return result


def write_csv(folder: Path, *names: str) -> None:
    """Write both parts of the sets as CSV files such as bike.train.csv."""
    for name in names:
        for part in ("train", "test"):
            table(name, part).to_csv(folder / f"{name}.{part}.csv", index=False)


def output_folder() -> Path:
    """Return the folder that the command line names, or build/examples. It exists afterwards."""
    folder = Path(sys.argv[1]) if len(sys.argv) > 1 else ROOT / "build" / "examples"
    folder.mkdir(parents=True, exist_ok=True)
    return folder


if __name__ == "__main__":
    write_csv(output_folder(), *_COLUMNS)
    print(f"CSV files: {output_folder()}")
