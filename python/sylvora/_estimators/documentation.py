"""Docstrings of the estimators: what they have in common is written here once.

`documented` completes the docstring of an estimator and those of its methods:

- In the section "Parameters" of a class, the line ``{others}`` stands for the parameters that are
  not described before it. The section then has all parameters in the order of the signature, with
  their defaults; what the texts of a parameter may be comes from `_choices`.
- In the section "Attributes" of a class it stands for the other attributes.
- In the docstring of a method, a line with a name of `_PARTS` in braces stands for that text.

An estimator takes the entries of its own docstring first, then those of its base classes, then the
common ones.
"""

from __future__ import annotations

import inspect
import re
from typing import Any, TypeVar

from sklearn.base import ClassifierMixin

ClassT = TypeVar("ClassT", bound=type)

_PARAMETERS = """\
loss
    What the training minimises.
n_estimators : int
    Number of boosting rounds, 1 or more.
learning_rate : float
    Share of each tree's output that is added to the score, above 0.
max_depth : int
    Largest depth of a tree, 1 or more.
max_leaf_nodes : int
    Largest number of leaves of a tree, 1 or more.
min_samples_split : int
    A node below the root is split if it has at least this many rows, 2 or more.
subsample : float
    Share of the rows that is drawn for each tree, without replacement, in (0, 1].
max_features : float
    Share of the features that is drawn for each node, in (0, 1].
objective : callable
    Function of labels and scores, of shape (n_samples,), that returns the negative gradient of
    a loss, or a tuple of it and the second derivative. It is called once per round, and `loss`
    is then not used. The arrays are reused from round to round.
base_score : float
    Score that the first round starts from; only with `objective`.
early_stopping_rounds : int
    Rounds without a better value of the first metric on the last set of `eval_set` that end
    the training; the model is then cut to its best round.
eval_metric : str, callable or list of these
    What is measured on `eval_set` after each round: metrics of the library such as "rmse" or
    "auc", or functions of labels and scores that return a float. Smaller is better unless the
    function has the attribute ``greater_is_better = True``. None: those that suit the loss.
missing : float or None
    A value that is read as missing, beside NaN. None: NaN is an error. A
    :class:`sylvora.Dataset` brings its own.
random_state : int, RandomState, Generator or None
    Seed, from 0 to 2**32 - 1. None is the same as 1. A generator is asked for a seed.
n_jobs : int or None
    Number of threads, up to 256; None is 1, and -1 all usable processors. The result does not
    depend on it.
verbose : int or bool
    Whether the training prints its progress.
callbacks : sequence of sylvora.callbacks.Callback
    Called after every round.
"""

_OF_CLASSIFIERS = """\
classes_ : ndarray of shape (n_classes,)
    The classes, sorted: those of the rows whose weight is above 0.
"""

_OF_ALL = """\
model_ : sylvora.Model
    The trained model.
n_features_in_ : int
    Number of features.
feature_names_in_ : ndarray of str
    Names of the features; only if X has names.
feature_importances_ : ndarray of shape (n_features,)
    Gain of the splits on each feature, as shares of their sum.
"""

_OF_BOOSTING = """\
best_iteration_ : int or None
    The best round on `eval_set`, from 1. None without `eval_set`.
best_score_ : float or None
    The value of the first metric on the last set in that round.
evals_result_ : dict
    ``evals_result_[set][metric]`` is the list of values by round.
"""

_PARTS = {
    "data": """\
Parameters
----------
X : array-like of shape (n_samples, n_features)
    Data of any kind that `fit` takes, but no :class:`sylvora.Dataset`. Columns with names are
    matched by name.""",
    "refusals": """\
Raises
------
sklearn.exceptions.NotFittedError
    Before `fit`.
ValueError, TypeError
    If X does not fit the training data.""",
    "training X": """\
X : array-like of shape (n_samples, n_features) or sylvora.Dataset
    Training data: an array, a data frame, an Arrow table, a sparse matrix or lists.""",
    "weights": """\
sample_weight : array-like of shape (n_samples,), default=None
    Whole numbers of 0 or more. Rows of weight 0 are left out. If not all weights are 1, the
    training takes the rows in the order of their values instead of that in X, so neither
    their order nor rows of weight 0 decide which rows are drawn.""",
    "eval_set": """\
eval_set : mapping of str to (X, y), or list of (X, y), default=None
    Sets to evaluate after each round. In a list they are called eval_0, eval_1, ...""",
    "training errors": """\
Raises
------
ValueError, TypeError
    If a parameter, the data, the labels or the weights are not usable. The estimator is
    then what it was before.
sylvora.error
    If the training fails.""",
}

_SECTION = re.compile(r"^(Parameters|Attributes)\n-+\n((?:.+\n?)+)", re.MULTILINE)
# A name, its type if it is given, and the lines below it.
_ENTRY = re.compile(r"^(\w+)(?: : (.*))?\n((?: +.*\n?)+)", re.MULTILINE)
_PART = re.compile(r"^\{([\w ]+)\}$", re.MULTILINE)

# Type and text by name.
_Entries = dict[str, tuple[str, str]]


def _entries(text: str) -> _Entries:
    return {name: (kind, lines.rstrip()) for name, kind, lines in _ENTRY.findall(text)}


def _described(cls: type, title: str, common: str) -> _Entries:
    entries = _entries(common)
    for base in reversed(cls.__mro__):
        docstring = inspect.cleandoc(vars(base).get("__doc__") or "")
        entries.update(_entries(dict(_SECTION.findall(docstring)).get(title, "")))
    return entries


def _parameter(kind: str, text: str, choices: Any, default: Any) -> tuple[str, str]:
    if choices:
        kind = "{" + ", ".join(f'"{choice}"' for choice in choices) + "}"
    shown = f'"{default}"' if isinstance(default, str) else repr(default)
    return f"{kind}, default={shown}", text


def _parameters(cls: Any) -> _Entries:
    known = _described(cls, "Parameters", _PARAMETERS)
    return {
        name: _parameter(*known[name], cls._choices.get(name), parameter.default)
        for name, parameter in inspect.signature(cls).parameters.items()
    }


def _attributes(cls: type) -> _Entries:
    has_rounds = "early_stopping_rounds" in inspect.signature(cls).parameters
    common = _OF_CLASSIFIERS if issubclass(cls, ClassifierMixin) else ""
    common += _OF_ALL + (_OF_BOOSTING if has_rounds else "")
    return _described(cls, "Attributes", common)


def _completed(cls: type, section: re.Match[str]) -> str:
    if not section[2].rstrip().endswith("{others}"):
        return section[0]
    title = section[1]
    entries = _parameters(cls) if title == "Parameters" else _attributes(cls)
    lines = [f"{name} : {kind}\n{text}\n" for name, (kind, text) in entries.items()]
    return f"{title}\n{'-' * len(title)}\n{''.join(lines)}"


def _document_method(method: Any) -> None:
    docstring = inspect.cleandoc(method.__doc__)
    method.__doc__ = _PART.sub(lambda part: _PARTS[part[1]], docstring)


def documented(cls: ClassT) -> ClassT:
    """Complete the docstrings of a class and of the methods that it defines."""
    if not cls.__doc__:  # python -OO
        return cls
    docstring = inspect.cleandoc(cls.__doc__)
    cls.__doc__ = _SECTION.sub(lambda section: _completed(cls, section), docstring)
    for member in vars(cls).values():
        method = inspect.unwrap(member)  # scikit-learn's available_if wraps it
        if inspect.isfunction(method) and method.__doc__:
            _document_method(method)
            member.__doc__ = method.__doc__
    return cls
