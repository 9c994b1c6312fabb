"""Parameters: their names, and their values as the texts that the library takes."""

from __future__ import annotations

import math
import operator
import os
from collections.abc import Mapping
from typing import Any, NamedTuple, Optional, Union

from .facts import LOSSES
from .other_names import unknown
from .processors import usable_jobs


class _Parameter(NamedTuple):
    name: str  # the library's
    kind: str  # "integer", "real", "choice", "seed", "threads" or "switch"
    least: Optional[float] = None
    most: Optional[float] = None
    open_ends: str = ""  # which of the two ends are excluded: "<", ">" or both


_MODELS = {"gbdt": "GBDT", "ranking": "GBRank", "forest": "RandomForest", "tree": "CART"}
_TASKS = {"regression": "REG", "classification": "CLS"}
_UNITS = {"row": "DOC", "query": "QUERY"}
_LOSSES = {name: loss.name for name, loss in LOSSES.items()}
_CHOICES = {"modelType": _MODELS, "fRegCls": _TASKS, "randomMode": _UNITS, "lossFunc": _LOSSES}
# Names of the library that have none of the package.
_OTHER_LOSSES = ("HingeSquareRank", "Label")

# By the names of the package.
_PARAMETERS = {
    "model": _Parameter("modelType", "choice"),
    "task": _Parameter("fRegCls", "choice"),
    "loss": _Parameter("lossFunc", "choice"),
    "n_estimators": _Parameter("numTree", "integer", 1),
    "learning_rate": _Parameter("valShrink", "real", 0, None, "<"),
    "max_depth": _Parameter("maxDepth", "integer", 1),
    "max_leaf_nodes": _Parameter("maxLeaf", "integer", 1),
    "min_samples_split": _Parameter("numBound", "integer", 2),
    "subsample": _Parameter("valSmpRt", "real", 0, 1, "<"),
    "max_features": _Parameter("ratio", "real", 0, 1, "<"),
    "margin": _Parameter("valTau", "real"),
    "subsample_unit": _Parameter("randomMode", "choice"),
    "random_state": _Parameter("randomSeed", "seed"),
    "n_jobs": _Parameter("numThread", "threads"),
    "early_stopping_rounds": _Parameter("earlyStop", "integer", 0),
    "delta": _Parameter("huberDelta", "real", 0, None, "<"),
    "quantile": _Parameter("quantile", "real", 0, 1, "<>"),
}
# By the names of the library, with its ranges. numBound counts one row less than
# min_samples_split.
_OF_LIBRARY = {
    parameter.name: parameter
    for parameter in (
        *_PARAMETERS.values(),
        _Parameter("numBound", "integer", 1),
        _Parameter("valShrink", "real"),
        _Parameter("randomSeed", "real"),
        _Parameter("fPrint", "switch"),
    )
}

# What to give for other libraries' None, -1, 0 or "sqrt". None is refused here: it is not the
# default that it would be elsewhere.
_LIMITS = {
    "maxDepth": "; for no limit, give the value of max_leaf_nodes",
    "maxLeaf": "; for no limit, give the number of rows",
    "ratio": "; it is the share of the n columns: 1.0 for all, k / n for k, n ** -0.5 for sqrt(n)",
    "valSmpRt": "; it is the share of the n rows: 1.0 for all, k / n for k",
}


def settings_of(params: Mapping[str, Any]) -> dict[str, str]:
    """Parameters as the library takes them.

    Parameters
    ----------
    params : mapping of str to value
        By the names of the package or by those of docs/parameters.md. A value of None is the
        default, except of limits and shares, of which it is refused.

    Returns
    -------
    dict of str to str
        Texts by the library's names. Reals read back exactly.

    Raises
    ------
    TypeError, ValueError
        For an unknown name, the same parameter under both names, or a value that is not valid.

    Examples
    --------
    >>> settings_of({"n_estimators": 100, "learning_rate": 0.1, "min_samples_split": 2})
    {'numTree': '100', 'valShrink': '0.1', 'numBound': '1', 'modelType': 'GBDT'}
    """
    settings: dict[str, str] = {}
    given: dict[str, str] = {}
    for name, value in params.items():
        parameter = _find(name)
        if parameter.name in given:
            raise ValueError(
                f"{given[parameter.name]} and {name} are the same parameter: give only one"
            )
        given[parameter.name] = name
        if value is None and parameter.kind not in ("seed", "threads") and (
            parameter.name not in _LIMITS
        ):
            continue
        settings[parameter.name] = _text_of(name, value, parameter)
    _complete(settings, given)
    return settings


def checkpoint_settings(
    checkpoint: Union[str, os.PathLike[str], None], every: Optional[int]
) -> dict[str, str]:
    """The arguments of these names of `train`, as `settings_of` returns parameters."""
    if checkpoint is None:
        if every is not None:
            raise ValueError("checkpoint_every needs a file: give checkpoint")
        return {}
    settings = {"checkpoint": os.fsdecode(checkpoint)}
    if not settings["checkpoint"]:
        raise ValueError("checkpoint must be a file name, got ''")
    if every is not None:
        parameter = _Parameter("checkpointEvery", "integer", 1)
        settings["checkpointEvery"] = _text_of("checkpoint_every", every, parameter)
    return settings


def _find(name: object) -> _Parameter:
    if not isinstance(name, str):
        raise TypeError(f"The name of a parameter must be a string, got {name!r}")
    parameter = _PARAMETERS.get(name) or _OF_LIBRARY.get(name)
    if parameter is not None:
        return parameter
    raise unknown(name, [*_PARAMETERS, *_OF_LIBRARY])


def _text_of(name: str, value: Any, parameter: _Parameter) -> str:
    if parameter.kind == "choice":
        return _choice(name, value, parameter)
    if parameter.kind == "threads":
        return str(usable_jobs(value))
    if parameter.kind == "seed":
        return str(seed_of(value))
    if parameter.kind == "switch":
        if isinstance(value, bool):
            return "true" if value else "false"
        raise TypeError(f"{name} must be True or False, got {value!r}")
    try:
        number = _integer(name, value) if parameter.kind == "integer" else real_number(name, value)
        _check_range(name, number, parameter)
    except (TypeError, ValueError) as error:
        raise type(error)(str(error) + _LIMITS.get(parameter.name, "")) from None
    if name == "min_samples_split":
        number -= 1
    return repr(number)


def _choice(name: str, value: Any, parameter: _Parameter) -> str:
    known = _CHOICES[parameter.name]
    if not isinstance(value, str):
        raise TypeError(f"{name} must be a string, got {value!r}")
    if value in known:
        return known[value]
    if value in known.values() or (parameter.name == "lossFunc" and value in _OTHER_LOSSES):
        return value
    choices = ", ".join(repr(choice) for choice in known)
    raise ValueError(f"{name} must be one of {choices}, got {value!r}")


def _integer(name: str, value: Any) -> int:
    try:
        if not _is_bool(value):
            return int(operator.index(value))
    except TypeError:
        pass
    raise TypeError(f"{name} must be an integer, got {value!r}")


def real_number(name: str, value: Any) -> float:
    """The value as a finite float. Raises TypeError or ValueError, which name the parameter."""
    try:
        if not _is_bool(value) and not isinstance(value, (str, bytes, bytearray)):
            number = float(value)
            if math.isfinite(number):
                return number
            raise ValueError(f"{name} must be finite, got {value!r}")
    except OverflowError:
        raise ValueError(f"{name} must be finite, got a larger number") from None
    except TypeError:
        pass
    raise TypeError(f"{name} must be a number, got {value!r}")


def _is_bool(value: object) -> bool:
    return type(value).__name__ in ("bool", "bool_")


def _check_range(name: str, number: float, parameter: _Parameter) -> None:
    least, most, ends = parameter.least, parameter.most, parameter.open_ends
    low = least is not None and (number <= least if "<" in ends else number < least)
    high = most is not None and (number >= most if ">" in ends else number > most)
    if parameter.kind == "integer" and number >= 2**31:
        raise ValueError(f"{name} must be below 2^31, got {number}")
    if not low and not high:
        return
    if most is None:
        wanted = f"above {least}" if "<" in ends else f"at least {least}"
    else:
        wanted = f"above {least} and {'below' if '>' in ends else 'at most'} {most}"
    raise ValueError(f"{name} must be {wanted}, got {number}")


def seed_of(random_state: Any) -> int:
    """The seed for a `random_state`: an integer from 0 to 2^32 - 1, or None for 1.

    A NumPy RandomState or Generator gives its next integer, so it gives another seed each time.
    """
    if random_state is None:
        return 1
    for draw in ("integers", "randint"):  # of a Generator, of a RandomState
        if hasattr(random_state, draw):
            return int(getattr(random_state, draw)(1, 2**31 - 1))
    seed = _integer("random_state", random_state)
    if not 0 <= seed < 2**32:
        raise ValueError(f"random_state must be from 0 to 2^32 - 1, got {seed}")
    return seed


def _complete(settings: dict[str, str], given: Mapping[str, str]) -> None:
    """Adds what follows from other parameters."""
    model = settings.setdefault("modelType", "GBDT")
    if model in ("RandomForest", "CART"):
        if "fRegCls" not in settings:
            raise ValueError(
                f"A {'forest' if model == 'RandomForest' else 'tree'} needs the parameter task: "
                "'regression' or 'classification'"
            )
    elif settings.get("fRegCls") == "CLS":
        raise ValueError(
            f"{given['fRegCls']}: boosting has no task; choose a loss for two classes, such as "
            "'log_loss'"
        )
    if model == "CART":
        settings.setdefault("numTree", "1")  # the library tells if it is another number
    if model == "GBRank" and settings.get("lossFunc") == "HingeSquare":
        settings["lossFunc"] = "HingeSquareRank"
