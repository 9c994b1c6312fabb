"""The class Dataset: subsets, names, threads, faults."""
import copy
import pickle
import subprocess
import sys
import unittest

from data_forms import NAMES, np, records, small_data, train
from threads import each_on_a_thread

if np is not None:
    from sylvora._data.dataset import Dataset


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
                                  (5, TypeError, 'list of text'),
                                  (['a', 'b', 'c', '\udc80'], ValueError, 'not valid Unicode'),
                                  (['a', 'b', 'c', '\0'], ValueError, 'null character'),
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

    def test_no_other_package_is_imported(self):
        program = ('import sys, sylvora; X = [[1.0, None]]; sylvora.Dataset(X); '
                   'print({"pandas", "scipy", "sklearn"} & set(sys.modules))')
        self.assertEqual(subprocess.check_output([sys.executable, '-c', program]), b'set()\n')

    def test_threads_share_a_set(self):
        expected = train(self.X, self.y).text(17, False)
        texts = []
        each_on_a_thread(lambda _: texts.append(train(self.data, self.y).text(17, False)), 8)
        self.assertEqual(texts, [expected] * 8)
