"""Trains all sides on a split and measures their scores on its test rows."""

import json
import math
from pathlib import Path

import metrics
from cases import CASES, OURS, SKLEARN, variants
from contestants import PYTHON, Failure, run_child

FOLDER = Path(__file__).resolve().parent
PROGRAMS = {"xgboost": "xgboost_models.py", "sklearn": "sklearn_models.py"}
NUM_BOUND = 1    # as without a limit on the rows of a leaf


def program_of(side):
    return "sklearn" if side == SKLEARN else "xgboost"


def scores_file(split, case, side):
    return split.folder / (plain(case.name + case.variant + side) + ".scores")


def plain(text):
    """A text as the name of a file."""
    return "".join(letter if letter.isalnum() or letter == "." else "-" for letter in text)


def train_ours(command, case, split):
    """Our settings go into a file. Classes are counted from 0, so a label map replaces -1."""
    name = plain(case.name + case.variant)
    settings = {"fileTrain": split.train, "fileTest": split.test, "absent": "zero",
                "fileModel": split.folder / f"{name}.model", "digits": 17,
                "filePred": scores_file(split, case, OURS), "numBound": NUM_BOUND,
                "randomSeed": split.seed, **case.ours}
    if settings.get("ratio") == "drawn":
        settings["ratio"] = split.data.drawn / split.data.columns
    if case.classifies():
        labels = split.folder / "labels.txt"
        labels.write_text("-1 0\n", encoding="ascii")
        settings["labelTran"] = labels
    config = split.folder / f"{name}.cfg"
    config.write_text("".join(f"{key} = {value}\n" for key, value in settings.items()),
                      encoding="ascii")
    run_child([command, config])


def job(case, split, side):
    model = {key: split.data.drawn if value == "drawn" else value
             for key, value in case.peers[side].items()}
    return {"scores": str(scores_file(split, case, side)), "classes": case.classifies(),
            "model": model}


def train_peer(program, split, cases):
    """Trains all models of a peer in one process."""
    jobs = [job(case, split, side) for case in cases for side in case.peers
            if program_of(side) == program]
    if not jobs:
        return
    work = {"train": str(split.train), "test": str(split.test), "seed": split.seed,
            "columns": split.data.columns, "jobs": jobs}
    path = split.folder / f"{program}.json"
    path.write_text(json.dumps(work), encoding="ascii")
    run_child([PYTHON, FOLDER / PROGRAMS[program], path])


def measure(case, split, side):
    """The metrics of a side, by name."""
    labels = [0.0 if case.classifies() and label == -1 else label for label in split.labels]
    text = scores_file(split, case, side).read_text(encoding="ascii")
    scores = [float(word) for word in text.split()]
    if len(scores) != len(labels) or not all(map(math.isfinite, scores)):
        raise Failure(f"{split.folder.name}, {case.name}, {side}: "
                      f"{len(scores)} scores for {len(labels)} rows, or one is not finite")
    return {metric.name: metric.value(labels, scores, **needed(metric, case, split, side))
            for metric in case.metrics}


def needed(metric, case, split, side):
    if metric.needs == "link":
        return {"link": metrics.LINKS[case.links[side]]}
    return {"queries": split.queries} if metric.needs == "queries" else {}


def results(command, split, present):
    """By case, variant and side, the metrics on a split."""
    cases = [case for case in CASES if case.task == split.data.task] + list(variants(split.data))
    for case in cases:
        train_ours(command, case, split)
    for program in present:
        train_peer(program, split, cases)
    return {(case.name, case.variant, side): measure(case, split, side) for case in cases
            for side in (OURS, *case.peers) if side == OURS or program_of(side) in present}
