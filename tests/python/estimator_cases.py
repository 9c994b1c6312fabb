"""Data, labels and estimators for the tests of the estimators."""

import importlib
import unittest

try:
    import numpy as np
    for name in ("pandas", "sklearn"):
        importlib.import_module(name)
except ImportError as error:
    raise unittest.SkipTest(str(error))

import sylvora

REGRESSORS = (
    sylvora.SylvoraRegressor,
    sylvora.SylvoraForestRegressor,
    sylvora.SylvoraTreeRegressor,
)
CLASSIFIERS = (
    sylvora.SylvoraClassifier,
    sylvora.SylvoraForestClassifier,
    sylvora.SylvoraTreeClassifier,
)
RNG = np.random.RandomState(5)
X = RNG.normal(size=(240, 4))
Y = X[:, 0] * 2 + np.sin(3 * X[:, 1]) + RNG.normal(size=240) / 5
TWO = np.where(Y > 0.3, "yes", "no")
THREE = np.array(["b", "c", "a"])[np.digitize(Y, [-1, 1])]
ODDS = dict(n_estimators=12, max_depth=3, learning_rate=0.3)


def fit(cls, features=X, labels=None, **params):
    few = {"n_estimators": 12} if "Tree" not in cls.__name__ else {}
    if labels is None:
        labels = THREE if cls in CLASSIFIERS else Y
    return cls(**{**few, **params}).fit(features, labels)
