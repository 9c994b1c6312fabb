"""One table of numbers in many forms, and the little that is needed to train on it and score it.

Without NumPy, or for the older module, `np` is None. `pd` and `sparse` are pandas and scipy.sparse,
or None.
"""
from decimal import Decimal

try:
    import numpy as np
    from sylvora import _core
    from sylvora._data.tables import as_labels, as_table
    from sylvora._data.dataset import Dataset
except ImportError:
    np = None
try:
    import pandas as pd
except ImportError:
    pd = None
try:
    import scipy.sparse as sparse
except ImportError:
    sparse = None

NAMES = ['age', 'size', 'weight', 'height']


def small_data(num_rows=300):
    """Values with few digits, exact in float32, some of them missing or 0."""
    random = np.random.RandomState(1)
    X = random.randint(-40, 40, (num_rows, 4)) / 8.0
    y = X.dot([1, -2, 3, 0.5]) + random.rand(num_rows)
    X[random.rand(*X.shape) < 0.1] = np.nan
    X[random.rand(*X.shape) < 0.3] = 0
    return X, y


def train(X, y, **options):
    training = _core.Training()
    for parameter, value in (('modelType', 'GBDT'), ('lossFunc', 'Square'), ('numTree', '25'),
                             ('maxDepth', '6'), ('maxLeaf', '40'), ('numBound', '2')):
        training.set(parameter, value)
    data = X if isinstance(X, Dataset) else Dataset(X, **options)
    training.data(data._core, as_labels(y, data.num_rows), None)
    return training.run(_core.Model)


def score(model, X, **options):
    frame = as_table(X, **options)
    scores = np.empty(frame.num_rows)
    model.score_table(frame.table, scores, 1)
    return scores


class ArrayLike(object):
    """What only converts itself."""

    def __init__(self, values):
        self.values = values

    def __array__(self, dtype=None, copy=None):
        return np.asarray(self.values, dtype=dtype)


def overlapping_rows(X):
    """Rows that begin one value apart, as windows over a series do."""
    series = np.concatenate([X[:, 0], X[-1, 1:]])
    return np.lib.stride_tricks.as_strided(series, X.shape, (8, 8))


def shuffled_columns(X):
    wide = np.full((len(X), 11), 99.0)
    wide[:, 9:1:-2] = X
    return wide[:, 9:1:-2]


def records(X, packed):
    kinds = np.dtype([(name, kind) for name, kind in zip(NAMES, ['f8', 'f4', '>f8', 'f8'])],
                     align=not packed)
    return np.array([tuple(row) for row in X], dtype=kinds)


def array_forms(X):
    """The same table in forms that need NumPy only: name, table."""
    with_none = [[None if value != value else value for value in row] for row in X.tolist()]
    reversed_rows = np.ascontiguousarray(X[::-1])[::-1]
    every_other = np.repeat(X, 2, axis=0)[::2]
    hidden = np.where(np.isnan(X), 7.0, X)
    unaligned = np.frombuffer(b'x' + X.tobytes(), dtype=np.uint8)[1:].view('f8').reshape(X.shape)
    read_only = X.copy()
    read_only.flags.writeable = False
    return [('Fortran order', np.asfortranarray(X)), ('rows backwards', reversed_rows),
            ('every other row', every_other), ('columns backwards', shuffled_columns(X)),
            ('float32', X.astype(np.float32)), ('float16', X.astype(np.float16)),
            ('long double', X.astype(np.longdouble)), ('big endian', X.astype('>f8')),
            ('unaligned', unaligned), ('read only', read_only), ('matrix', np.matrix(X)),
            ('objects', X.astype(object)), ('lists', X.tolist()), ('lists with None', with_none),
            ('tuple of arrays', tuple(X)), ('decimals', [[Decimal(v) for v in row] for row in X]),
            ('array-like', ArrayLike(X)), ('memoryview', memoryview(X)),
            ('masked', np.ma.array(hidden, mask=np.isnan(X), order='F')),
            ('masked objects', np.ma.array(X.astype(object), mask=np.isnan(X))),
            ('nothing masked', np.ma.array(X)),
            ('records', records(X, False)), ('packed records', records(X, True))]


def frame_forms(X):
    """The same table as pandas frames, small enough to be copied and not."""
    frame = pd.DataFrame(X, columns=NAMES)
    apart = pd.DataFrame({name: X[:, i].astype('f4' if i else 'f8')
                          for i, name in enumerate(NAMES)})
    apart['more'] = 1
    objects = frame.astype(object).where(frame.notna(), None)
    objects['age'] = objects['age'].where(frame['age'].notna(), pd.NA)
    padded = pd.concat([frame.iloc[:5], frame])
    return [('frame', frame), ('frame of columns', pd.DataFrame(dict(zip(NAMES, X.T)))),
            ('mixed frame', apart[NAMES]), ('part of a frame', padded.iloc[5:]),
            ('nullable', frame.astype('Float64')), ('objects', objects),
            ('nullable apart', frame.astype({'age': 'Float32', 'size': 'float32'})),
            ('sparse columns', frame.astype(pd.SparseDtype('float64', 0.0))),
            ('float16', frame.astype(np.float16)), ('big endian', frame.astype('>f8')),
            ('unlike sparse columns', frame.astype({'age': pd.SparseDtype('float32', 0.0),
                                                    'size': pd.SparseDtype('float64', 0.0)})),
            ('sparse NaN', frame.astype({'size': pd.SparseDtype('float64', np.nan)}))]


def sparse_forms(X):
    rows = sparse.csr_matrix(X)
    long_indices = rows.copy()
    long_indices.indices = rows.indices.astype(np.int64)
    long_indices.indptr = rows.indptr.astype(np.int64)
    backwards = sparse.csr_matrix(X[:, ::-1])
    backwards.indices = X.shape[1] - 1 - backwards.indices
    backwards.has_sorted_indices = False
    doubled = sparse.coo_matrix((np.r_[rows.data, rows.data] / 2,
                                 (np.tile(np.repeat(np.arange(len(X)), np.diff(rows.indptr)), 2),
                                  np.tile(rows.indices, 2))), X.shape)
    forms = [(kind, rows.asformat(kind))
             for kind in ('csr', 'csc', 'coo', 'lil', 'dok', 'bsr')]
    return forms + [('csr array', sparse.csr_array(X)), ('int64 indices', long_indices),
                    ('float32', rows.astype(np.float32)),
                    ('unsorted indices', backwards), ('repeated entries', doubled),
                    ('stored zeros', sparse.csr_matrix((X.ravel(), np.tile(np.arange(4), len(X)),
                                                        np.arange(len(X) + 1) * 4), X.shape))]
