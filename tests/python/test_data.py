"""Data that users pass: the same values in every form score the same, and are not copied."""
import gc
import sys
import tracemalloc
import unittest

from data_forms import (NAMES, array_forms, frame_forms, np, overlapping_rows, pd, records, score,
                        small_data, sparse, sparse_forms, train)

try:
    from arrow_producer import ArrowStream, ArrowTable, column
except ImportError:
    column = None
if np is not None:
    import sylvora
    from sylvora import _core
    from sylvora._data.tables import as_table, with_names
    from sylvora._data.dataset import Dataset


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


def arrow_columns(X, names=NAMES):
    kinds = dict(zip(NAMES, 'gfgg'))
    return [column(name, kinds[name], [None if v != v else v for v in X[:, NAMES.index(name)]])
            for name in names]


@unittest.skipIf(np is None or column is None, 'needs NumPy and the package')
class Arrow(unittest.TestCase):

    def setUp(self):
        self.X, self.y = small_data()
        self.model = train(self.X, self.y)
        self.expected = score(self.model, self.X)

    def test_forms(self):
        for table in (ArrowTable(arrow_columns(self.X)), ArrowStream(arrow_columns(self.X)),
                      ArrowStream(arrow_columns(self.X), chunks=[100, 150, 50])):
            frame = as_table(table, names=NAMES, num_columns=4)
            self.assertEqual((frame.names, frame.num_rows), (NAMES, 300))
            np.testing.assert_array_equal(score(self.model, table), self.expected)
            self.assertEqual(Dataset(table).feature_names, NAMES)
            self.assertEqual(train(table, self.y).text(17, False), self.model.text(17, False))

    def test_one_stream(self):
        class Once(ArrowStream):
            """Can be read once."""
            def __arrow_c_stream__(self, requested_schema=None):
                columns, self.columns = self.columns, None
                return ArrowStream(columns, self.chunks).__arrow_c_stream__()

        shuffled = arrow_columns(self.X, ['weight', 'age', 'height', 'size'])
        for table in (ArrowTable(shuffled), Once(shuffled), Once(shuffled, [100, 0, 200])):
            frame = as_table(table, names=NAMES)
            self.assertEqual((frame.names, frame.table.names), (NAMES, NAMES))
            scores = np.empty(300)
            self.model.score_table(frame.table, scores, 1)
            np.testing.assert_array_equal(scores, self.expected)
        expected = sylvora.cv({'n_estimators': 3}, self.X, self.y, folds=3)
        for kind in (ArrowTable, Once):
            found = sylvora.cv({'n_estimators': 3}, kind(arrow_columns(self.X)), self.y, folds=3)
            np.testing.assert_equal(found.fold_evals, expected.fold_evals)

    def test_faults(self):
        for columns, kind, text in (
                ([column('a', 'g', [1.0]), column('a', 'g', [1.0])], ValueError, 'name "a"'),
                ([column('city', 'u', ['Ulm'])], TypeError, '^X: [Cc]olumn "city" holds text'),
                ([column('a', 'g', [])], ValueError, r'0 sample\(s\) \(shape=\(0, 1\)\)')):
            with self.assertRaisesRegex(kind, text):
                as_table(ArrowTable(columns))
        for chunks in ([3], [1, 2]):
            table = ArrowStream([column('a', 'g', [1.0, 2.0, None])], chunks=chunks)
            with self.assertRaisesRegex(ValueError, '^X: column "a" has a null in row 2$'):
                as_table(table, missing=None)


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
            matrix = sparse.csr_matrix(np.ones((2000, 1000), np.float32))
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
            self.assertNotEqual(as_table(X).names, NAMES)
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
            for function in (as_table, Dataset):
                with self.assertRaisesRegex(kind, text):
                    function(pd.DataFrame(two, columns=labels))

    def test_errors_of_the_library_name_columns(self):
        self.X[5, 2] = np.inf
        frame = as_table(self.X)
        for use in (lambda: self.model.score_table(frame.table, self.expected, 1),
                    lambda: _core.Dataset(frame.table)):
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
