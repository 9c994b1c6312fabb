"""Tree ensembles, trained by exact greedy splits and reproducible byte for byte.

Scoring:
    Model                   a trained or loaded model: ``Model.load(path).score(row)``
    LoadModel, OnlineTesting, ReleaseModel
                            the older functions, with models by number
Training (needs NumPy):
    train, cv, Dataset      from parameters and data to a Model
    callbacks               early stopping, progress, time limit, copies of the model, a log
    expit, log_odds         for objectives of your own
scikit-learn's interface (needs scikit-learn):
    SylvoraRegressor, SylvoraClassifier, SylvoraRanker, SylvoraForestRegressor,
    SylvoraForestClassifier, SylvoraTreeRegressor, SylvoraTreeClassifier
Pictures (needs Matplotlib; trees need graphviz):
    plot
A cluster (needs dask and distributed; import it by name):
    sylvora.dask

Only the extension module is loaded at once; everything else on first use.
"""

from ._core import (
    LoadModel,
    ModelError,
    OnlineTesting,
    ReleaseModel,
    TrainingError,
    __version__,
    error,
)

# What a star import brings: names that need neither NumPy nor scikit-learn.
__all__ = [
    "LoadModel",
    "Model",
    "ModelError",
    "OnlineTesting",
    "ReleaseModel",
    "TrainingError",
    "__version__",
    "callbacks",
    "error",
]

# The module of each name that is loaded on first use. A module is its own name.
_MODULES = {
    "Model": "_model.model",
    "Dataset": "_data.dataset",
    "train": "_training.train",
    "cv": "_training.cv",
    "CvResult": "_training.cv",
    "expit": "_training.objectives",
    "log_odds": "_training.objectives",
    "SylvoraRegressor": "_estimators.boosting",
    "SylvoraClassifier": "_estimators.boosting",
    "SylvoraRanker": "_estimators.boosting",
    "SylvoraForestRegressor": "_estimators.forests",
    "SylvoraForestClassifier": "_estimators.forests",
    "SylvoraTreeRegressor": "_estimators.forests",
    "SylvoraTreeClassifier": "_estimators.forests",
    "callbacks": "callbacks",
    "plot": "plot",
}


def __getattr__(name: str) -> object:
    if name not in _MODULES:
        raise AttributeError(f"module 'sylvora' has no attribute {name!r}")
    from importlib import import_module

    module = import_module("." + _MODULES[name], __name__)
    value = module if _MODULES[name] == name else getattr(module, name)
    globals()[name] = value
    return value


def __dir__() -> "list[str]":
    return sorted(set(globals()) | set(_MODULES))
