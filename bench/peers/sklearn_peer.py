"""scikit-learn's side of the forests: sklearn_peer.py train data=RAW trees= leaf= columns= rows=
threads=; the figures are those of the driver (bench/driver/Jobs.h).

Its forests draw rows with replacement, or take all of them. The bootstrap sample is as large as our
sample, but has fewer distinct rows.
"""

from sklearn.ensemble import RandomForestClassifier, RandomForestRegressor

import common
from common import now, say, say_time


def train(job):
    before = common.memory_bytes("VmRSS")
    data = common.Data(job["data"])
    kind = RandomForestClassifier if data.classes else RandomForestRegressor
    forest = kind(n_estimators=job["trees"], max_features=job["columns"],
                  max_samples=job["rows"] if job["rows"] < 1 else None,
                  min_samples_split=job["leaf"] + 1, n_jobs=job["threads"], random_state=1)
    start = now()
    forest.fit(data.x, data.y)
    say_time("fit", now() - start)
    say("rounds", job["trees"])
    say("peak_bytes", common.memory_bytes("VmHWM") - before)
    say("cells", data.x.size)
    say("misfit", common.misfit(data, forest.predict(data.x[:2000])))


if __name__ == "__main__":
    name, given = common.settings()
    {"train": train}[name](given)
