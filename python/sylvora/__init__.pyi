# The names that __init__.py loads on first use, and the others.
from . import callbacks as callbacks, plot as plot
from ._core import (
    LoadModel as LoadModel,
    ModelError as ModelError,
    OnlineTesting as OnlineTesting,
    ReleaseModel as ReleaseModel,
    TrainingError as TrainingError,
    __version__ as __version__,
    error as error,
)
from ._estimators.boosting import (
    SylvoraClassifier as SylvoraClassifier,
    SylvoraRanker as SylvoraRanker,
    SylvoraRegressor as SylvoraRegressor,
)
from ._data.dataset import Dataset as Dataset
from ._estimators.forests import (
    SylvoraForestClassifier as SylvoraForestClassifier,
    SylvoraForestRegressor as SylvoraForestRegressor,
    SylvoraTreeClassifier as SylvoraTreeClassifier,
    SylvoraTreeRegressor as SylvoraTreeRegressor,
)
from ._model.model import Model as Model
from ._training.objectives import expit as expit, log_odds as log_odds
from ._training.train import train as train
from ._training.cv import CvResult as CvResult, cv as cv

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
