"""Cross-validation on one coded data set."""

from __future__ import annotations

import math
from collections.abc import Callable, Iterable, Mapping, Sequence
from dataclasses import dataclass, replace
from functools import partial
from typing import TYPE_CHECKING, Any, Optional, Union

import numpy as np

from .. import _core
from .._data.tables import as_labels, as_table, as_weights
from .._data.dataset import Dataset
from .best import best_round, best_rounds
from .calls import checked_callbacks, in_turn
from .facts import loss_facts
from .fit import EvaluationData, FitArguments, FitResult, fit
from .folds import folds_of, rows_of
from .metrics import Metric, is_larger_better
from .parameters import settings_of
from .._model.model import completed
from .train import dataset_of, metrics_of, queries_of, with_jobs

if TYPE_CHECKING:
    from numpy.typing import NDArray

    from .folds import Fold
    from .._model.model import Model
    from ..callbacks import Callback

_SET = "test"


@dataclass(frozen=True)
class CvResult:
    """What `cv` returns.

    Attributes
    ----------
    evals : dict of dict of ndarray
        By metric: "mean" and "std" over the folds, by round (float64, shape (n_rounds,)). The
        standard deviation divides by the number of folds.
    fold_evals : list of dict of ndarray
        By fold and metric, the values by round.
    best_iteration : int or None
        The round with the best mean of the first metric, from 1; None for a forest or a tree.
    best_score, best_std : float
        Mean and standard deviation of the first metric at that round.
    folds : list of (ndarray, ndarray)
        Training and test rows of each fold.
    models : list of Model, or None
        With `return_models`: the model of each fold, cut to the best round if there was early
        stopping.
    """

    evals: dict[str, dict[str, NDArray[np.float64]]]
    fold_evals: list[dict[str, NDArray[np.float64]]]
    best_iteration: Optional[int]
    best_score: float
    best_std: float
    folds: list[Fold]
    models: Optional[list[Model]] = None

    def __repr__(self) -> str:
        rounds = len(next(iter(self.evals.values()))["mean"])
        at = rounds if self.best_iteration is None else self.best_iteration
        where = "" if self.best_iteration is None else f", best round {at} of {rounds}"
        lines = [f"CvResult: {len(self.folds)} folds{where}"]
        lines.append(f"{'metric':12} {'mean':>12} {'std':>12}")
        for metric, curve in self.evals.items():
            mean, std = curve["mean"][at - 1], curve["std"][at - 1]
            lines.append(f"{metric:12} {mean:12.6g} {std:12.6g}")
        return "\n".join(lines)


def cv(
    params: Mapping[str, Any],
    X: Any,
    y: Any,
    *,
    folds: Any = 5,
    stratified: Optional[bool] = None,
    shuffle: bool = True,
    seed: int = 1,
    group: Any = None,
    qid: Any = None,
    sample_weight: Any = None,
    eval_metric: Union[Metric, Sequence[Metric], None] = None,
    objective: Optional[Callable[..., Any]] = None,
    base_score: Optional[float] = None,
    callbacks: Iterable[Callback] = (),
    feature_names: Optional[Sequence[str]] = None,
    missing: Optional[float] = math.nan,
    n_jobs: Optional[int] = None,
    verbose: Union[bool, int] = False,
    return_models: bool = False,
) -> CvResult:
    """Cross-validation: trains on all folds but one and measures on that one, in turn.

    The data are sorted once for all folds. The test rows of a fold are copied while it runs.

    Parameters
    ----------
    params, X, y, group, qid, sample_weight, eval_metric, objective, base_score, callbacks, \
feature_names, missing, n_jobs, verbose
        As for `train`, but `X` is no Dataset. Weights do not count in metrics.
        ``early_stopping_rounds`` looks at the mean over the folds: all rounds are trained, and the
        curves and models are then cut to those that such a stop would have left.
    folds : int, iterable of (training rows, test rows), or object with a method split
        A number of folds, row numbers or masks, or a splitter of scikit-learn. With a number,
        ranking keeps queries whole.
    stratified : bool, optional
        Whether each fold has about the same share of each label; by default for classifications
        and losses for two classes. Only if `folds` is a number.
    shuffle : bool
        Whether rows, or queries, are drawn at random; otherwise folds are blocks of rows.
    seed : int
        The seed of this draw.
    return_models : bool
        Whether to keep the models.

    Returns
    -------
    CvResult

    Raises
    ------
    ValueError, TypeError
        As for `train`, and for folds that are not valid.

    Examples
    --------
    >>> import sylvora
    >>> X, y = [[i % 7, i % 5] for i in range(70)], [i % 7 for i in range(70)]
    >>> result = sylvora.cv({"n_estimators": 30, "learning_rate": 0.3}, X, y, folds=3)
    >>> result.evals["rmse"]["mean"].shape, bool(result.best_score < 0.5)
    ((30,), True)
    """
    if isinstance(X, Dataset):
        raise TypeError("cv needs the data itself, not a Dataset, to measure on their rows")
    settings = settings_of(with_jobs(params, n_jobs))
    dataset = dataset_of(X, missing, feature_names)
    num_rows = dataset.num_rows
    labels = as_labels(y, num_rows)
    queries = queries_of(group, qid, num_rows, settings)
    patience = int(settings.pop("earlyStop", "0"))
    if stratified is None:
        stratified = settings.get("fRegCls") == "CLS" or (
            loss_facts(settings.get("lossFunc", "")).two_classes
        )
    made = folds_of(
        folds, labels, queries, stratified=stratified, shuffle=shuffle, seed=seed
    )
    metrics = metrics_of(eval_metric)
    whole = FitArguments(
        dataset,
        labels,
        settings,
        queries=queries,
        weights=as_weights(sample_weight, num_rows),
        objective=objective,
        base_score=base_score,
        metrics=metrics,
        callbacks=checked_callbacks(callbacks),
        verbose=verbose,
    )
    results = in_turn([partial(_fit_fold, whole, X, fold) for fold in made], whole.callbacks)
    return _summary(results, made, patience, metrics, return_models)


def _fit_fold(whole: FitArguments, X: Any, fold: Fold) -> FitResult:
    """Trains on the training rows of all data, `X`, and measures on the test rows."""
    train, test = fold
    dataset, queries, weights = whole.dataset, whole.queries, whole.weights
    frame = as_table(
        rows_of(X, test, dataset), missing=dataset.missing, num_columns=dataset.num_columns
    )
    tested = None if queries is None else queries[test]
    part = replace(
        whole,
        dataset=dataset.subset(train),
        labels=whole.labels[train],
        queries=None if queries is None else queries[train],
        weights=None if weights is None else weights[train],
        evaluation=[EvaluationData(_SET, frame.table, whole.labels[test], tested)],
    )
    return fit(part)


def _summary(
    results: Sequence[FitResult],
    folds: list[Fold],
    patience: int,
    metrics: Sequence[Metric],
    return_models: bool,
) -> CvResult:
    """Puts the folds together. A callback may have ended one earlier: the shortest counts."""
    curves = [result.evals_result[_SET] for result in results]
    deciding = next(iter(curves[0]))
    rounds = min(len(values) for curve in curves for values in curve.values())
    has_rounds = results[0].model.model_type in ("GBDT", "GBRank")
    larger = is_larger_better(deciding, metrics)
    mean = np.mean([curve[deciding][:rounds] for curve in curves], axis=0)
    best: Optional[int] = None
    if has_rounds:
        if patience > 0:
            rounds = _stopped_at(mean.tolist(), larger, patience)
        best = best_round(mean[:rounds].tolist(), larger) or None
    folded = [{m: np.array(v[:rounds]) for m, v in curve.items()} for curve in curves]
    evals = {
        metric: {
            "mean": np.mean([curve[metric] for curve in folded], axis=0),
            "std": np.std([curve[metric] for curve in folded], axis=0),
        }
        for metric in folded[0]
    }
    at = (best or rounds) - 1
    models = [result.model for result in results] if return_models else None
    if models is not None and patience > 0 and best is not None:
        for model, curve in zip(models, folded):
            _core.Model.cut(model, min(best + model.n_groups - model.n_rounds, model.n_groups))
            _core.Model.set_description(model, "bestRound", [str(best)])
            evaluation = {_SET: {metric: values.tolist() for metric, values in curve.items()}}
            value = float(curve[deciding][best - 1])
            state = {"evals_result_": evaluation, "best_score_": value, "_best_iteration": best}
            completed(model, state)
    score, std = float(evals[deciding]["mean"][at]), float(evals[deciding]["std"][at])
    return CvResult(evals, folded, best, score, std, folds, models)


def _stopped_at(mean: Sequence[float], larger: bool, patience: int) -> int:
    """How many rounds early stopping would have trained."""
    for number, best in enumerate(best_rounds(mean, larger), 1):
        if number - best >= patience:
            return number
    return len(mean)
