"""From a CSV file to a tuned classifier: search, early stopping, test, pictures, save and load.

    PYTHONPATH=build/release/python/3.11 python3 examples/csv_to_tuned_model.py

The table has measurements of cell nuclei; the column diagnosis is benign or malignant.
"""

import os

import matplotlib.pyplot as plt
import numpy
import pandas
import sylvora
from bundled import output_folder, write_csv
from sklearn.metrics import accuracy_score, log_loss, roc_auc_score
from sklearn.model_selection import GridSearchCV, train_test_split

folder = output_folder()
write_csv(folder, "wdbc")
os.chdir(folder)

X = pandas.read_csv("wdbc.train.csv")
y = X.pop("diagnosis")
X_test = pandas.read_csv("wdbc.test.csv")
y_test = X_test.pop("diagnosis")
print(f"{len(X)} rows, {X.shape[1]} columns, classes {sorted(y.unique())}")

# Search the shape of the trees by cross-validation, with few rounds.
search = GridSearchCV(
    sylvora.SylvoraClassifier(n_estimators=100, learning_rate=0.1),
    {"max_depth": [2, 3, 5], "max_features": [0.1, 0.3, 0.6]},
    scoring="neg_log_loss",
    cv=5,
)
search.fit(X, y)
print(f"best of the grid: {search.best_params_}, log loss {-search.best_score_:.4f}")

# Fit it with small steps, until rows set apart say that more rounds do not help.
X_fit, X_valid, y_fit, y_valid = train_test_split(X, y, test_size=0.25, stratify=y, random_state=1)
model = sylvora.SylvoraClassifier(
    n_estimators=2000, learning_rate=0.05, early_stopping_rounds=100, **search.best_params_
)
model.fit(X_fit, y_fit, eval_set={"fit": (X_fit, y_fit), "valid": (X_valid, y_valid)})
print(f"best round {model.best_iteration_}, log loss of the valid rows {model.best_score_:.4f}")

# What it is worth on rows that no decision has used.
probabilities = model.predict_proba(X_test)
print(
    f"test rows: accuracy {accuracy_score(y_test, model.predict(X_test)):.4f},"
    f" AUC {roc_auc_score(y_test, probabilities[:, 1]):.4f},"
    f" log loss {log_loss(y_test, probabilities):.4f}"
)

# Save the model, load it, and score a single row, as a service would.
model.model_.save("wdbc.model")
loaded = sylvora.Model.load("wdbc.model")
row = X_test.iloc[0].tolist()
print(f"log-odds of malignant for the first test row: {loaded.score(row):.4f} ({y_test[0]})")
same = numpy.array_equal(loaded.predict_proba(X_test), probabilities)
print("the saved model gives the same probabilities:", same)

figure, (left, right) = plt.subplots(1, 2, figsize=(12, 4.6), layout="constrained")
sylvora.plot.learning_curve(model, metrics=["logloss"], ax=left)
left.set_title("Log loss by round", pad=24)
sylvora.plot.importance(model, top=10, ax=right)
right.set_title("The ten columns with the largest gain", pad=24)
figure.savefig("csv_to_tuned_model.png", dpi=150)
