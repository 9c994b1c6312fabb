"""Tree ensembles, trained by exact greedy splits and reproducible byte for byte."""

from ._core import LoadModel, OnlineTesting, ReleaseModel, error

__all__ = ["LoadModel", "OnlineTesting", "ReleaseModel", "error"]
