"""LightGBM's side of boosting: lightgbm_peer.py train data=RAW rounds= depth= leaves= shrink=
columns= rows= threads=; the figures are those of the driver (bench/driver/Jobs.h).
"""

import lightgbm
import numpy

import common
from common import now, say, say_time


def parameters(job, data):
    """No regularisation and no prior, as on our side. Trees grow leaf by leaf, but to the same
    depth and number of leaves."""
    return {
        "objective": "regression" if data.query is None else "lambdarank",
        "boost_from_average": False,
        "learning_rate": job["shrink"],
        "max_depth": job["depth"],
        "num_leaves": job["leaves"],
        "max_bin": 255,
        "min_data_in_leaf": 1,
        "min_sum_hessian_in_leaf": 1e-3 if data.query is not None else 1.0,
        "lambda_l1": 0.0,
        "lambda_l2": 0.0,
        "feature_fraction_bynode": job["columns"],
        "bagging_fraction": job["rows"],
        "bagging_freq": 1 if job["rows"] < 1 else 0,
        "num_threads": job["threads"],
        "seed": 1,
        "verbosity": -1,
    }


def train(job):
    before = common.memory_bytes("VmRSS")
    data = common.Data(job["data"])
    start = now()
    settings = parameters(job, data)
    group = None if data.query is None else numpy.bincount(data.query)
    rows = lightgbm.Dataset(data.x, data.y, group=group, params=settings, free_raw_data=False)
    booster = lightgbm.Booster(settings, rows.construct())
    say_time("prepare", now() - start)

    start = now()
    ends = []
    for _ in range(job["rounds"]):
        booster.update()
        ends.append(now())
    common.say_rounds(start, ends)
    say("peak_bytes", common.memory_bytes("VmHWM") - before)
    say("cells", data.x.size)
    predicted = booster.predict(data.x, raw_score=True, num_threads=job["threads"])
    say("misfit", common.misfit(data, predicted))


if __name__ == "__main__":
    name, given = common.settings()
    {"train": train}[name](given)
