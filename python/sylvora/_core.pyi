# The extension module: blocks of data, data sets, trainings and models, one to one over
# src/sylvora_c.h. It knows no NumPy; arrays come and go through the buffer protocol. Arguments are
# positional. Functions release the interpreter's global lock while the library works.
from __future__ import annotations

import builtins
import os
from collections.abc import Callable, Sequence
from typing import Any, Optional, TypeVar, final

# An object with the buffer protocol.
Buffer = Any
ModelT = TypeVar("ModelT", bound="Model")

__version__: str

class error(Exception): ...
class ModelError(error, ValueError): ...
class TrainingError(error, ValueError): ...

def LoadModel(path: str | os.PathLike[str], /) -> int: ...
def OnlineTesting(handle: int, row: list[Any], /) -> list[float]: ...
def ReleaseModel(handle: int, /) -> None: ...

@final
class Table:
    """Borrowed values: keeps references to the buffers, never copies them (except Arrow streams of
    several chunks). Immutable. Faults raise ValueError or TypeError.

    `missing`: a number that is read as missing, too; `refuse_nan`: NaN is an error instead of
    missing. Infinities are always refused where the table is used (ValueError that names row and
    column).
    """

    num_rows: int
    num_columns: int
    # Names of an Arrow table; None otherwise.
    names: Optional[list[str]]
    # 2-D: float64, float32, or integers and booleans of any size; any strides.
    @classmethod
    def from_dense(cls, values: Buffer, missing: Optional[float], refuse_nan: bool, /) -> Table: ...
    # One 1-D buffer per column, or a pair of it and a buffer of bytes with one bit per row, least
    # significant first: 0 is missing.
    @classmethod
    def from_columns(
        cls,
        columns: Sequence[Buffer | tuple[Buffer, Buffer]],
        num_rows: int,
        missing: Optional[float],
        refuse_nan: bool,
        /,
    ) -> Table: ...
    # CSR with by_rows, else CSC; begins and indices are int32 or int64. Indices must ascend.
    @classmethod
    def from_sparse(
        cls,
        shape: tuple[int, int],
        by_rows: bool,
        values: Buffer,
        indices: Buffer,
        begins: Buffer,
        missing: Optional[float],
        refuse_nan: bool,
        /,
    ) -> Table: ...
    # Any object with __arrow_c_stream__ or __arrow_c_array__ whose elements are structs (tables,
    # record batches). Columns of other types than numbers and booleans: TypeError that names the
    # column. Dictionary-encoded columns, too. With refuse_nan, null is a ValueError at once.
    @classmethod
    def from_arrow(cls, data: Any, missing: Optional[float], refuse_nan: bool, /) -> Table: ...
    # Copies a column into float64 of one item per row; missing values become NaN.
    def column(self, column: int, out: Buffer, /) -> None: ...

@final
class Dataset:
    """A table that is coded once, by the first training that uses it. Thread-safe."""

    num_rows: int
    num_columns: int
    def __new__(cls, table: Table, /) -> Dataset: ...
    # rows: int32
    def subset(self, rows: Buffer, /) -> Dataset: ...

@final
class Training:
    """One training. Not thread-safe; it runs once."""

    best_round: int  # of earlyStop, from 1; 0: none
    stopped_early: bool
    def set(self, parameter: str, value: str, /) -> None: ...
    # labels: float64, queries: int32; both are copied.
    def data(self, data: Dataset, labels: Buffer, queries: Optional[Buffer], /) -> None: ...
    def weights(self, weights: Buffer, /) -> None: ...  # int32
    # Sets lossFunc to USER. Before each call of function(round) the library fills `scores`; after
    # it, it reads `gradients` (negative ones) and `hessians`. All are writable float64 buffers with
    # one item per row, which the training keeps.
    def objective(
        self,
        function: Callable[[int], object],
        scores: Buffer,
        gradients: Buffer,
        hessians: Optional[Buffer],
        /,
    ) -> None: ...
    def start(self, value: float, /) -> None: ...
    # The table is borrowed until the run ends; labels and queries are copied.
    def evaluate(
        self, name: str, table: Table, labels: Buffer, queries: Optional[Buffer], /
    ) -> None: ...
    def metric(self, name: str, /) -> None: ...
    # function(set name, scores as bytes of float64) -> float
    def user_metric(
        self, name: str, function: Callable[[str, bytes], float], larger_is_better: bool, /
    ) -> None: ...
    def stop_rule(self, set: Optional[str], metric: Optional[str], /) -> None: ...
    # function(rounds done, rounds in all) -> whether to stop and keep the model. Without one, the
    # run still ends within a round, or a few hundredths of a second, after Ctrl-C.
    def on_progress(self, function: Callable[[int, int], bool], /) -> None: ...
    # function(stream, text), in the thread that trains or one of its workers.
    def on_message(self, function: Callable[[int, str], object], /) -> None: ...
    # Trains. An exception of a function ends the run and is raised here as it is. Faults of
    # parameters or labels: TrainingError. MemoryError when memory runs out.
    def run(self, model_class: type[ModelT], /) -> ModelT: ...
    # (set, metric, values by round), also in a progress function
    def record(self) -> list[tuple[str, str, list[float]]]: ...
    # In a progress function: a copy of the model so far.
    def snapshot(self, model_class: type[ModelT], /) -> ModelT: ...

class Model:
    """A model. Scoring is thread-safe. `cut` and `set_description` need exclusive access."""

    num_columns: int
    num_classes: int  # 0: regression
    num_groups: int
    num_trees: int
    type: str
    loss: str
    # Raise ModelError whose text begins with the file's name; OSError if it cannot be opened.
    @classmethod
    def read(cls: builtins.type[ModelT], path: str | os.PathLike[str], described: bool, /) -> ModelT: ...
    @classmethod
    def parse(cls: builtins.type[ModelT], text: Buffer, described: bool, /) -> ModelT: ...
    # The file is replaced as a whole or left as it was. OSError or ModelError.
    def write(self, path: str | os.PathLike[str], digits: int, described: bool, /) -> None: ...
    def text(self, digits: int, described: bool, /) -> bytes: ...
    # A list, a tuple, or a 1-D buffer of float64, float32 or integers; None and NaN are missing.
    def score(self, row: Any, /) -> float: ...
    # Fill writable C-contiguous buffers; threads 0: all usable processors.
    def score_table(self, table: Table, out: Buffer, threads: int, /) -> None: ...  # float64 (n,)
    def add_groups(  # adds to float64 (n,)
        self, table: Table, first: int, end: int, out: Buffer, threads: int, /
    ) -> None: ...
    def leaves(self, table: Table, out: Buffer, threads: int, /) -> None: ...  # int32 (n, trees)
    def votes(self, table: Table, out: Buffer, threads: int, /) -> None: ...  # float64 (n, classes)
    def cut(self, num_groups: int, /) -> None: ...
    # Nodes as bytes of (threshold f8, output f8, column i4, left i4, right i4, cover i4), the group
    # and its shrink.
    def tree(self, tree: int, /) -> tuple[bytes, int, float]: ...
    # Keys: column, class, link, missing, bestRound, setting.
    def describe(self, key: str, /) -> list[str]: ...
    def set_description(self, key: str, texts: Sequence[str], /) -> None: ...

# out[i] = probability of the larger label at scores[i]; both float64 and contiguous, may be the same.
def probabilities(loss: str, scores: Buffer, out: Buffer, /) -> None: ...
# out[i] = 1 / (1 + exp(-scores[i])), bit for bit as the loss LogLoss has it; arrays as above.
def expit(scores: Buffer, out: Buffer, /) -> None: ...
# The start value of the loss LogLoss. labels: float64, weights: int32.
def log_odds(labels: Buffer, weights: Optional[Buffer], /) -> float: ...
