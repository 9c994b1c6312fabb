"""The Python packages, ours and the peers', in the same jobs: package.py JOB side=NAME data=RAW
key=value... The figures are those of the driver (bench/driver/Jobs.h).

  fit      threads= rounds= depth= leaves= bound= shrink= share=   all of the training: from arrays
           to an estimator or a model
  predict  threads= [model=]   the whole array in one call
  single   [model=]            row after row: for us all rows, each a list of floats; for peers the
                               first 100, each an array

Peers train a model of the same size first; ours is read from a file. With fewer columns per node
and rows per tree than all, scikit-learn's side has no such settings and uses all.
"""

import common
from common import now, say, say_time


def our_estimator(job):
    import sylvora
    return sylvora.SylvoraRegressor(
        n_estimators=job["rounds"], max_depth=job["depth"], max_leaf_nodes=job["leaves"],
        min_samples_split=job["bound"] + 1, learning_rate=job["shrink"], subsample=job["share"],
        max_features=job["share"], n_jobs=job["threads"])


def xgboost_estimator(job):
    import xgboost
    return xgboost.XGBRegressor(
        n_estimators=job["rounds"], max_depth=job["depth"], learning_rate=job["shrink"],
        subsample=job["share"], colsample_bynode=job["share"], tree_method="hist", max_bin=256,
        min_child_weight=1, reg_lambda=0, base_score=0.0, n_jobs=job["threads"])


def sklearn_estimator(job):
    from sklearn.ensemble import HistGradientBoostingRegressor
    return HistGradientBoostingRegressor(
        max_iter=job["rounds"], max_depth=job["depth"], max_leaf_nodes=job["leaves"],
        learning_rate=job["shrink"], min_samples_leaf=1, early_stopping=False, random_state=1)


ESTIMATORS = {"sylvora": our_estimator, "xgboost": xgboost_estimator, "sklearn": sklearn_estimator}


def fit(job):
    data = common.Data(job["data"])
    label = data.y.astype(float)
    estimator = ESTIMATORS[job["side"]](job)  # imports its package
    before = common.memory_bytes("VmRSS")
    start = now()
    estimator.fit(data.x, label)
    say_time("fit", now() - start)
    say("peak_bytes", common.memory_bytes("VmHWM") - before)
    say("cells", data.x.size)
    say("misfit", common.misfit(data, estimator.predict(data.x)))


def predictor(job, data):
    """A function that scores an array of rows, for many rows or for one."""
    if job["side"] == "sylvora":
        import sylvora
        model = sylvora.Model.load(job["model"])
        return lambda x: model.predict(x, n_jobs=job["threads"])
    estimator = ESTIMATORS[job["side"]](job).fit(data.x[:20_000], data.y[:20_000])
    if job["side"] == "sklearn":
        return estimator.predict
    booster = estimator.get_booster()
    booster.set_param({"nthread": job["threads"]})
    return lambda x: booster.inplace_predict(x, predict_type="margin")


def predict(job):
    data = common.Data(job["data"])
    score = predictor(job, data)
    say_time("batch", common.time_per_call(lambda: score(data.x)) / len(data.x))


def single(job):
    data = common.Data(job["data"])
    x = data.x.astype(float)
    if job["side"] == "sylvora":
        import sylvora
        score = sylvora.Model.load(job["model"]).score
        rows = x.tolist()
    else:
        score = predictor(job, data)
        rows = [row.reshape(1, -1) for row in x[:100]]

    def score_all():
        for row in rows:
            score(row)

    say_time("single", common.time_per_call(score_all) / len(rows))


if __name__ == "__main__":
    name, given = common.settings()
    {"fit": fit, "predict": predict, "single": single}[name](given)
