"""Data that are refused: each error says where the fault is, in one line; labels and the like."""
import unittest
from decimal import Decimal

from data_forms import ArrayLike, np, pd, sparse

if np is not None:
    from sylvora._data.tables import as_labels, as_queries, as_table, as_weights


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
        ([[1, {'a': 1}]], {}, TypeError, 'column 1 .* row 0: .*argument must be a string.* number'),
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
        (days - days[0], '"city" has dates or times'),
        (days.to_period('D'), '"city" has no number in row 0'),
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
        damaged = sparse.csr_matrix(np.eye(3))
        damaged.indptr[:] = [0, 10**7, 2, 3]
        self.check(lambda: as_table(damaged), ValueError, 'X: the sparse matrix is damaged')
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
