"""Ranking: the documents of a query, best first.

    PYTHONPATH=build/release/python/3.11 python3 examples/ranking.py

Each row is a document for a query, with a grade from 0 to 4. The rows of a query stand together.
"""

import os

import numpy
import pandas
import sylvora
from bundled import output_folder, write_csv

folder = output_folder()
write_csv(folder, "rank")
os.chdir(folder)


def read(name):
    """Return columns, grades and queries of a file."""
    X = pandas.read_csv(name)
    return X, X.pop("grade"), X.pop("query")


X, y, query = read("rank.train.csv")
X_test, y_test, query_test = read("rank.test.csv")

# Whole queries are set apart, to stop by: pairs of rows are only compared within a query.
apart = query > 160
valid = (X[apart], y[apart], query[apart].value_counts(sort=False))
X, y, query = X[~apart], y[~apart], query[~apart]
print(f"queries: {query.nunique()} to fit, {len(valid[2])} to stop by,", end=" ")
print(f"{query_test.nunique()} to test")

model = sylvora.SylvoraRanker(
    n_estimators=1000,
    learning_rate=0.05,
    max_depth=5,
    max_leaf_nodes=12,
    max_features=0.3,
    early_stopping_rounds=150,
    eval_metric=["pairs", "ndcg@10"],  # the first one decides: of 41 queries it is steadier
)
model.fit(X, y, qid=query, eval_set={"valid": valid})
print(f"best round {model.best_iteration_}: of the pairs of rows of a valid query,", end=" ")
print(f"{model.best_score_:.1%} are in order")
print(f"NDCG@10 of the test queries: {model.score(X_test, y_test, qid=query_test):.4f}")

# Random orders, for comparison.
rng = numpy.random.default_rng(1)
grades = [y_test[query_test == q].to_numpy() for q in query_test.unique()]


def ndcg(ranked):
    """Return NDCG@10 of a query's grades in the order of the ranking."""
    places = numpy.log2(numpy.arange(2, 12))
    gain = ((2.0 ** ranked[:10] - 1) / places[: len(ranked)]).sum()
    best = ((2.0 ** -numpy.sort(-ranked)[:10] - 1) / places[: len(ranked)]).sum()
    return gain / best if best > 0 else numpy.nan


random = [numpy.nanmean([ndcg(rng.permutation(g)) for g in grades]) for _ in range(100)]
print(f"NDCG@10 of random orders: {numpy.mean(random):.4f}")

# The documents of one query, best first.
first = query_test == query_test[0]
order = numpy.argsort(-model.predict(X_test[first]), kind="stable")
print("grades of the first test query, in the order of the model:", y_test[first].to_numpy()[order])

axes = sylvora.plot.learning_curve(model)
axes[0].set_title("Ranking: queries set apart", pad=24)
axes[0].figure.savefig("ranking.png", dpi=150)
