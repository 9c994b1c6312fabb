"""Models: loading, saving, scoring and looking inside."""

from __future__ import annotations

import operator
import os
from collections.abc import Callable, Iterator, Sequence
from typing import TYPE_CHECKING, Any, NoReturn, Optional

from .. import _core
from .._training.facts import loss_facts
from .facts import ModelFacts

if TYPE_CHECKING:
    import numpy as np
    from numpy.typing import NDArray

    from .._data.tables import Frame
    from .trees import Tree

class Model(ModelFacts):
    """A trained model. `train` and `Model.load` make one.

    Models do not change, and any number of threads may use one at the same time. Scoring releases
    the interpreter's global lock. Pickles and copies are exact: they give the same scores and
    files bit for bit.

    Attributes
    ----------
    evals_result_ : dict of dict of list
        By set and metric, the value after each round; empty for a loaded model.
    best_score_ : float or None
        The metric that decides, at the best round.

    Examples
    --------
    >>> import sylvora
    >>> model = sylvora.train({"n_estimators": 20}, [[1], [2], [3], [4]] * 5, [0, 0, 1, 1] * 5)
    >>> model.score([1]) < 0.5 < model.score([4])
    True
    """

    evals_result_: dict[str, dict[str, list[float]]] = {}
    best_score_: Optional[float] = None

    # ---- Files and copies ----------------------------------------------------------------------

    @classmethod
    def load(cls, path: str | os.PathLike[str]) -> Model:
        """Reads a model file, of this package or of the command.

        Raises
        ------
        OSError
            If it cannot be opened.
        ModelError
            If it is no model, or its description is damaged. The text names the file and line.
        """
        return completed(cls.read(path, True), {})

    @classmethod
    def from_bytes(cls, data: Any) -> Model:
        """Reads a model from the bytes of a model file: any object with the buffer protocol."""
        return completed(cls.parse(data, True), {})

    def save(
        self, path: str | os.PathLike[str], *, digits: int = 17, description: bool = True
    ) -> None:
        """Writes a model file. An older file is replaced as a whole, or left as it was.

        Parameters
        ----------
        path : path-like
        digits : {17, 6}
            Significant digits of reals. With 17 the loaded model's scores are the same bit for bit;
            the command writes 6.
        description : bool
            Whether names, settings, row counts and the best round follow the trees. The command
            writes none.

        Raises
        ------
        OSError, ModelError, ValueError
            The path as it was; or `digits` is neither 6 nor 17.
        """
        self.write(path, _checked_digits(digits), description)

    def to_bytes(self, *, digits: int = 17, description: bool = True) -> bytes:
        """The bytes that `save` writes."""
        return self.text(_checked_digits(digits), description)

    def __reduce__(self) -> tuple[Any, ...]:
        state = {name: getattr(self, name) for name in _STATE}
        return _restored, (type(self), self.to_bytes(), state)

    def __dir__(self) -> list[str]:
        return [name for name in super().__dir__() if name not in _OF_CORE]

    def __setattr__(self, name: str, value: object) -> NoReturn:
        raise AttributeError("Models do not change")

    def __delattr__(self, name: str) -> NoReturn:
        raise AttributeError("Models do not change")

    def cut(self, num_groups: int, /) -> NoReturn:
        raise AttributeError("Models do not change: give iteration_range to predict")

    def set_description(self, key: str, texts: Sequence[str], /) -> NoReturn:
        raise AttributeError("Models do not change: give feature_names to train")

    # ---- Scores --------------------------------------------------------------------------------

    def predict(
        self,
        X: Any,
        *,
        n_jobs: Optional[int] = 1,
        out: Optional[NDArray[np.float64]] = None,
        iteration_range: Optional[tuple[int, int]] = None,
    ) -> NDArray[np.float64]:
        """The scores of rows; they do not depend on `n_jobs`.

        Parameters
        ----------
        X : array-like, DataFrame, sparse matrix or Arrow table, shape (n_rows, n_features)
            Columns with names are matched with `feature_names` by name.
        n_jobs : int or None
            Threads; -1: all usable processors; None: 1.
        out : ndarray of float64, shape (n_rows,), optional
            Where to write the scores: contiguous and writable.
        iteration_range : (int, int), optional
            The rounds to add up, from the first one, counted from 0, up to the second one, which is
            left out. The start value always counts. For boosting only.

        Returns
        -------
        ndarray of float64, shape (n_rows,)
            Scores, or the numbers of classes for a classification; `out` if it is given.

        Raises
        ------
        ValueError, TypeError
            With the row and column of a bad value.

        Examples
        --------
        >>> import sylvora
        >>> model = sylvora.train({"n_estimators": 20}, [[1], [2], [3], [4]] * 5, [0, 0, 1, 1] * 5)
        >>> model.predict([[1], [4], [None]]).round(1).tolist()
        [0.0, 0.8, 0.0]
        """
        frame = self._frame(X)
        if iteration_range is not None:
            first, end = self._checked_range(iteration_range)
        scores = _output(out, frame.num_rows)
        threads = _threads(n_jobs)
        if iteration_range is None:
            self._call(self.score_table, frame.table, scores, threads)
            return scores
        scores[:] = 0.0
        num_start = self._num_start_groups()
        for begin, finish in ((0, num_start), (num_start + first, num_start + end)):
            self._call(self.add_groups, frame.table, begin, finish, scores, threads)
        return scores

    def predict_proba(self, X: Any, *, n_jobs: Optional[int] = 1) -> NDArray[np.float64]:
        """Probabilities of the classes: shape (n_rows, 2), the larger label last, for the losses
        LogLoss, Logistic and Exponential; the shares of votes, shape (n_rows, n_classes), for a
        classification.

        Raises
        ------
        ValueError
            For other models.
        """
        import numpy as np

        frame = self._frame(X)
        threads = _threads(n_jobs)
        if self.num_classes > 0:
            shares = np.empty((frame.num_rows, self.num_classes))
            self._call(self.votes, frame.table, shares, threads)
            return shares
        if not loss_facts(self.loss).probabilities:
            raise ValueError(f"The loss {self.loss} has no probabilities")
        scores = np.empty(frame.num_rows)
        self._call(self.score_table, frame.table, scores, threads)
        larger, smaller = np.empty_like(scores), -scores
        _core.probabilities(self.loss, scores, larger)
        # Not 1 - p, which loses the digits of a small probability.
        _core.probabilities(self.loss, smaller, smaller)
        return np.column_stack([smaller, larger])

    def predict_leaf(self, X: Any, *, n_jobs: Optional[int] = 1) -> NDArray[np.int32]:
        """The leaf that each row reaches in each tree: node numbers of `tree`, as int32 of shape
        (n_rows, n_trees)."""
        import numpy as np

        frame = self._frame(X)
        leaves = np.empty((frame.num_rows, self.num_trees), np.int32)
        self._call(self.leaves, frame.table, leaves, _threads(n_jobs))
        return leaves

    def staged_predict(
        self, X: Any, *, n_jobs: Optional[int] = 1
    ) -> Iterator[NDArray[np.float64]]:
        """The scores after each round of boosting: an iterator of float64 arrays of shape
        (n_rows,). The last one equals `predict` bit for bit."""
        self._checked_range((0, 1))
        return self._stages(self._frame(X), _threads(n_jobs))

    def _stages(self, frame: Frame, threads: int) -> Iterator[NDArray[np.float64]]:
        import numpy as np

        scores = np.zeros(frame.num_rows)
        num_start = self._num_start_groups()
        begin = 0
        for end in range(num_start + 1, self.num_groups + 1):
            self._call(self.add_groups, frame.table, begin, end, scores, threads)
            begin = end
            yield scores.copy()

    # ---- Inside --------------------------------------------------------------------------------

    def tree(self, index: int) -> Tree:  # type: ignore[override]
        """Tree number `index`, from 0, over all groups."""
        from .trees import tree_of

        return tree_of(self, index)

    def trees(self) -> Iterator[Tree]:
        """All trees, in order, the start value's included."""
        return (self.tree(index) for index in range(self.num_trees))

    def feature_importance(self, kind: str = "gain") -> NDArray[np.float64]:
        """How much each column contributes: float64 of shape (n_features,), not normalised.

        Parameters
        ----------
        kind : {"gain", "split", "cover"}
            "split" counts the splits on a column. "cover" adds up the training rows that reach
            them. "gain" adds up cl cr / c (vl - vr)^2, where c is the number of rows of a node,
            cl and cr those of its children, and vl and vr the children's values times the shrink.
            For squared error that is what the split takes off the sum of squared errors, times the
            shrink's square. Losses with node values of their own, such as LogLoss and Absolute, are
            measured by these values, too.

        Raises
        ------
        ValueError
            "gain" and "cover" need row counts, which files without a description do not have, and
            "gain" has no meaning for a classification.

        Examples
        --------
        >>> import sylvora
        >>> model = sylvora.train(
        ...     {"n_estimators": 10}, [[1, 0], [2, 0], [3, 0], [4, 0]] * 5, [0, 0, 1, 1] * 5)
        >>> gain = model.feature_importance()
        >>> bool(gain[0] > 0), float(gain[1])
        (True, 0.0)
        """
        from .trees import importance_of

        return importance_of(self, kind)

    # ---- Helpers -------------------------------------------------------------------------------

    def _frame(self, X: Any) -> Frame:
        from .._data.tables import as_table

        return as_table(
            X, missing=self.missing, names=self.feature_names, num_columns=self.num_columns
        )

    def _call(self, function: Callable[..., None], *arguments: Any) -> None:
        """Calls a function of the library, whose errors get the names of columns."""
        from .._data.tables import with_names

        try:
            function(*arguments)
        except ValueError as error:
            raise with_names(error, self.feature_names) from None

    def _checked_range(self, iteration_range: tuple[int, int]) -> tuple[int, int]:
        if not self._has_rounds():
            raise ValueError(f"A {self.type} has no rounds")
        try:
            first, end = (operator.index(bound) for bound in iteration_range)
        except (TypeError, ValueError):
            raise TypeError(
                f"iteration_range must be a pair of integers, got {iteration_range!r}"
            ) from None
        if 0 <= first <= end <= self.n_rounds:
            return first, end
        raise ValueError(
            f"iteration_range must be within (0, {self.n_rounds}) and ascend, "
            f"got {iteration_range!r}"
        )


# Members of the extension module's class that the methods here are made of.
_OF_CORE = frozenset(
    "add_groups cut describe leaves num_classes num_columns num_groups num_trees parse read "
    "score_table set_description text type votes write".split()
)
_STATE = ("evals_result_", "best_score_", "_best_iteration")


def completed(model: Model, state: dict[str, Any]) -> Model:
    """Completes a model that was just made."""
    attributes = model.__dict__
    attributes["evals_result_"] = {}
    attributes.update(state)
    return model


def _restored(cls: type[Model], data: bytes, state: dict[str, Any]) -> Model:
    return completed(cls.parse(data, True), state)


def _checked_digits(digits: int) -> int:
    if digits not in (6, 17):
        raise ValueError(f"digits must be 6 or 17, got {digits!r}")
    return int(digits)


def _threads(n_jobs: Optional[int]) -> int:
    from .._training.processors import usable_jobs

    return usable_jobs(n_jobs)


def _output(out: Optional[NDArray[np.float64]], num_rows: int) -> NDArray[np.float64]:
    import numpy as np

    if out is None:
        return np.empty(num_rows)
    if not isinstance(out, np.ndarray) or out.dtype != np.float64 or out.shape != (num_rows,):
        found = f"{out.dtype} {out.shape}" if isinstance(out, np.ndarray) else type(out).__name__
        raise ValueError(f"out must be a float64 array of shape ({num_rows},), got {found}")
    if not out.flags.c_contiguous or not out.flags.writeable:
        raise ValueError("out must be contiguous and writable")
    return out
