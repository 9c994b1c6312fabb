"""What a model tells about itself."""

from __future__ import annotations

from typing import Optional

from .. import _core

# Losses whose models begin with a group for the start value.
_LOSSES_WITH_START = ("LogLoss", "Absolute", "Huber", "Quantile")
# The setting that says so of a model with an objective.
BASE_SCORE = "baseScore"


class ModelFacts(_core.Model):
    """The properties of `Model`."""

    _best_iteration: Optional[int] = None

    @property
    def n_features(self) -> int:
        """The number of columns of the data."""
        return self.num_columns

    @property
    def n_trees(self) -> int:
        """The number of trees, the start value's included."""
        return self.num_trees

    @property
    def n_groups(self) -> int:
        """The number of rounds, and one for a start value. A forest is one group."""
        return self.num_groups

    @property
    def n_rounds(self) -> int:
        """The number of rounds of boosting; 1 for a forest or a single tree."""
        return self.num_groups - self._num_start_groups()

    @property
    def n_classes(self) -> int:
        """The number of classes of a classification, 0 for other models."""
        return self.num_classes

    @property
    def model_type(self) -> str:
        """GBDT, GBRank, RandomForest or CART."""
        return self.type

    @property
    def feature_names(self) -> Optional[list[str]]:
        """The names of the columns, None if they are not known."""
        return self.describe("column") or None

    @property
    def classes(self) -> Optional[list[str]]:
        """The names of the classes, None if they are not known."""
        return self.describe("class") or None

    @property
    def parameters(self) -> dict[str, str]:
        """The parameters of the training by their names in docs/parameters.md, as texts. Empty for
        a file without a description."""
        return dict(text.split("=", 1) for text in self.describe("setting"))

    @property
    def best_iteration_(self) -> Optional[int]:
        """The best round, from 1; None if nothing was evaluated. Only early stopping cuts the model
        to it."""
        if self._best_iteration is not None:
            return self._best_iteration
        described = self.describe("bestRound")
        return int(described[0]) if described and described[0] != "0" else None

    best_iteration = best_iteration_

    @property
    def missing(self) -> Optional[float]:
        """What is read as missing: NaN alone, NaN and this number, or nothing (None)."""
        words = " ".join(self.describe("missing")).split()
        numbers = [word for word in words if word not in ("nan", "absent")]
        if numbers:
            return float(numbers[0])
        # Files without a description say nothing about it.
        return float("nan") if words or not self.describe("setting") else None

    def __repr__(self) -> str:
        what = f"{self.n_rounds} rounds" if self._has_rounds() else f"{self.n_trees} trees"
        return f"Model({self.type}, {self.loss}, {what}, {self.n_features} columns)"

    def _has_rounds(self) -> bool:
        """Whether it is a boosting: a group per round, after that of a start value."""
        return self.type in ("GBDT", "GBRank")

    def _num_start_groups(self) -> int:
        """1 if the first group is a start value, otherwise 0."""
        if self.loss in _LOSSES_WITH_START:
            return 1
        return int(self.loss == "USER" and BASE_SCORE in self.parameters)
