"""XGBoost's side of the workloads: xgboost_peer.py JOB key=value... The jobs and figures are those
of the driver (bench/driver/Jobs.h).

  train   data=RAW method=hist|exact rounds= depth= shrink= columns= rows= threads=
          [model=FILE]
  batch   data=RAW model=FILE threads=
  single  data=RAW model=FILE
  load    model=FILE
  read    text=FILE threads=
"""

import os

import numpy
import xgboost

import common
from common import now, say, say_time


def parameters(job, data):
    """No regularisation and no prior, as on our side. No limit on leaves is needed: a tree of
    depth 6 has at most 64, which is our limit."""
    return {
        "objective": "reg:squarederror" if data.query is None else "rank:pairwise",
        "base_score": 0.0,
        "tree_method": job["method"],
        "eta": job["shrink"],
        "max_depth": job["depth"],
        "max_bin": 256,
        "min_child_weight": 1,
        "reg_lambda": 0,
        "reg_alpha": 0,
        "gamma": 0,
        "colsample_bynode": job["columns"],
        "subsample": job["rows"],
        "nthread": job["threads"],
        "seed": 1,
        "verbosity": 0,
    }


def matrix(job, data):
    """The data in the form with which the method is fastest: hist quantises them here."""
    form = xgboost.QuantileDMatrix if job["method"] == "hist" else xgboost.DMatrix
    return form(data.x, data.y, nthread=job["threads"])


def train(job):
    before = common.memory_bytes("VmRSS")
    data = common.Data(job["data"])
    start = now()
    rows = matrix(job, data)
    if data.query is not None:
        rows.set_group(numpy.bincount(data.query))
    booster = xgboost.Booster(parameters(job, data), [rows])
    say_time("prepare", now() - start)

    start = now()
    ends = []
    for number in range(job["rounds"]):
        booster.update(rows, number)
        ends.append(now())
    common.say_rounds(start, ends)
    say("peak_bytes", common.memory_bytes("VmHWM") - before)
    say("cells", data.x.size)
    predicted = booster.inplace_predict(data.x, predict_type="margin")
    say("misfit", common.misfit(data, predicted))
    if "model" in job:
        booster.save_model(job["model"])


def load_booster(job):
    booster = xgboost.Booster({"nthread": job.get("threads", 1)})
    booster.load_model(job["model"])
    return booster


def score(job, rows_of):
    """The time per row. `rows_of` divides the data into the pieces that one call scores each."""
    booster = load_booster(job)
    parts = rows_of(common.Data(job["data"]).x)

    def predict():
        for part in parts:
            booster.inplace_predict(part, predict_type="margin")

    return common.time_per_call(predict) / sum(len(part) for part in parts)


def batch(job):
    say_time("batch", score(job, lambda x: [x]))


def single(job):
    """Two thousand rows are enough, because the time is mostly that of the call, not of the row."""
    say_time("single", score(job, lambda x: [row.reshape(1, -1) for row in x[:2000]]))


def load(job):
    say_time("load", common.time_per_call(lambda: load_booster(job)))


def read(job):
    start = now()
    xgboost.DMatrix(job["text"] + "?format=libsvm&indexing_mode=1", nthread=job["threads"])
    say_time("read", now() - start)
    say("file_bytes", os.path.getsize(job["text"]))


if __name__ == "__main__":
    name, given = common.settings()
    {"train": train, "batch": batch, "single": single, "load": load, "read": read}[name](given)
