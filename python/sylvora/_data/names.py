"""Names of columns: found, checked, matched, and put into the texts of errors."""

from __future__ import annotations

import re
from collections.abc import Iterable, Sequence
from typing import Any, Optional, TypeVar

Names = Optional[list[str]]
ErrorT = TypeVar("ErrorT", bound=Exception)

_MOST_SHOWN = 20
# How the library begins what it says of a table, and of a set to evaluate.
_BLOCK = "The data block"
_EVALUATED = re.compile(r'evaluation set "([^"]*)": ')


def names_of(X: Any, argument: str) -> Names:
    """Names of the columns of a table that is no array, or None if its labels are not text.

    Raises
    ------
    TypeError
        Some labels are text, others are not.
    ValueError
        A name occurs twice.
    """
    for attribute in ("column_names", "columns"):  # the first is pyarrow's
        labels: Any = getattr(X, attribute, None)
        if hasattr(labels, "__len__"):
            return unique(list(labels), argument)
    return None


def given_names(names: Any, num_columns: int) -> list[str]:
    """Names that a user gives to columns. Raises TypeError and ValueError."""
    if isinstance(names, str) or not isinstance(names, Iterable):
        raise TypeError("feature_names must be a list of text, one name per column")
    names = list(names)
    if not all(isinstance(name, str) for name in names):
        raise TypeError("feature_names must be a list of text, one name per column")
    if len(names) != num_columns:
        raise ValueError(f"feature_names has {len(names)} names for {num_columns} columns")
    return unique([str(name) for name in names], "feature_names") or []


def unique(labels: Optional[list[Any]], argument: str) -> Names:
    """The labels if they are text; see `names_of`."""
    are_text = [isinstance(label, str) for label in labels or ()]
    if labels is None or not any(are_text):
        return None
    if not all(are_text):
        other = type(labels[are_text.index(False)]).__name__
        raise TypeError(
            f"{argument}: Feature names are only supported if all input features have string names,"
            f" but some labels of columns are text and others are of type {other}; convert them, "
            f"for example by {argument}.columns = {argument}.columns.astype(str)"
        )
    seen: set[str] = set()
    for label in labels:
        checked_text(label, argument)
        if label in seen:
            raise ValueError(f'{argument}: two columns have the name "{label}"; rename one of them')
        seen.add(label)
    return labels


def checked_text(name: str, argument: str) -> str:
    """Returns a name if a model's description can hold it. Raises ValueError."""
    try:
        name.encode()
    except UnicodeEncodeError:
        raise ValueError(f"{argument}: {name!r} is not valid Unicode") from None
    if "\0" in name:
        raise ValueError(f"{argument}: {name!r} has a null character")
    return name


def order_of(found: Names, wanted: Sequence[str], argument: str) -> Optional[list[int]]:
    """Where the wanted columns are; None: in their places, or without names.

    Raises
    ------
    ValueError
        Names that are missing or surplus, listed.
    """
    if found is None or found == list(wanted):
        return None
    place = {name: i for i, name in enumerate(found)}
    missing = [name for name in wanted if name not in place]
    known = set(wanted)
    surplus = [name for name in found if name not in known]
    if not missing and not surplus:
        return [place[name] for name in wanted]
    faults = [
        f" {what}: {_listed(names)}."
        for what, names in (("Missing", missing), ("Surplus", surplus))
        if names
    ]
    raise ValueError(
        f"{argument}: the columns must be those that were passed during fit, in any order."
        + "".join(faults)
    )


def _listed(names: list[str]) -> str:
    shown = ", ".join(f'"{name}"' for name in names[:_MOST_SHOWN])
    more = len(names) - _MOST_SHOWN
    return shown + (f" and {more} more" if more > 0 else "")


def with_names(
    error: ErrorT, names: Optional[Sequence[str]], argument: str = "X"
) -> ErrorT:
    """Return an error of the use of a table in the words of the caller.

    Parameters
    ----------
    error : Exception
        What a method of `_core` raised.
    names : sequence of str or None
        Names of the table's columns, which replace their numbers.
    argument : str
        What the caller calls the table.
    """
    known = names or ()

    def name(match: re.Match[str]) -> str:
        column = int(match[1])
        return f'column "{known[column]}"' if column < len(known) else match[0]

    text = re.sub(r"\bcolumn (\d+)\b", name, str(error))
    text = _EVALUATED.sub(lambda match: f"eval_set[{match[1]!r}] ", text)
    if text.startswith((_BLOCK, "eval_set[")):
        text = text.replace(_BLOCK, argument, 1).rstrip("!")
        if "infinite value in row" in text:
            text += "; put a finite number there, or NaN if the value is missing"
        elif "has a NaN in row" in text:
            text += "; missing=None does not allow it"
    return type(error)(text)
