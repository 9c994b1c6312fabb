"""What users pass as data: the same values in every form score the same, faults say where they are.

Needs NumPy; pandas and SciPy if they are installed.
"""
import copy
import gc
import pickle
import sys
import threading
import tracemalloc
import unittest
from decimal import Decimal

try:
    import numpy as np
    from sylvora import _core
    from sylvora._data import (as_labels, as_queries, as_table, as_weights, column_names,
                               with_names)
    from sylvora._dataset import Dataset
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


@unittest.skipIf(np is None, 'needs NumPy and the package')
class Forms(unittest.TestCase):

    def check(self, forms, X, **options):
        """Trains on the array and on every form; the models' texts and the scores are equal."""
        model = train(X, self.y[:len(X)], **options)
        expected, text = score(model, X, **options), model.text(17, False)
        self.assertGreater(len(set(expected)), 200)
        for name, form in forms:
            with self.subTest(name):
                np.testing.assert_array_equal(score(model, form, **options), expected)
                self.assertEqual(train(form, self.y[:len(X)], **options).text(17, False), text)

    def setUp(self):
        self.X, self.y = small_data()

    def test_arrays(self):
        self.check(array_forms(self.X), self.X)

    def test_integers_and_bool(self):
        whole = np.nan_to_num(np.abs(self.X) * 8)
        kinds = [np.dtype(code) for code in '?bBhHiIlLqQ'] + [np.dtype('>i4')]
        for dtype in kinds:
            with self.subTest(dtype.str):
                values = whole.astype(dtype)
                model = train(whole, self.y)
                np.testing.assert_array_equal(score(model, values),
                                              score(model, values.astype(float)))

    def test_memory_in_which_cells_overlap(self):
        windows = overlapping_rows(self.X)
        self.check([('windows', windows)], windows.copy())
        model = train(self.X, self.y)
        for row in (np.broadcast_to(self.X[0], self.X.shape),
                    np.broadcast_to(self.X[0], (1, 4))):
            np.testing.assert_array_equal(score(model, row), score(model, row.copy()))

    @unittest.skipIf(pd is None, 'needs pandas')
    def test_frames(self):
        self.check(frame_forms(self.X), self.X)
        many = 5000  # too large to be copied
        X, self.y = small_data(many)
        self.check(frame_forms(X), X)

    @unittest.skipIf(pd is None, 'needs pandas')
    def test_frames_of_integers_with_missing_values(self):
        X = pd.DataFrame({'a': pd.array([1, None, 3, 4] * 60, dtype='Int64'),
                          'b': pd.array([True, False, None, True] * 60, dtype='boolean'),
                          'c': range(240)})
        plain = X.to_numpy(dtype=float, na_value=np.nan)
        np.testing.assert_array_equal(score(train(X, self.y[:240]), X),
                                      score(train(plain, self.y[:240]), plain))

    @unittest.skipIf(sparse is None, 'needs SciPy')
    def test_sparse(self):
        self.check(sparse_forms(self.X), self.X)
        # Zero is missing also where it is absent.
        self.check(sparse_forms(self.X), self.X, missing=0)

    def test_number_that_is_missing(self):
        marked = np.where(np.isnan(self.X), -999.0, self.X)
        marked[::2] = self.X[::2]
        self.check([('mark', marked), ('marked objects', marked.astype(object)),
                    ('marked float32', marked.astype('f4'))], self.X, missing=-999)

    def test_one_row_and_one_column(self):
        model = train(self.X, self.y)
        for row in (self.X[7:8], self.X[7:8].copy('F'), self.X[7:8].tolist()):
            self.assertEqual(score(model, row)[0], score(model, self.X)[7])
        column = self.X[:, 1:2]
        np.testing.assert_array_equal(score(train(column, self.y), column),
                                      score(train(column.copy(), self.y), column.tolist()))


@unittest.skipIf(np is None, 'needs NumPy and the package')
class Memory(unittest.TestCase):

    def peak_of(self, function):
        tracemalloc.start()
        try:
            before = tracemalloc.get_traced_memory()[0]
            kept = function()
            return tracemalloc.get_traced_memory()[1] - before, kept
        finally:
            tracemalloc.stop()

    def forms(self):
        values = np.zeros((1000000, 50), np.float32)
        names = [str(i) for i in range(50)]
        forms = [('C order', values, None), ('Fortran order', values.reshape(50, -1).T, None),
                 ('backwards', values[::-1, ::-2], None),
                 ('windows', np.lib.stride_tricks.as_strided(values, (1000000, 50), (4, 4)), None),
                 ('records', values.view([(name, 'f4') for name in names])[:, 0], names[::-1])]
        if pd is not None:
            frame = pd.DataFrame(values, columns=names)
            blocks = pd.DataFrame({'a': values[:, 0], 'b': values[:, 1].astype(int)})
            forms += [('frame', frame, None), ('reordered frame', frame, names[::-1]),
                      ('rows of a frame', frame.iloc[1000:], None), ('blocks', blocks, ['b', 'a'])]
        if sparse is not None:
            matrix = sparse.csr_matrix((values.ravel(), np.tile(np.arange(50, dtype='i4'), 1000000),
                                        np.arange(1000001, dtype='i8') * 50), values.shape)
            matrix.has_canonical_format = True
            forms.append(('sparse', matrix, None))
        return forms

    def test_nothing_is_copied(self):
        for name, X, order in self.forms():
            with self.subTest(name):
                peak, _ = self.peak_of(lambda: as_table(X, names=order))
                self.assertLess(peak, 1 << 20)

    def test_the_data_live_as_long_as_needed(self):
        X, y = small_data()
        references = sys.getrefcount(X)
        data = Dataset(X)
        self.assertGreater(sys.getrefcount(X), references)
        part = data.subset(range(200))
        del data
        gc.collect()
        self.assertGreater(sys.getrefcount(X), references)
        train(part, y[:200])
        del part
        gc.collect()
        self.assertEqual(sys.getrefcount(X), references)

    @unittest.skipIf(sparse is None, 'needs SciPy')
    def test_matrices_of_the_user_stay_as_they_are(self):
        matrix = sparse.csr_matrix(([1.0, 2.0, 3.0], [2, 0, 0], [0, 3]), shape=(1, 3))
        as_table(matrix)
        self.assertEqual(matrix.indices.tolist(), [2, 0, 0])


@unittest.skipIf(np is None, 'needs NumPy and the package')
class Names(unittest.TestCase):

    def setUp(self):
        self.X, self.y = small_data()
        self.model = train(self.X, self.y)
        self.expected = score(self.model, self.X)

    def forms(self):
        yield records(self.X, False)[[NAMES[i] for i in (2, 0, 3, 1)]]
        if pd is not None:
            frame = pd.DataFrame(self.X, columns=NAMES)[['height', 'age', 'weight', 'size']]
            yield frame
            yield frame.astype({'age': 'Float64'})
            if sparse is not None:
                yield frame.astype(pd.SparseDtype('float64', 0.0))

    def test_columns_come_in_the_order_of_the_names(self):
        for X in self.forms():
            frame = as_table(X, names=NAMES, num_columns=4)
            self.assertEqual(frame.names, NAMES)
            np.testing.assert_array_equal(score(self.model, X, names=NAMES), self.expected)
            self.assertEqual(column_names(X), as_table(X).names)
            self.assertNotEqual(column_names(X), NAMES)
        # Without names, as they come.
        np.testing.assert_array_equal(score(self.model, self.X, names=NAMES), self.expected)
        self.assertIsNone(as_table(self.X, names=NAMES).names)

    def test_other_names_are_listed(self):
        X = np.zeros(2, [(name, 'f8') for name in ('age', 'length', 'size', 'x')])
        with self.assertRaisesRegex(
                ValueError, 'Missing: "weight", "height". Surplus: "length", "x".$'):
            as_table(X, names=NAMES)
        many = ['column {}'.format(i) for i in range(50)]
        with self.assertRaisesRegex(ValueError, '"column 19" and 30 more. Surplus: "age", '):
            as_table(X, names=many)
        with self.assertRaisesRegex(ValueError, r'^X has 4 features, but Model is expecting 3 '):
            as_table(self.X, names=NAMES[:3])

    @unittest.skipIf(pd is None, 'needs pandas')
    def test_labels_of_frames(self):
        two = np.zeros((2, 2))
        for labels in ([0, 1], [5, 2.5], pd.MultiIndex.from_tuples([('a', 'b'), ('a', 'c')])):
            self.assertIsNone(as_table(pd.DataFrame(two, columns=labels), names=['a', 'b']).names)
        for labels, kind, text in ((['a', 'a'], ValueError, 'two columns have the name "a"'),
                                   (['a', 1], TypeError, 'string names, .* of type int')):
            for function in (as_table, column_names, Dataset):
                with self.assertRaisesRegex(kind, text):
                    function(pd.DataFrame(two, columns=labels))

    def test_errors_of_the_library_name_columns(self):
        self.X[5, 2] = np.inf
        frame = as_table(self.X)
        for use in (lambda: self.model.score_table(frame.table, self.expected, 1),
                    lambda: train(self.X, self.y)):
            with self.assertRaises(ValueError) as caught:
                use()
            self.assertRegex(str(with_names(caught.exception, NAMES, 'eval_set')),
                             '^eval_set has an infinite value in row 5, column "weight"; put ')
            self.assertRegex(str(with_names(caught.exception, None)), '^X has .* column 2; ')
        self.X[5, 2] = np.nan
        frame = as_table(self.X, missing=None)
        with self.assertRaises(ValueError) as caught:
            self.model.score_table(frame.table, self.expected, 1)
        self.assertRegex(str(with_names(caught.exception, NAMES)),
                         r'^X has a NaN in row \d, column "[a-z]+"; missing=None ')


def table_faults():
    """What is refused: table, options, error, what its text says."""
    two = np.ones((2, 3))
    text = r'X: column 1 has text \("Berlin" in row 1\); encode it, .*OrdinalEncoder'
    return [
        ([1, 2], {}, ValueError, r'Expected 2D array, got 1D array.*Reshape your data'),
        (np.float64(3), {}, ValueError, 'Expected 2D array, got scalar array'),
        (np.ones((2, 2, 2)), {}, ValueError, 'Found array with dim 3'),
        ([], {}, ValueError, 'Expected 2D array'),
        (two[:0], {}, ValueError, r'0 sample\(s\) \(shape=\(0, 3\)\) while a minimum of 1 is req'),
        (two[:, :0], {}, ValueError, r'0 feature\(s\) \(shape=\(2, 0\)\) while a minimum of 1 is'),
        (two, {'num_columns': 4, 'argument': 'Z'}, ValueError, '^Z has 3 features, but Model is '),
        (None, {}, TypeError, 'X must be a table of numbers, .*, not NoneType'),
        ({'a': [1]}, {}, TypeError, 'not dict'), (iter([[1]]), {}, TypeError, 'not list_iterator'),
        ('table.csv', {}, TypeError, 'not str'),
        ([[1, 2], [3, 'Berlin']], {}, TypeError, text),
        (np.array([[1, 2], [3, 'Berlin']], dtype=object), {}, TypeError, text),
        ([[1, 2], [3, b'Berlin']], {}, TypeError, text),
        (np.array([['x' * 50]]), {}, TypeError, r'column 0 has text \("x{37}\.\.\." in row 0\)'),
        ([[1, {'a': 1}]], {}, TypeError, r"column 1 .* row 0: .*argument must be a string.* number"),
        ([[1, 2j]], {}, ValueError, 'column 1 is complex. Complex data not supported'),
        (two + 1j, {}, ValueError, 'Complex data not supported'),
        ([[1, 10 ** 400]], {}, ValueError, 'column 1 has no usable number in row 0'),
        ([[1, 2], [3]], {}, ValueError, 'row 1 has 1 values, row 0 has 2 values; all rows must'),
        ([[1, 2], 3], {}, ValueError, 'row 1 has no list'),
        ([[1, [2]]], {}, ValueError, 'X must be a list of rows of numbers'),
        (two.astype('M8[s]'), {}, TypeError, 'column 0 has dates or times'),
        (np.zeros((2, 2), 'V3'), {}, TypeError, 'values of type .*V3.*; numbers are needed'),
        (np.zeros(2, [('a', 'f8'), ('b', 'S3')]), {}, TypeError, 'column "b" has text'),
        (np.zeros(2, [('a', 'f8', 2)]), {}, TypeError, 'column "a" has an array in each row'),
        (np.ma.masked_equal([[1, 2], [3, 4.0]], 4), {'missing': None}, ValueError,
         'column 1 has a missing value in row 1, which missing=None'),
        (two, {'missing': 'nan'}, TypeError, "missing must be a number, NaN or None, not 'nan'"),
        (two, {'missing': True}, TypeError, 'missing must be a number'),
        (two, {'missing': float('inf')}, ValueError, 'missing must not be infinite')]


def frame_faults():
    days = pd.date_range('2020', periods=2)
    return [
        (['Ulm', 'Berlin'], r'"city" has text \("Ulm" in row 0\); encode it'),
        ([1, 'Berlin'], r'"city" has text \("Berlin" in row 1\); encode it'),
        (pd.array([None, 'Berlin'], dtype='string'), r'"city" has text \("Berlin" in row 1\)'),
        (pd.Categorical([1, 2]), '"city" is categorical; encode it'),
        (days, r'"city" has dates or times \(datetime64\[ns\]\)'),
        (days.tz_localize('UTC'), r'"city" has dates or times \(datetime64\[ns, UTC\]\)'),
        (days - days[0], '"city" has dates or times'), (days.to_period('D'), '"city" has no number in row'),
        ([[1], [2]], '"city" has no .*number in row 0')]


@unittest.skipIf(np is None, 'needs NumPy and the package')
class Faults(unittest.TestCase):

    def check(self, function, kind, text):
        with self.assertRaisesRegex(kind, text) as caught:
            function()
        self.assertNotIn('\n', str(caught.exception))

    def test_tables(self):
        for X, options, kind, text in table_faults():
            with self.subTest(repr(X)[:60]):
                self.check(lambda: as_table(X, **options), kind, text)

    @unittest.skipIf(pd is None, 'needs pandas')
    def test_frames(self):
        for column, text in frame_faults():
            with self.subTest(repr(column)[:60]):
                frame = pd.DataFrame({'age': [1, 2], 'city': column})
                self.check(lambda: as_table(frame, argument='X_new'), TypeError,
                           '^X_new: column ' + text)
        for frame, text in ((pd.DataFrame(), 'sample'), (pd.DataFrame({'a': []}), r'\(0, 1\)'),
                            (pd.DataFrame(index=[1, 2]), r'0 feature\(s\) \(shape=\(2, 0\)\)'),
                            (pd.Series([1.0]), 'Expected 2D array, got 1D')):
            self.check(lambda: as_table(frame), ValueError, text)
        frame = pd.DataFrame({'a': pd.array([1, None], dtype='Int64')})
        self.check(lambda: as_table(frame, missing=None), ValueError, '"a" has a missing value in')

    @unittest.skipIf(sparse is None, 'needs SciPy')
    def test_sparse(self):
        self.check(lambda: as_table(sparse.csr_matrix((2, 0))), ValueError, r'0 feature\(s\)')
        self.check(lambda: as_table(sparse.csc_matrix([[1j]])), ValueError, 'Complex data not')
        self.check(lambda: as_labels(sparse.csr_matrix([[1.0]]), 1), TypeError, 'not csr_matrix')

    def test_labels(self):
        masked = None if np is None else np.ma.array([1, 2, 3], mask=[0, 1, 0])
        for y, kind, text in [
                (None, ValueError, r'Expected array-like \(array or non-string sequence\), got No'),
                ([1, 2], ValueError, '^y has 2 values, but X has 3 rows'),
                ([1, float('nan'), 3], ValueError, 'y: row 1 is NaN'),
                ([1, None, 3], ValueError, 'y: row 1 is NaN'),
                (np.array([1, 2, np.inf]), ValueError, r'y: row 2 is infinite'),
                (masked, ValueError, 'y: row 1 is masked'),
                ([1, 2, 'c'], TypeError, r'y has text \("c" in row 2\)'),
                (np.zeros((3, 2)), ValueError, r'y should be a 1d array, got .* shape \(3, 2\)'),
                ([[1, 2], [3]], ValueError, 'y should be a 1d array'),
                (5, ValueError, 'y should be a 1d array'), ({1, 2, 3}, TypeError, 'not set'),
                ([1, 2j, 3], ValueError, 'Complex data not supported')]:
            with self.subTest(repr(y)):
                self.check(lambda: as_labels(y, 3), kind, text)

    def test_weights(self):
        for weights, kind, text in [
                ([1, 0.5, 1], ValueError, 'row 1 is 0.5; weights must be whole numbers from 0 to'),
                ([1, 1, -1], ValueError, 'row 2 is -1.0; weights must be whole numbers'),
                ([1, 2 ** 31, 1], ValueError, 'row 1 is 2147483648.0'),
                ([np.nan, 1, 1], ValueError, 'row 0 is nan'), ([np.inf, 1, 1], ValueError, 'inf'),
                ([0, 0, 0], ValueError, 'all weights are 0'),
                ([1, 1], ValueError, 'has 2 values, but X has 3 rows'),
                (np.ones((3, 1)), ValueError, 'should be a 1d array'),
                (['a', 1, 1], TypeError, 'text')]:
            with self.subTest(repr(weights)):
                self.check(lambda: as_weights(weights, 3), kind, '^sample_weight.*' + text)

    def test_queries(self):
        for group, qid, text in [
                (None, None, '^pass either group'), ([3], [1, 1, 1], '^pass either group'),
                ([1, 1], None, 'add up to 2, but X has 3'), ([1.5, 1.5], None, 'query 0 has 1.5'),
                ([4, -1], None, 'query 0 has 4.0 rows; counts must be whole numbers from 0 to 3'),
                ([[3]], None, 'group should be a 1d array'), (None, [1, 1], 'qid has 2 values'),
                (None, [7, 8, 7], r'rows of query 7 are not together \(rows 0 and 2'),
                (None, ['a', 'b', 'a'], 'rows of query a are not together'),
                (None, [1.0, np.nan, 2], 'qid: row 1 is missing'),
                (None, [1, 1, None], 'qid: row 2 is missing')]:
            with self.subTest(repr((group, qid))):
                self.check(lambda: as_queries(group, 3, qid=qid), ValueError, text)


@unittest.skipIf(np is None, 'needs NumPy and the package')
class Targets(unittest.TestCase):

    def vectors(self):
        yield [1, 0, 2]
        yield (1.0, 0, Decimal(2))
        yield np.array([[1], [0], [2]], 'f4')
        yield np.array([1, 9, 0, 9, 2], '>i2')[::2]
        yield np.array([1, 0, 2], object)
        yield ArrayLike([1, 0, 2])
        if pd is not None:
            yield pd.Series([1, 0, 2], index=[5, 5, 1])
            yield pd.Series([1, 0, 2], dtype='Int64')
            yield pd.DataFrame({'y': [1, 0, 2]})

    def test_labels_and_weights(self):
        for values in self.vectors():
            labels = as_labels(values, 3)
            self.assertEqual((labels.dtype.str, labels.tolist()), ('<f8', [1, 0, 2]))
            self.assertTrue(labels.flags.c_contiguous)
            if getattr(values, 'ndim', 1) == 1:
                weights = as_weights(values, 3)
                self.assertEqual((weights.dtype.str, weights.tolist()), ('<i4', [1, 0, 2]))
        self.assertIsNone(as_weights(None, 3))
        self.assertEqual(as_labels([True, False], 2).tolist(), [1, 0])
        y = np.arange(3.0)
        self.assertTrue(np.shares_memory(as_labels(y, 3), y))

    def test_queries(self):
        for group, qid in (([2, 0, 1, 2], None), (None, [2 ** 40, 2 ** 40, -5, 3, 3]),
                           (None, ['b', 'b', 'x', 'a', 'a']), (None, [0.5, 0.5, 1, 2, 2])):
            queries = as_queries(group, 5, qid=qid)
            self.assertEqual(queries.dtype, np.int32)
            runs = [0, 0, 2, 3, 3] if qid is None else [0, 0, 1, 2, 2]
            self.assertEqual(queries.tolist(), runs)


@unittest.skipIf(np is None, 'needs NumPy and the package')
class Datasets(unittest.TestCase):

    def setUp(self):
        self.X, self.y = small_data()
        self.data = Dataset(self.X, feature_names=NAMES)

    def test_a_subset_trains_as_its_rows_do(self):
        mask = self.y > 0
        rows = np.flatnonzero(mask)
        expected = train(self.X[mask], self.y[mask]).text(17, False)
        for choice in (mask, mask.tolist(), rows, rows.tolist(), rows.astype(np.uint16)):
            part = self.data.subset(choice)
            self.assertEqual((part.num_rows, part.num_columns), (len(rows), 4))
            self.assertEqual((part.feature_names, repr(part.missing)), (NAMES, 'nan'))
            self.assertEqual(train(part, self.y[mask]).text(17, False), expected)
        again = [5, 3, 3, 0] * 50
        self.assertEqual(train(self.data.subset(rows).subset(again), self.y[rows][again])
                         .text(17, False), train(self.X[rows][again], self.y[rows][again])
                         .text(17, False))

    def test_faults(self):
        for choice, kind, text in (([], ValueError, 'at least one row'),
                                   ([0, 300], ValueError, 'item 1 is 300; .* from 0 to 299'),
                                   ([-1], ValueError, 'item 0 is -1'), ([0.5], TypeError, 'float'),
                                   (['a'], TypeError, 'whole numbers or bool'),
                                   ([[0]], ValueError, r'not of shape \(1, 1\)'),
                                   (5, ValueError, 'one-dimensional'),
                                   ([True], ValueError, 'mask has 1 items for 300 rows'),
                                   ([False] * 300, ValueError, 'at least one row')):
            with self.assertRaisesRegex(kind, text):
                self.data.subset(choice)
        for names, kind, text in ((['a'], ValueError, '1 names for 4 columns'),
                                  ('abcd', TypeError, 'list of text'),
                                  ([1, 2, 3, 4], TypeError, 'list of text'),
                                  (['a', 'b', 'c', 'a'], ValueError, 'two columns have the name')):
            with self.assertRaisesRegex(kind, text):
                Dataset(self.X, feature_names=names)
        for function in (pickle.dumps, copy.copy, copy.deepcopy):
            with self.assertRaisesRegex(TypeError, 'cannot be pickled or copied'):
                function(self.data)

    def test_names_and_text(self):
        self.assertEqual(repr(Dataset(self.X)), 'Dataset(num_rows=300, num_columns=4)')
        self.assertIn("feature_names=['age', ", repr(self.data))
        self.assertIsNone(Dataset(self.X).feature_names)
        self.assertEqual(Dataset(records(self.X, False)).feature_names, NAMES)

    def test_threads_share_a_set(self):
        expected = train(self.X, self.y).text(17, False)
        texts = []
        threads = [threading.Thread(
            target=lambda: texts.append(train(self.data, self.y).text(17, False)))
            for _ in range(8)]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join()
        self.assertEqual(texts, [expected] * 8)


if __name__ == '__main__':
    unittest.main()
