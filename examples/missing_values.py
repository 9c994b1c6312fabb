"""Missing values: what counts as one, and where its rows go.

    PYTHONPATH=build/release/python/3.11 python3 examples/missing_values.py

A missing value counts as a very small number: its row goes left at every split on the column.
"""

import os

import numpy
import pandas
import sylvora
from bundled import output_folder, write_csv

folder = output_folder()
write_csv(folder, "bike")
os.chdir(folder)

# The hour and the temperature, which is lost more often when it is cold.
bike = pandas.read_csv("bike.train.csv")
y = bike["rentals"]
full = bike[["hr", "temp"]]
rng = numpy.random.default_rng(1)
lost = rng.random(len(bike)) < numpy.where(full["temp"] < 0.3, 0.6, 0.05)
print(f"{lost.sum()} of {len(lost)} temperatures are lost")

# The same table in every form that a missing value can have.
frame = full.mask(numpy.column_stack([numpy.zeros(len(lost), bool), lost]))
forms = {
    "NaN in a DataFrame": frame,
    "NaN in an array": frame.to_numpy(),
    "NA in a nullable column": frame.astype("Float64"),
    "None in lists": frame.astype(object).where(frame.notna(), None).to_numpy().tolist(),
    "masked array": numpy.ma.masked_invalid(frame.to_numpy()),
    "-1, with missing=-1": frame.fillna(-1.0),
}
params = {"n_estimators": 200, "max_depth": 5}
models = {
    form: sylvora.train(params, X, y, missing=-1 if form.startswith("-1") else numpy.nan)
    for form, X in forms.items()
}
reference = models["NaN in a DataFrame"].to_bytes(description=False)
for form, model in models.items():
    print(f"{form:24} same model: {model.to_bytes(description=False) == reference}")

# A missing value is read as -2147483648. "Do not know" and "very cold" can get different scores,
# because a threshold may lie between that number and the smallest temperature.
model = models["NaN in a DataFrame"]
print("8 o'clock, temperature missing:  ", round(model.score([8, None]), 2))
print("8 o'clock, temperature -2**31:   ", round(model.score([8, -(2**31)]), 2))
print("8 o'clock, temperature 0.1:      ", round(model.score([8, 0.1]), 2))

# Nothing needs to be filled in. Compare with the median:
test = pandas.read_csv("bike.test.csv")
full_test, y_test = test[["hr", "temp"]], test["rentals"]
lost_test = rng.random(len(test)) < numpy.where(full_test["temp"] < 0.3, 0.6, 0.05)
frame_test = full_test.mask(numpy.column_stack([numpy.zeros(len(test), bool), lost_test]))
filled = sylvora.train(params, frame.fillna(frame.median()), y)


def rmse(model, X):
    return float(((y_test - model.predict(X)) ** 2).mean() ** 0.5)


print(f"RMSE of the test rows: {rmse(model, frame_test):.2f} with missing values,", end=" ")
print(f"{rmse(filled, frame_test.fillna(frame.median())):.2f} with the median")

# A missing value can be refused instead.
try:
    sylvora.train(params, frame, y, missing=None)
except ValueError as error:
    print("missing=None:", error)

# One tree, to see where the rows go.
tree = sylvora.SylvoraTreeRegressor(max_depth=3).fit(frame, y)
sylvora.plot.tree(tree).render("missing_values", format="png", cleanup=True)
