"""Checks of the estimators' parameters: one clear error that names parameter, value and what is
allowed."""

from __future__ import annotations

import math
import numbers
from collections.abc import Mapping, Sequence
from typing import Any, Optional

import numpy as np

_OPTIONAL = frozenset(
    "class_weight objective base_score early_stopping_rounds eval_metric missing random_state"
    " n_jobs callbacks".split()
)


def is_number(value: Any) -> bool:
    """Whether a value is a real number; booleans are not."""
    return isinstance(value, numbers.Real) and not isinstance(value, (bool, np.bool_))


def _check_choice(name: str, value: Any, texts: Sequence[str]) -> None:
    allowed = ", ".join(repr(text) for text in texts)
    if not isinstance(value, str):
        raise TypeError(f"{name} must be one of {allowed}, got {value!r}")
    if value not in texts:
        raise ValueError(f"{name} must be one of {allowed}, got {value!r}")


def _check_missing(missing: Any) -> None:
    if missing is None:
        return
    if not is_number(missing):
        raise TypeError(f"missing must be NaN, a finite number or None, got {missing!r}")
    if math.isinf(missing):
        raise ValueError(f"missing must be NaN, a finite number or None, got {missing!r}")


def _check_verbose(verbose: Any) -> None:
    if not isinstance(verbose, (bool, np.bool_, numbers.Integral)):
        raise TypeError(f"verbose must be a bool or a whole number of 0 or more, got {verbose!r}")
    if verbose < 0:
        raise ValueError(f"verbose must be a bool or a whole number of 0 or more, got {verbose!r}")


def _check_objective(objective: Any, base_score: Any) -> None:
    if objective is not None and not callable(objective):
        raise TypeError(
            f"objective must be a function of labels and scores, or None, got {objective!r}"
        )
    if base_score is None:
        return
    if not is_number(base_score):
        raise TypeError(f"base_score must be a finite number or None, got {base_score!r}")
    if not math.isfinite(base_score):
        raise ValueError(f"base_score must be a finite number or None, got {base_score!r}")
    if objective is None:
        raise ValueError("base_score is only used together with an objective; set it to None")


def check_parameters(params: Mapping[str, Any], choices: Mapping[str, Sequence[str]]) -> None:
    """Check the parameters of an estimator that the library's settings do not check.

    Parameters
    ----------
    params : mapping of str to object
        All parameters by name.
    choices : mapping of str to sequence of str
        The allowed values of those parameters that are texts.

    Raises
    ------
    TypeError
        If a value has a wrong type.
    ValueError
        If a value is out of its range.
    """
    for name, texts in choices.items():
        _check_choice(name, params[name], texts)
    for name, value in params.items():
        if value is None and name not in _OPTIONAL:
            raise TypeError(f"{name} must be given, got None")
    _check_missing(params["missing"])
    _check_verbose(params["verbose"])
    _check_objective(params.get("objective"), params.get("base_score"))


def metrics_of(eval_metric: Any) -> list[Any]:
    """Return the metrics as a list of names and functions.

    Raises
    ------
    TypeError
        If one is neither a text nor a function.
    """
    if eval_metric is None:
        return []
    single = isinstance(eval_metric, str) or callable(eval_metric)
    metrics: list[Any] = [eval_metric] if single else list(eval_metric)
    for metric in metrics:
        if not isinstance(metric, str) and not callable(metric):
            raise TypeError(
                "eval_metric must be a name, a function of labels and scores, or a list of these,"
                f" got {metric!r}"
            )
    return metrics


def eval_sets_of(eval_set: Any, size: int) -> list[tuple[str, tuple[Any, ...]]]:
    """Return the sets of `eval_set` with their names: those of the mapping, or valid_0, valid_1.

    Parameters
    ----------
    eval_set : mapping or sequence or None
        Mapping of names to tuples, or a list of tuples.
    size : int
        The length of the tuples.

    Raises
    ------
    TypeError
        If it is anything else.
    """
    if eval_set is None:
        return []
    form = "(X, y)" if size == 2 else "(X, y, group)"
    named: Optional[list[tuple[Any, Any]]] = None
    if isinstance(eval_set, Mapping):
        named = list(eval_set.items())
    elif isinstance(eval_set, list):
        named = [(f"valid_{i}", entry) for i, entry in enumerate(eval_set)]
    if named is None:
        raise TypeError(
            f"eval_set must be a mapping of names to tuples {form}, or a list of such tuples, for"
            f" example eval_set=[{form}], got {type(eval_set).__name__}"
        )
    for name, entry in named:
        if not isinstance(name, str) or not isinstance(entry, tuple) or len(entry) != size:
            raise TypeError(f"eval_set[{name!r}] must be a tuple {form} under a name of type str")
    return named
