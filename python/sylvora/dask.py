"""Estimators that train and predict on a Dask cluster (needs dask and distributed).

The classes have the names of those of `sylvora`, and their parameters. Data are arrays or
dataframes of Dask, chunked by rows. The model is that of the class of `sylvora` on all rows, byte
for byte: it does not depend on the chunks, or on the number of workers.

Examples
--------
>>> from distributed import Client                                        # doctest: +SKIP
>>> import dask.array as da                                               # doctest: +SKIP
>>> from sylvora.dask import SylvoraRegressor                             # doctest: +SKIP
>>> client = Client()                                                     # doctest: +SKIP
>>> X = da.random.random((100000, 20), chunks=(10000, 20))                # doctest: +SKIP
>>> regressor = SylvoraRegressor(n_estimators=100).fit(X, X[:, 0])        # doctest: +SKIP
>>> regressor.predict(X).mean().compute()                                 # doctest: +SKIP
"""

from __future__ import annotations

from ._dask.estimators import (
    SylvoraClassifier,
    SylvoraForestClassifier,
    SylvoraForestRegressor,
    SylvoraRanker,
    SylvoraRegressor,
)

__all__ = [
    "SylvoraClassifier",
    "SylvoraForestClassifier",
    "SylvoraForestRegressor",
    "SylvoraRanker",
    "SylvoraRegressor",
]
