"""Scores the first test row of the breast cancer data with the model of examples/wdbc.cfg.

    PYTHONPATH=build/release/python/3.11 python3 examples/score.py
"""
import sylvora

# LoadModel returns a handle, which can score any number of rows and must be released at the end.
handle = sylvora.LoadModel("build/quickstart/wdbc.model.txt")

# One number per column, in the order of the ids 1, 2, 3, ...
with open("data/wdbc.test.txt") as file:
    label, *tokens = next(file).split()
row = [float(token.split(":")[1]) for token in tokens]

# The score, the score again (for a classification in 0 and 1: the share of votes), then the value
# of each tree.
score, _, *trees = sylvora.OnlineTesting(handle, row)
print(f"label {label}: score {score:.6g} from {len(trees)} trees, the first of them {trees[:3]}")

sylvora.ReleaseModel(handle)
