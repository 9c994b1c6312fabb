"""The same data, settings and seed give the same model, byte for byte.

    PYTHONPATH=build/release/python/3.11 python3 examples/reproducibility.py

The lines below train one model in many ways and show a hash of its bytes.
"""

import hashlib
import os
import pickle
import shutil
import subprocess
from concurrent.futures import ThreadPoolExecutor

import matplotlib.pyplot as plt
import numpy
import pandas
import scipy.sparse
import sylvora
from bundled import ROOT, output_folder, write_csv

folder = output_folder()
write_csv(folder, "bike")
os.chdir(folder)

X = pandas.read_csv("bike.train.csv").astype("float32").astype("float64")  # exact as floats, too
y = X.pop("rentals")
params = {"n_estimators": 100, "learning_rate": 0.1, "max_depth": 6, "random_state": 7}


found = set()


def show(what, data):
    """Print the hash of a model file."""
    code = hashlib.sha256(data).hexdigest()[:16]
    found.add(code)
    print(f"{what:26}", code)


def text(model):
    """Return the model file with all digits, without the description, as the command writes it."""
    return model.to_bytes(digits=17, description=False)


values = X.to_numpy()
forms = {
    "DataFrame": X,
    "array, row by row": numpy.ascontiguousarray(values),
    "array, column by column": numpy.asfortranarray(values),
    "floats of 32 bits": values.astype("float32"),
    "lists": values.tolist(),
    "sparse": scipy.sparse.csr_matrix(values),
    "Dataset": sylvora.Dataset(X),
}
for form, data in forms.items():
    show(form, text(sylvora.train(params, data, y)))
for threads in (2, 8):
    show(f"{threads} threads", text(sylvora.train(params, X, y, n_jobs=threads)))
with ThreadPoolExecutor(2) as pool:
    for model in pool.map(lambda _: sylvora.train(params, X, y), range(2)):
        show("two trainings at once", text(model))

# The command, from a text file of the same values.
command = shutil.which("sylvora", path=f"{os.environ['PATH']}:{ROOT}/build/release")
with open("bike.txt", "w") as file:
    for label, row in zip(y, values.tolist()):
        cells = " ".join(f"{i}:{value!r}" for i, value in enumerate(row, 1))
        file.write(f"{label!r} {cells}\n")
with open("bike.cfg", "w") as file:
    file.write("modelType = GBDT\nfileTrain = bike.txt\nfileModel = bike.command.model\n")
    file.write("numTree = 100\nvalShrink = 0.1\nmaxDepth = 6\nrandomSeed = 7\nnumThread = 2\n")
    file.write("digits = 17\n")
subprocess.run([command, "bike.cfg"], check=True, stdout=subprocess.DEVNULL)
with open("bike.command.model", "rb") as file:
    show("the command", file.read())
print("all the same:", len(found) == 1)

# Copies and files are exact.
model = sylvora.train(params, X, y)
model.save("bike.model")
for what, copy in (
    ("saved and loaded", sylvora.Model.load("bike.model")),
    ("pickled", pickle.loads(pickle.dumps(model))),
):
    print(f"{what:26} same scores:", numpy.array_equal(copy.predict(X), model.predict(X)))

# Only the seed changes the model, and with it the error, by chance.
test = pandas.read_csv("bike.test.csv").astype("float32").astype("float64")
y_test = test.pop("rentals")
errors = []
data = sylvora.Dataset(X)  # sorted once for all trainings
for seed in range(1, 13):
    scores = sylvora.train({**params, "random_state": seed}, data, y).predict(test)
    errors.append(float(((y_test - scores) ** 2).mean() ** 0.5))
print(f"RMSE of 12 seeds: {min(errors):.2f} to {max(errors):.2f}")

figure, ax = plt.subplots(figsize=(7, 3.2), layout="constrained")
ax.plot(range(1, 13), errors, "o")
ax.axhline(numpy.mean(errors), color="grey", linewidth=1, label="mean")
ax.legend(frameon=False)
ax.set_xticks(range(1, 13))
ax.set_xlabel("random_state")
ax.set_ylabel("RMSE of the test rows")
ax.set_title("What the seed changes")
ax.spines[["top", "right"]].set_visible(False)
figure.savefig("reproducibility.png", dpi=150)
