"""The part of one worker in a training."""

from __future__ import annotations

import math
import warnings
from collections.abc import Sequence
from dataclasses import dataclass
from typing import Any, Optional, Union

import numpy as np

from .. import _core
from .._data.dataset import Dataset
from .._data.tables import Frame, as_table
from .checkpoints import Wanted, check_refusal, checkpoints
from .exchange import Group, Membership, RanksLost
from .shares import Part, share_of


RANKS_LOST = "ranks lost"


@dataclass(frozen=True)
class Plan:
    """What a training is made of, beside the chunks: the same at all ranks.

    Attributes
    ----------
    estimator : estimator of sylvora
        With its parameters.
    chunked : sequence of str
        The fields of `Part` that were given.
    arguments : dict
        The other arguments of fit, for all rows.
    checkpoints : Wanted or None
        None: no checkpoint is written.
    """

    estimator: Any
    chunked: Sequence[str]
    arguments: dict[str, Any]
    checkpoints: Optional[Wanted] = None


@dataclass(frozen=True)
class Fitted:
    """What rank 0 returns: the fitted estimator, the warnings of its fit, and the last
    checkpoints by number, if they were wanted."""

    estimator: Any
    warnings: list[str]
    checkpoints: dict[int, bytes]


def _agreed(columns: list[Optional[list[str]]]) -> Optional[list[str]]:
    """The names of the columns, by rank; None for a rank without names."""
    for rank, names in enumerate(columns):
        if names != columns[0]:
            raise ValueError(
                f"X: the chunks of worker {rank} have the columns {names}, those of worker 0 have "
                f"{columns[0]}: all chunks need the same columns, in the same order"
            )
    return columns[0]


def _frame_of(group: Group, rows: Any, missing: Optional[float]) -> Frame:
    """The rows of this rank as a table, which may be empty if others have rows."""
    frame = None if rows is None else as_table(rows, missing=missing)
    seen = group.gather(None if frame is None else (frame.names, frame.num_columns))
    known = [shape for shape in seen if shape is not None]
    if not known:
        raise ValueError("Found array with 0 sample(s) while a minimum of 1 is required: X")
    names = _agreed([shape[0] for shape in known])
    if frame is None:
        whole_missing = None if missing is None or math.isnan(missing) else missing
        table = _core.Table.from_dense(np.empty((0, known[0][1])), whole_missing, missing is None)
        frame = Frame(table, names, 0, known[0][1])
    return frame


def _gather(group: Group, plan: Plan, parts: Sequence[Part]) -> tuple[Dataset, dict[str, Any]]:
    """The rows of all ranks, and the arguments of fit that belong to them."""
    rows, columns = share_of(parts)
    arguments = dict(plan.arguments)
    for name in plan.chunked:
        values = group.gather(columns[name])
        arguments[name] = np.concatenate([value for value in values if value is not None])
    missing = plan.estimator.missing
    frame = _frame_of(group, rows, missing)
    return Dataset._gathered(group, frame, missing), arguments


def train_rank(
    plan: Plan,
    job: str,
    rank: int,
    addresses: Sequence[str],
    parts: Sequence[Part],
    given: Sequence[bytes],
) -> Union[Fitted, str, None]:
    """The task of a rank: its rows are those of `parts`, in order. Rank 0 is given the checkpoints
    to go on from.

    Returns None at all but rank 0, and RANKS_LOST at a rank that had to end because of others.
    """
    try:
        with Membership(job, rank, addresses) as group:
            with checkpoints(group, plan.checkpoints, given) as settings:
                dataset, arguments = _gather(group, plan, parts)
                del parts
                dataset._checkpoints = settings
                fitted = _fit(group, plan, dataset, arguments)
        return fitted if rank == 0 else None
    except RanksLost:
        return RANKS_LOST


def _fit(group: Group, plan: Plan, dataset: Dataset, arguments: dict[str, Any]) -> Fitted:
    with warnings.catch_warnings(record=True) as caught:
        warnings.simplefilter("always")
        try:
            estimator = plan.estimator.fit(dataset, arguments.pop("y"), **arguments)
        except _core.TrainingError as error:
            check_refusal(group, error)
            raise
    texts = [str(one.message) for one in caught if issubclass(one.category, UserWarning)]
    wanted = group.folder is not None and plan.checkpoints is not None and plan.checkpoints.last
    news = group.folder.news({}) if wanted else {}
    return Fitted(estimator, texts, {number: data for number, (_, data) in news.items()})
