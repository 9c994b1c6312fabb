"""XGBoost's models: xgboost_models.py JOBS, see peer_jobs.py."""

import numpy
import xgboost

import peer_jobs

ROUNDS = 100
# The start values that our losses have; XGBoost's own is used for others.
STARTS = {
    "zero": lambda labels: 0.0,
    "median": numpy.median,
    "share": numpy.mean,
}


def score(model, seed, _, train, test):
    settings = {**model, "nthread": 1, "seed": seed, "verbosity": 0}
    start = settings.pop("start", "")
    labels = train.labels(classes=settings["objective"].startswith("binary:"))
    if start:
        settings["base_score"] = float(STARTS[start](labels))
    rows = xgboost.DMatrix(train.x, labels, nthread=1)
    if train.groups:
        rows.set_group(train.groups)
    booster = xgboost.train(settings, rows, ROUNDS)
    return booster.predict(xgboost.DMatrix(test.x, nthread=1), output_margin=True)


if __name__ == "__main__":
    peer_jobs.run(score)
