"""The estimators for Dask: each trains, and predicts with, one of the estimators of sylvora."""

from __future__ import annotations

import os
from collections.abc import Iterable, Mapping
from typing import Any, ClassVar, NamedTuple, Optional, TypeVar, Union

import numpy as np
from sklearn.utils.validation import check_is_fitted

from .._estimators import boosting, forests
from .._training.parameters import checkpoint_settings
from .checkpoints import Kept, Wanted
from .driver import Driver, warn
from .predictions import predictions
from .shares import by_rows, computed, is_chunked, parts_of
from .task import Plan

DaskT = TypeVar("DaskT", bound="DaskEstimator")

# Arguments of fit with an item per row.
_BY_ROW = ("y", "sample_weight", "qid")

Checkpoint = Union[str, "os.PathLike[str]", bool, None]


class _Keeping(NamedTuple):
    """Arguments of fit."""

    checkpoint: Checkpoint
    checkpoint_every: Optional[int]

    def check(self) -> tuple[Kept, Optional[Wanted]]:
        """What they mean for the client, and for the workers."""
        path, every = self
        if path is True:
            raise TypeError("checkpoint must be a file name, False or None, got True")
        if path is False:
            if every is not None:
                raise ValueError("checkpoint_every needs a checkpoint: checkpoint is False")
            return Kept(), None
        checkpoint_settings("any" if path is None else path, every)
        return Kept(path), Wanted(every, last=path is not None)


class _Uncopied:
    """The client as a parameter: scikit-learn deep-copies the parameters of what it clones, and a
    client has no copies."""

    def __init__(self, client: Any) -> None:
        self.client = client

    def __deepcopy__(self, memo: Any) -> _Uncopied:
        return self


class DaskEstimator:
    """What the estimators share.

    Parameters
    ----------
    client : distributed.Client, optional
        The cluster; None: `distributed.default_client()` when it is needed.
    workers : iterable of str, optional
        Addresses of the workers that may train; None: all.
    **parameters
        Those of the class of the same name in `sylvora`. `n_jobs` is the number of threads at each
        worker. `callbacks` must be None: they would run at the workers.
    """

    _local: ClassVar[type[Any]]

    def __init__(
        self,
        *,
        client: Any = None,
        workers: Optional[Iterable[str]] = None,
        **parameters: Any,
    ) -> None:
        self._client = client if isinstance(client, _Uncopied) else _Uncopied(client)
        self.workers = workers
        self._unfitted = self._local(**parameters)
        self._fitted: Any = None

    @property
    def client(self) -> Any:
        """The parameter."""
        return self._client.client

    @client.setter
    def client(self, client: Any) -> None:
        self._client = client if isinstance(client, _Uncopied) else _Uncopied(client)

    def get_params(self, deep: bool = True) -> dict[str, Any]:
        """Return the parameters by name; with deep=False, as `sklearn.base.clone` wants them, the
        client is wrapped."""
        wrapped = not deep and self.client is not None
        own = {"client": self._client if wrapped else self.client, "workers": self.workers}
        return {**own, **self._unfitted.get_params(deep=deep)}

    def set_params(self: DaskT, **parameters: Any) -> DaskT:
        """Set parameters by name."""
        for name in ("client", "workers"):
            if name in parameters:
                setattr(self, name, parameters.pop(name))
        self._unfitted.set_params(**parameters)
        return self

    def to_local(self) -> Any:
        """Return the fitted estimator of `sylvora`, for data in this process.

        Raises
        ------
        sklearn.exceptions.NotFittedError
            If `fit` was not called.
        """
        if self._fitted is None:
            check_is_fitted(self._unfitted, "model_")
        return self._fitted

    def __getattr__(self, name: str) -> Any:
        # Parameters, and what a fit sets: model_, classes_, evals_result_, ...
        if name.startswith("_") or "_unfitted" not in self.__dict__:
            raise AttributeError(name)
        if name in self._unfitted.get_params(deep=False):
            return getattr(self._unfitted, name)
        if name.endswith("_") and self._fitted is not None:
            return getattr(self._fitted, name)
        raise AttributeError(f"{type(self).__name__!r} object has no attribute {name!r}")

    def __repr__(self) -> str:
        return repr(self._unfitted)

    def __getstate__(self) -> dict[str, Any]:
        return {**self.__dict__, "_client": _Uncopied(None)}

    def _fit(
        self: DaskT, X: Any, eval_set: Any, keeping: _Keeping, **arguments: Any
    ) -> DaskT:
        from distributed import default_client
        from sklearn.base import clone

        estimator = clone(self._unfitted)
        if getattr(estimator, "callbacks", None) is not None:
            raise ValueError(
                "callbacks must be None: a training on a cluster does not call them; "
                "early_stopping_rounds can end it"
            )
        kept, wanted = keeping.check()
        X = by_rows(X)
        given = {name: value for name, value in arguments.items() if value is not None}
        by_chunk = {name: given.pop(name) for name in _BY_ROW if is_chunked(given.get(name))}
        parts, sizes = parts_of(X, by_chunk)
        if eval_set is not None:
            given["eval_set"] = computed(eval_set)
        if "y" not in by_chunk:
            given.setdefault("y", None)
        given = {name: computed(value) for name, value in given.items()}
        client = default_client() if self.client is None else self.client
        fitted = Driver(client, self.workers, parts, sizes, kept).train(
            Plan(estimator, list(by_chunk), given, wanted)
        )
        self._fitted = fitted.estimator
        warn(fitted.warnings)
        return self

    def predict(self, X: Any) -> Any:
        """Return the predictions, which are computed when they are asked for.

        Parameters
        ----------
        X : array or dataframe of Dask, shape (n_samples, n_features)

        Returns
        -------
        array or series of Dask, shape (n_samples,)
            Chunked as `X`: what `predict` of the class in `sylvora` returns.
        """
        local = self.to_local()
        classes = getattr(local, "classes_", None)
        dtype = np.dtype(np.float64) if classes is None else classes.dtype
        return predictions(local, "predict", by_rows(X), dtype)


class _WithProbabilities(DaskEstimator):
    """Classifiers."""

    def predict_proba(self, X: Any) -> Any:
        """Return the probabilities of the classes, or the shares of votes; see `predict`.

        Returns
        -------
        array of Dask, shape (n_samples, n_classes), or dataframe with a column per class
        """
        local = self.to_local()
        method = "predict_proba"
        getattr(local, method)  # raises for losses that have none
        return predictions(local, method, by_rows(X), np.dtype(np.float64), local.classes_)


class SylvoraRegressor(DaskEstimator):
    """`sylvora.SylvoraRegressor` on a cluster."""

    __doc__ += (DaskEstimator.__doc__ or "").partition("share.")[2]
    _local = boosting.SylvoraRegressor

    def fit(
        self,
        X: Any,
        y: Any,
        sample_weight: Any = None,
        *,
        eval_set: Optional[Mapping[str, Any] | list[Any]] = None,
        checkpoint: Checkpoint = None,
        checkpoint_every: Optional[int] = None,
    ) -> SylvoraRegressor:
        """Train on rows in the order of the chunks.

        Parameters
        ----------
        X : array or dataframe of Dask, shape (n_samples, n_features)
            Chunked by rows; chunks may be of any sizes.
        y, sample_weight : array or series of Dask with the chunks of X, or array-like
            As `fit` of the class in `sylvora` takes them.
        eval_set : mapping of str to (X, y), or list of (X, y), default=None
            Sets to evaluate after each round; every worker gets them in full.
        checkpoint : str, path or False, default=None
            The state of the training is kept in the memory of this process, and the training goes
            on from it if workers are lost. With a file name it is in this file as well: if the
            file exists, the training goes on from it, as that of `sylvora.train`. A classifier of
            several classes has a file for each: the second one ends with .1, and so on. False:
            nothing is kept.
        checkpoint_every : int, default=None
            Rounds, or trees of a forest, from one state to the next. By default as many as keep
            the cost near a twentieth of the time or below.

        Returns
        -------
        self
        """
        keeping = _Keeping(checkpoint, checkpoint_every)
        return self._fit(X, eval_set, keeping, y=y, sample_weight=sample_weight)


class SylvoraClassifier(_WithProbabilities):
    """`sylvora.SylvoraClassifier` on a cluster."""

    __doc__ += (DaskEstimator.__doc__ or "").partition("share.")[2]
    _local = boosting.SylvoraClassifier

    def fit(
        self,
        X: Any,
        y: Any,
        sample_weight: Any = None,
        *,
        class_weight: Any = None,
        eval_set: Optional[Mapping[str, Any] | list[Any]] = None,
        checkpoint: Checkpoint = None,
        checkpoint_every: Optional[int] = None,
    ) -> SylvoraClassifier:
        """Train on rows in the order of the chunks; see `SylvoraRegressor.fit`."""
        keeping = _Keeping(checkpoint, checkpoint_every)
        by_row = {"y": y, "sample_weight": sample_weight}
        return self._fit(X, eval_set, keeping, class_weight=class_weight, **by_row)


class SylvoraRanker(DaskEstimator):
    """`sylvora.SylvoraRanker` on a cluster."""

    __doc__ += (DaskEstimator.__doc__ or "").partition("share.")[2]
    _local = boosting.SylvoraRanker

    def fit(
        self,
        X: Any,
        y: Any,
        *,
        group: Any = None,
        qid: Any = None,
        eval_set: Optional[Mapping[str, Any] | list[Any]] = None,
        checkpoint: Checkpoint = None,
        checkpoint_every: Optional[int] = None,
    ) -> SylvoraRanker:
        """Train on rows in the order of the chunks; see `SylvoraRegressor.fit`.

        `group` has the number of rows of each query, in the order of the rows. `qid` has the query
        of each row, by chunks as X, or in one array. A query may be in several chunks.
        """
        keeping = _Keeping(checkpoint, checkpoint_every)
        return self._fit(X, eval_set, keeping, y=y, group=group, qid=qid)


class SylvoraForestRegressor(DaskEstimator):
    """`sylvora.SylvoraForestRegressor` on a cluster."""

    __doc__ += (DaskEstimator.__doc__ or "").partition("share.")[2]
    _local = forests.SylvoraForestRegressor

    def fit(
        self,
        X: Any,
        y: Any,
        sample_weight: Any = None,
        *,
        checkpoint: Checkpoint = None,
        checkpoint_every: Optional[int] = None,
    ) -> SylvoraForestRegressor:
        """Train on rows in the order of the chunks; see `SylvoraRegressor.fit`."""
        keeping = _Keeping(checkpoint, checkpoint_every)
        return self._fit(X, None, keeping, y=y, sample_weight=sample_weight)


class SylvoraForestClassifier(_WithProbabilities):
    """`sylvora.SylvoraForestClassifier` on a cluster."""

    __doc__ += (DaskEstimator.__doc__ or "").partition("share.")[2]
    _local = forests.SylvoraForestClassifier

    def fit(
        self,
        X: Any,
        y: Any,
        sample_weight: Any = None,
        *,
        checkpoint: Checkpoint = None,
        checkpoint_every: Optional[int] = None,
    ) -> SylvoraForestClassifier:
        """Train on rows in the order of the chunks; see `SylvoraRegressor.fit`."""
        keeping = _Keeping(checkpoint, checkpoint_every)
        return self._fit(X, None, keeping, y=y, sample_weight=sample_weight)
