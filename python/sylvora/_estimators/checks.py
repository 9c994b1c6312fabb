"""What an estimator checks of its parameters itself; settings_of and fit check the others."""

from __future__ import annotations

from collections.abc import Mapping, Sequence
from typing import Any

# None means something else than a forgotten value.
_MAY_BE_NONE = frozenset(
    "class_weight objective base_score early_stopping_rounds eval_metric missing random_state"
    " n_jobs callbacks".split()
) | frozenset(
    # settings_of says which number to use instead.
    "max_depth max_leaf_nodes max_features subsample".split()
)


def _check_choice(name: str, value: Any, texts: Sequence[str]) -> None:
    allowed = ", ".join(repr(text) for text in texts)
    if not isinstance(value, str):
        raise TypeError(f"{name} must be one of {allowed}, got {value!r}")
    if value not in texts:
        raise ValueError(f"{name} must be one of {allowed}, got {value!r}")


def check_parameters(params: Mapping[str, Any], choices: Mapping[str, Sequence[str]]) -> None:
    """Check texts and functions, and that no parameter without a meaning for None is None.

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
        If a text is not among those allowed.
    """
    for name, texts in choices.items():
        _check_choice(name, params[name], texts)
    for name, value in params.items():
        if value is None and name not in _MAY_BE_NONE:
            raise TypeError(f"{name} must be a number, got None")
    objective = params.get("objective")
    if objective is not None and not callable(objective):
        raise TypeError(
            f"objective must be a function of labels and scores, or None, got {objective!r}"
        )
