"""Training: from data and settings to a model."""

from __future__ import annotations

import math
import os
from collections.abc import Callable, Iterable, Mapping, Sequence
from typing import TYPE_CHECKING, Any, Optional, Union

from .._data.tables import as_labels, as_queries, as_table, as_weights
from .._data.dataset import Dataset
from .._data.names import checked_text
from .calls import checked_callbacks
from .fit import EvaluationData, FitArguments, FitResult, fit
from .metrics import Metric, check_metric
from .parameters import checkpoint_settings, settings_of

if TYPE_CHECKING:
    from .._model.model import Model
    from ..callbacks import Callback

__all__ = ["EvaluationData", "FitResult", "evaluation_data", "train"]


def train(
    params: Mapping[str, Any],
    X: Any,
    y: Any,
    *,
    group: Any = None,
    qid: Any = None,
    sample_weight: Any = None,
    eval_set: Any = None,
    eval_metric: Union[Metric, Sequence[Metric], None] = None,
    objective: Optional[Callable[..., Any]] = None,
    base_score: Optional[float] = None,
    callbacks: Iterable[Callback] = (),
    feature_names: Optional[Sequence[str]] = None,
    missing: Optional[float] = math.nan,
    n_jobs: Optional[int] = None,
    verbose: Union[bool, int] = False,
    checkpoint: Union[str, os.PathLike[str], None] = None,
    checkpoint_every: Optional[int] = None,
) -> Model:
    """Trains a model.

    The model depends on the data, the parameters and the seed only, not on `n_jobs` or the machine.
    It is the one that the command makes of the same data and parameters, byte for byte.

    Parameters
    ----------
    params : mapping of str to value
        Parameters by the package's names (``n_estimators``, ``learning_rate``, ...) or those of
        docs/parameters.md (``numTree``, ``valShrink``, ...).
    X : array-like, DataFrame, sparse matrix, Arrow table or Dataset, shape (n_rows, n_features)
        Read where it lies. A Dataset is sorted once for any number of trainings.
    y : array-like, shape (n_rows,)
        Labels: finite numbers. Classes are numbered 0, 1, 2, ...
    group, qid : array-like of int, optional
        For ranking, one of them: the number of rows of each query, or the query of each row. The
        rows of a query are together.
    sample_weight : array-like of whole numbers, shape (n_rows,), optional
        Rows with weight 0 are left out.
    eval_set : mapping of str to tuple, optional
        Sets that are measured after each round, by name: (X, y), or (X, y, group) for ranking and
        its metrics. A list of such tuples gets the names eval_0, eval_1, ...
    eval_metric : str, callable or sequence of them, optional
        Metrics of docs/arrays.md, or functions ``metric(y, scores) -> float``. Smaller is better,
        unless the function has an attribute ``greater_is_better`` that is True. By default those
        that suit the loss. The first one decides about early stopping, on the last set.
    objective : callable, optional
        ``objective(y, scores) -> gradients`` or ``(gradients, hessians)``: the negative gradients
        of the loss (``y - scores`` for squared error) and its second derivatives, float64 arrays of
        shape (n_rows,). The arguments are read-only, and filled again for the next round. Instead
        of the parameter ``loss``.
    base_score : float, optional
        Where an objective starts; 0 by default.
    callbacks : iterable of Callback
        See `sylvora.callbacks`.
    feature_names : sequence of str, optional
        Names of the columns; by default those of `X`.
    missing : float or None
        Beside NaN, this value is missing. With None nothing is, and NaN is an error.
    n_jobs : int or None
        Threads, instead of the parameter of this name; -1: all usable processors.
    verbose : bool or int
        True, or a number of rounds: writes a line with the metrics after each, or after so many. A
        progress bar if there is no eval_set.
    checkpoint : str or path, optional
        File that keeps the state of the training. If it exists, the training goes on from it, and
        gives the model of one that never stopped, byte for byte. Data, parameters but `n_jobs`, and
        functions must be the same; more ``n_estimators`` are allowed.
    checkpoint_every : int, optional
        Rounds, or trees of a forest, from one writing of that file to the next. By default as many
        as keep its cost near a twentieth of the time or below.

    Returns
    -------
    Model
        With the attributes ``evals_result_``, ``best_iteration_`` and ``best_score_``.

    Raises
    ------
    ValueError, TypeError
        For data or parameters that are not valid. `TrainingError`, a ValueError, if the library
        found it.
    KeyboardInterrupt
        After Ctrl-C, within a round.

    Examples
    --------
    >>> import sylvora
    >>> X, y = [[i % 7, i % 5] for i in range(70)], [i % 7 for i in range(70)]
    >>> model = sylvora.train(
    ...     {"n_estimators": 30, "learning_rate": 0.3}, X, y, eval_set={"same": (X, y)})
    >>> model
    Model(GBDT, Square, 30 rounds, 2 columns)
    >>> len(model.evals_result_["same"]["rmse"])
    30
    """
    settings = settings_of(with_jobs(params, n_jobs))
    settings.update(checkpoint_settings(checkpoint, checkpoint_every))
    dataset = dataset_of(X, missing, feature_names)
    num_rows = dataset.num_rows
    arguments = FitArguments(
        dataset,
        as_labels(y, num_rows),
        settings,
        queries=queries_of(group, qid, num_rows, settings),
        weights=as_weights(sample_weight, num_rows),
        objective=objective,
        base_score=base_score,
        evaluation=evaluation_data(eval_set, dataset),
        metrics=metrics_of(eval_metric),
        callbacks=checked_callbacks(callbacks),
        verbose=verbose,
    )
    return fit(arguments).model


def dataset_of(
    X: Any, missing: Optional[float], feature_names: Optional[Sequence[str]]
) -> Dataset:
    """`X` itself if it is a Dataset, otherwise one of it."""
    if not isinstance(X, Dataset):
        return Dataset(X, missing=missing, feature_names=feature_names)
    if feature_names is not None:
        raise ValueError("feature_names: X is a Dataset, which has its own: give them to Dataset")
    if missing is None or not math.isnan(missing):
        raise ValueError("missing: X is a Dataset, which has its own: give it to Dataset")
    return X


def queries_of(group: Any, qid: Any, num_rows: int, settings: Mapping[str, str]) -> Any:
    """Query ids for ranking, or None for other models."""
    if settings["modelType"] == "GBRank":
        return as_queries(group, num_rows, qid=qid)
    if group is not None or qid is not None:
        name = "group" if group is not None else "qid"
        raise ValueError(f"{name} is for ranking: set the parameter model='ranking'")
    return None


def metrics_of(eval_metric: Union[Metric, Sequence[Metric], None]) -> list[Metric]:
    """The metrics as a list."""
    if eval_metric is None:
        return []
    if isinstance(eval_metric, str) or not isinstance(eval_metric, Iterable):
        eval_metric = [eval_metric]
    metrics = list(eval_metric)
    for metric in metrics:
        check_metric(metric)
    return metrics


def evaluation_data(
    eval_set: Any, dataset: Dataset, labels_of: Callable[..., Any] = as_labels
) -> list[EvaluationData]:
    """The sets to evaluate, with the columns and missing values of the training data.

    `eval_set` is a mapping from names to (X, y) or (X, y, group), or a list of such tuples, with
    the names eval_0, eval_1, ... `labels_of` is called as `as_labels` is.
    """
    if eval_set is None:
        return []
    if not isinstance(eval_set, Mapping):
        if not isinstance(eval_set, (list, tuple)):
            raise TypeError(f"eval_set must be a dict of (X, y), got {type(eval_set).__name__}")
        eval_set = {f"eval_{i}": given for i, given in enumerate(eval_set)}
    return [_evaluation_of(name, given, dataset, labels_of) for name, given in eval_set.items()]


def _evaluation_of(
    name: Any, given: Any, dataset: Dataset, labels_of: Callable[..., Any]
) -> EvaluationData:
    where = f"eval_set[{name!r}]"
    if not isinstance(name, str):
        raise TypeError(f"The names of eval_set must be strings, got {name!r}")
    checked_text(name, "eval_set")
    if not isinstance(given, (tuple, list)) or len(given) not in (2, 3):
        raise ValueError(f"{where} must be (X, y), or (X, y, group) for ranking")
    frame = as_table(
        given[0],
        missing=dataset.missing,
        names=dataset.feature_names,
        argument=f"{where}: X",
        num_columns=dataset.num_columns,
    )
    labels = labels_of(given[1], frame.num_rows, argument=f"{where}: y")
    return EvaluationData(name, frame.table, labels, group=given[2] if len(given) == 3 else None)


def with_jobs(params: Mapping[str, Any], n_jobs: Optional[int]) -> Mapping[str, Any]:
    """The parameters with `n_jobs` among them."""
    if not isinstance(params, Mapping):
        raise TypeError(f"params must be a dict, got {type(params).__name__}")
    if n_jobs is None:
        return params
    for name in ("n_jobs", "numThread"):
        if name in params:
            raise ValueError(f"n_jobs and params[{name!r}] are the same parameter: give only one")
    return {**params, "n_jobs": n_jobs}
