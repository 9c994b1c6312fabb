"""What the peers share: a file of jobs, all on one split, and the rows of the split.

A peer is started as: PEER JOBS. JOBS is a JSON file with the paths `train` and `test`, the number
of `columns`, and `jobs`; each job has `scores`, the file to write, `classes`, whether the label -1
becomes 0, and `model`, the settings of the peer's model. Scores are written one per line.
"""

import json
import sys
from dataclasses import dataclass

import numpy


@dataclass
class Rows:
    x: numpy.ndarray
    y: numpy.ndarray
    groups: list    # the number of rows of each query, empty without queries

    def labels(self, classes):
        return numpy.where(self.y == -1, 0, self.y) if classes else self.y


def read(path, columns):
    with open(path, encoding="ascii") as file:
        lines = [line.split() for line in file]
    x = numpy.zeros((len(lines), columns))
    groups, last = [], None
    for row, tokens in enumerate(lines):
        for key, value in (token.split(":") for token in tokens[1:]):
            if key != "qid":
                x[row, int(key) - 1] = float(value)
            elif value == last:
                groups[-1] += 1
            else:
                groups.append(1)
                last = value
    return Rows(x, numpy.array([float(tokens[0]) for tokens in lines]), groups)


def run(score):
    """`score` is called with a job's model, its seed, whether labels are classes, and the rows for
    training and for testing; it returns the scores."""
    with open(sys.argv[1], encoding="ascii") as file:
        work = json.load(file)
    train, test = (read(work[part], work["columns"]) for part in ("train", "test"))
    known = {}    # several jobs may ask for the same model
    for job in work["jobs"]:
        key = json.dumps([job["model"], job["classes"]])
        if key not in known:
            known[key] = score(job["model"], work["seed"], job["classes"], train, test)
        with open(job["scores"], "w", encoding="ascii") as file:
            file.writelines(f"{value:.17g}\n" for value in known[key])
