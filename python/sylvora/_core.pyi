# The extension module: blocks of data, data sets, trainings and models, one to one over
# src/sylvora_c.h. It knows no NumPy; arrays come and go through the buffer protocol. Arguments are
# positional. Functions release the interpreter's global lock while the library works, all but
# Model.score. Arguments of a wrong type raise TypeError, other faults ValueError; "array: fault" is
# the form of messages about buffers. Objects can neither be copied nor pickled.
from __future__ import annotations

import builtins
import os
from collections.abc import Callable, Sequence
from typing import Any, Optional, Protocol, TypeVar, final

# An object with the buffer protocol.
_Buffer = Any
_ModelT = TypeVar("_ModelT", bound="Model")

__version__: str

class error(Exception): ...
class ModelError(error, ValueError): ...
class TrainingError(error, ValueError): ...

def LoadModel(path: str | os.PathLike[str], /) -> int: ...
def OnlineTesting(handle: int, row: list[Any], /) -> list[float]: ...
def ReleaseModel(handle: int, /) -> None: ...

@final
class Table:
    """Borrowed values: keeps the buffers, so that they cannot be resized, and never copies them
    (except Arrow booleans, and Arrow streams of several chunks). Immutable; the values must not
    change while the table, or a data set of it, is used. Made by the functions below.

    `missing`: a number that is read as missing, too; `refuse_nan`: NaN is an error instead of
    missing. Infinities are always refused where the table is used (ValueError that names row and
    column).
    """

    num_rows: int
    num_columns: int
    # Names of an Arrow table; None otherwise.
    names: Optional[list[str]]
    # 2-D: float64, float32, or integers and booleans of any size, in native order; any strides.
    # Cells that overlap, as of a broadcast, are refused where the table is used.
    @classmethod
    def from_dense(
        cls, values: _Buffer, missing: Optional[float], refuse_nan: bool, /
    ) -> Table: ...
    # One 1-D buffer per column, or a pair of it and a buffer of bytes with one bit per row, least
    # significant first: 0 is missing; None: nothing is.
    @classmethod
    def from_columns(
        cls,
        columns: Sequence[_Buffer | tuple[_Buffer, Optional[_Buffer]]],
        num_rows: int,
        missing: Optional[float],
        refuse_nan: bool,
        /,
    ) -> Table: ...
    # CSR with by_rows, else CSC; all are contiguous, begins and indices int32 or int64. Indices
    # must ascend within a row or column; that is checked where the table is used.
    @classmethod
    def from_sparse(
        cls,
        shape: tuple[int, int],
        by_rows: bool,
        values: _Buffer,
        indices: _Buffer,
        begins: _Buffer,
        missing: Optional[float],
        refuse_nan: bool,
        /,
    ) -> Table: ...
    # Any object with __arrow_c_stream__ or __arrow_c_array__ whose elements are structs (tables,
    # record batches). Columns of other types than numbers, booleans and nulls: TypeError that names
    # the column; half-precision floats and dictionary-encoded columns, too. With refuse_nan, null
    # is a ValueError at once.
    @classmethod
    def from_arrow(cls, data: Any, missing: Optional[float], refuse_nan: bool, /) -> Table: ...
    # A table of the same values with these columns, in this order, and their names. For tables by
    # column or of Arrow only: ValueError. IndexError if there is no such column.
    def select(self, order: Sequence[int], /) -> Table: ...

class _Communicator(Protocol):
    """How ranks exchange bytes: sylvora_communicator of the C interface. The views are of bytes,
    and can be used during the call only. Exceptions end the training at this rank."""

    @property
    def rank(self) -> int: ...
    @property
    def size(self) -> int: ...
    def allgather(self, mine: memoryview, all: memoryview, /) -> object: ...
    def broadcast(self, data: memoryview, root: int, /) -> object: ...
    def alltoall(self, mine: memoryview, all: memoryview, /) -> object: ...
    def cancelled(self) -> bool: ...

@final
class Dataset:
    """A table that is coded once, by the first training that uses it. Thread-safe."""

    num_rows: int
    num_columns: int
    def __new__(cls, table: Table, /) -> Dataset: ...
    # The rows that the ranks of a training have, of rank 0 first; each rank calls. See
    # sylvora_dataset_gather. An exception of the communicator ends the call, or the training on the
    # set, and is raised there.
    @classmethod
    def gather(cls, communicator: _Communicator, table: Table, /) -> Dataset: ...
    # rows: int32
    def subset(self, rows: _Buffer, /) -> Dataset: ...
    # Copies a column into float64 of one item per row; a missing value is -2147483648.
    def column(self, column: int, out: _Buffer, /) -> None: ...

@final
class Training:
    """One training. It runs once, with success or not. While it runs, and afterwards, it cannot be
    changed: RuntimeError, in other threads as well. What the library refuses is a TrainingError.
    """

    # Both are, as `record`, for other threads and functions only when the training does not run.
    best_round: int  # of earlyStop, from 1; 0: none
    stopped_early: bool
    def set(self, parameter: str, value: str, /) -> None: ...
    # labels: float64, queries: int32; both are copied.
    def data(self, data: Dataset, labels: _Buffer, queries: Optional[_Buffer], /) -> None: ...
    def weights(self, weights: _Buffer, /) -> None: ...  # int32
    # Sets lossFunc to USER. Before each call of function(round) the library fills `scores`; after
    # it, it reads `gradients` (negative ones) and `hessians`. All are writable, contiguous float64
    # buffers with one item per row, which the training keeps until it has run. Their lengths must
    # be equal here, and that of the data when it runs.
    def objective(
        self,
        function: Callable[[int], object],
        scores: _Buffer,
        gradients: _Buffer,
        hessians: Optional[_Buffer],
        /,
    ) -> None: ...
    def start(self, value: float, /) -> None: ...
    # The table is borrowed until the run ends; labels and queries are copied.
    def evaluate(
        self, name: str, table: Table, labels: _Buffer, queries: Optional[_Buffer], /
    ) -> None: ...
    def metric(self, name: str, /) -> None: ...
    # function(set name, scores as bytes of float64) -> float
    def user_metric(
        self, name: str, function: Callable[[str, bytes], float], larger_is_better: bool, /
    ) -> None: ...
    def stop_rule(self, set: Optional[str], metric: Optional[str], /) -> None: ...
    # function(rounds done, rounds in all) -> whether to stop and keep the model. With or without
    # one, Ctrl-C ends the run after the round, or the tree of a forest, that is under way.
    def on_progress(self, function: Callable[[int, int], bool], /) -> None: ...
    # function(stream, text), in the thread that trains or one of its workers.
    def on_message(self, function: Callable[[int, str], object], /) -> None: ...
    # Trains. The first exception of a function ends the run and is raised here as it is. Faults of
    # parameters or labels: TrainingError. MemoryError when memory runs out. Drops all functions and
    # buffers. The model's __new__ and __init__ are not called, here and in other functions.
    def run(self, model_class: type[_ModelT], /) -> _ModelT: ...
    # (set, metric, values by round), also after a failed run and in a progress function. While the
    # training runs, other functions and threads get a RuntimeError.
    def record(self) -> list[tuple[str, str, list[float]]]: ...
    # In a progress function: a copy of the model so far.
    def snapshot(self, model_class: type[_ModelT], /) -> _ModelT: ...

class Model:
    """A model. All is thread-safe; `cut` and `set_description` raise RuntimeError while another
    thread uses the model.
    """

    num_columns: int
    num_classes: int  # 0: regression
    num_groups: int
    num_trees: int
    type: str
    loss: str
    # Raise ModelError whose text begins with the file's name; OSError if it cannot be opened.
    @classmethod
    def read(
        cls: builtins.type[_ModelT], path: str | bytes | os.PathLike[str], described: bool, /
    ) -> _ModelT: ...
    @classmethod
    def parse(cls: builtins.type[_ModelT], text: _Buffer, described: bool, /) -> _ModelT: ...
    # The file is replaced as a whole or left as it was. OSError or ModelError.
    def write(
        self, path: str | bytes | os.PathLike[str], digits: int, described: bool, /
    ) -> None: ...
    def text(self, digits: int, described: bool, /) -> bytes: ...
    # The score of one row: a list, a tuple, or a 1-D buffer of float64, float32 or integers. None
    # and NaN are missing, and so is the number that the description has under `missing`; ValueError
    # if the description says that nothing is missing. Infinities, which score_table refuses, are
    # scored as they are.
    def score(self, row: Any, /) -> float: ...
    # Fill writable C-contiguous buffers; threads 0: all usable processors.
    def score_table(self, table: Table, out: _Buffer, threads: int, /) -> None: ...  # float64 (n,)
    def add_groups(  # adds to float64 (n,)
        self, table: Table, first: int, end: int, out: _Buffer, threads: int, /
    ) -> None: ...
    def leaves(self, table: Table, out: _Buffer, threads: int, /) -> None: ...  # int32 (n, trees)
    # float64 (n, classes)
    def votes(self, table: Table, out: _Buffer, threads: int, /) -> None: ...
    def cut(self, num_groups: int, /) -> None: ...
    # Nodes as bytes of (threshold f8, output f8, column i4, left i4, right i4, cover i4), the group
    # and its shrink. IndexError if there is no such tree.
    def tree(self, tree: int, /) -> tuple[bytes, int, float]: ...
    # Keys: column, class, link, missing, bestRound, setting.
    def describe(self, key: str, /) -> list[str]: ...
    def set_description(self, key: str, texts: Sequence[str], /) -> None: ...

# Processors that the process may use: by its affinity, or less by its control group; at least 1.
def usable_processors() -> int: ...
# out[i] = probability of the larger label at scores[i]; both float64 and contiguous, and may be
# the same array.
def probabilities(loss: str, scores: _Buffer, out: _Buffer, /) -> None: ...
# out[i] = 1 / (1 + exp(-scores[i])), bit for bit as the loss LogLoss has it; arrays as above.
def expit(scores: _Buffer, out: _Buffer, /) -> None: ...
# The start value of the loss LogLoss. labels: float64, weights: int32.
def log_odds(labels: _Buffer, weights: Optional[_Buffer], /) -> float: ...
