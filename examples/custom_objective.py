"""Objectives and metrics of your own.

    PYTHONPATH=build/release/python/3.11 python3 examples/custom_objective.py

An objective gets the labels and the scores so far, and returns the NEGATIVE gradients of the loss,
and its second derivatives if the leaves shall take Newton steps.
"""

import os

import matplotlib.pyplot as plt
import numpy
import pandas
import sylvora
from bundled import output_folder, write_csv
from sklearn.model_selection import train_test_split

folder = output_folder()
write_csv(folder, "bike", "wdbc")
os.chdir(folder)

X = pandas.read_csv("bike.train.csv")
y = X.pop("rentals")
params = {"n_estimators": 100, "learning_rate": 0.1, "max_depth": 6}


# Squared error: exactly the loss of the library.
def squared_error(y, scores):
    return y - scores


own = sylvora.train(params, X, y, objective=squared_error)
built_in = sylvora.train({**params, "loss": "squared_error"}, X, y)
same = numpy.array_equal(own.predict(X), built_in.predict(X))
print("squared error, same predictions as the library's, bit for bit:", same)

# Log loss, with second derivatives and the library's start: exactly the loss of the library, too.
# |g| (1 - |g|) is p (1 - p), computed as the library does it.
cells = pandas.read_csv("wdbc.train.csv")
malignant = (cells.pop("diagnosis") == "malignant").astype(float)


def log_loss(y, scores):
    gradients = y - sylvora.expit(scores)
    return gradients, abs(gradients) * (1 - abs(gradients))


own = sylvora.train(
    params, cells, malignant, objective=log_loss, base_score=sylvora.log_odds(malignant)
)
built_in = sylvora.train({**params, "loss": "log_loss"}, cells, malignant)
same = numpy.array_equal(own.predict(cells), built_in.predict(cells))
print("log loss, same predictions as the library's, bit for bit:", same)


# Something that the library does not have: expectiles. They are to the mean what quantiles are to
# the median: errors above and below the prediction weigh differently.
def expectile(share):
    def objective(y, scores):
        weights = numpy.where(y > scores, share, 1 - share)
        return weights * (y - scores), weights

    return objective


# A metric of your own for it: smaller is better.
def expectile_loss(share):
    def metric(y, scores):
        return float(numpy.mean(numpy.where(y > scores, share, 1 - share) * (y - scores) ** 2))

    metric.__name__ = f"expectile{share}"
    return metric


X_test = pandas.read_csv("bike.test.csv")
y_test = X_test.pop("rentals")
X_fit, X_valid, y_fit, y_valid = train_test_split(X, y, test_size=0.2, random_state=1)
figure, ax = plt.subplots(figsize=(7, 4.2), layout="constrained")
for share, colour in ((0.9, "tab:red"), (0.5, "black"), (0.1, "tab:blue")):
    model = sylvora.train(
        {**params, "n_estimators": 1000, "early_stopping_rounds": 50},
        X_fit,
        y_fit,
        objective=expectile(share),
        base_score=y_fit.mean(),
        eval_set={"valid": (X_valid, y_valid)},
        eval_metric=expectile_loss(share),
    )
    scores = model.predict(X_test)
    print(
        f"expectile {share}: best round {model.best_iteration_}, loss {model.best_score_:.1f},"
        f" {numpy.mean(y_test <= scores):.1%} of the test rows at or below it"
    )
    by_hour = pandas.Series(scores).groupby(X_test["hr"]).mean()
    ax.plot(by_hour.index, by_hour, color=colour, label=f"expectile {share}")
means = y_test.groupby(X_test["hr"]).mean()
ax.plot(means, "o", color="grey", markersize=4, label="mean of the test rows")
ax.set_xticks(range(0, 24, 3))
ax.set_xlabel("hour of the day")
ax.set_ylabel("bicycles rented, mean of the hour")
ax.set_title("Expectiles: an objective of one's own")
ax.spines[["top", "right"]].set_visible(False)
ax.legend(frameon=False)
figure.savefig("custom_objective.png", dpi=150)
