"""From a table to a good model in six lines, and a look at what the model is worth.

    PYTHONPATH=build/release/python/3.11 python3 examples/first_minute.py

The table has the bicycles rented in each hour of two years, with the time and the weather.
"""

import os

import numpy
from bundled import output_folder, write_csv

folder = output_folder()
write_csv(folder, "bike")
os.chdir(folder)

# The six lines.
import pandas, sylvora

X, X_test = pandas.read_csv("bike.train.csv"), pandas.read_csv("bike.test.csv")
y, y_test = X.pop("rentals"), X_test.pop("rentals")
model = sylvora.SylvoraRegressor(max_depth=8, max_leaf_nodes=64).fit(X, y)
model.model_.save("bike.model")
print(f"{model.score(X_test, y_test):.4f} of the test rows' variance explained (R2)")

# What it is worth: the error in bicycles per hour, beside that of guessing the mean.
error = y_test - model.predict(X_test)
guess = y_test - y.mean()
print(f"RMSE {(error**2).mean() ** 0.5:.2f}; of the mean, {(guess**2).mean() ** 0.5:.2f}")

# The file gives the same predictions, bit for bit.
loaded = sylvora.Model.load("bike.model")
same = numpy.array_equal(loaded.predict(X_test), model.predict(X_test))
print("the saved model predicts the same:", same)

# The error by the number of rounds.
ax = sylvora.plot.staged_error(model, sets={"train": (X, y), "test": (X_test, y_test)})
ax.set_title("Bicycles rented in an hour", pad=24)
ax.figure.savefig("first_minute.png", dpi=150)
