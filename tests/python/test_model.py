"""Models in Python: copies, scores, stages, importance; and what works without NumPy."""
import copy
import os
import pickle
import subprocess
import sys
import tempfile
import unittest
import weakref

import sylvora
from models import expected_scores, model_text
from threads import each_on_a_thread

try:
    import numpy as np
except ImportError:
    np = None
needs_numpy = unittest.skipIf(np is None, 'needs NumPy')

PLAIN = (0, [(0.5, [(0, 1.5, (1, 0.5, 1.0, 2.0), 4.0)]), (0.25, [(1, 2.5, -1.0, 8.0)])])


def run(code):
    """What a fresh interpreter prints, with the path of this one."""
    environment = dict(os.environ, PYTHONPATH=os.pathsep.join(sys.path))
    return subprocess.run([sys.executable, '-c', code], env=environment, check=True,
                          stdout=subprocess.PIPE, text=True).stdout


def trained(loss=None, model='gbdt', rounds=12, missing=float('nan'), **options):
    random = np.random.RandomState(0)
    X = random.randint(0, 30, (300, 4)).astype(float)
    X[random.rand(300, 4) < 0.1] = np.nan if missing is None or missing != missing else missing
    y = np.nan_to_num(X[:, 0]) + 3 * (X[:, 2] > 9)
    params = {'model': model, 'n_estimators': rounds}
    if loss is not None:
        params['loss'] = loss
    if model in ('forest', 'tree'):
        params['task'] = loss
        params['n_estimators'] = 1 if model == 'tree' else rounds
        del params['loss']
    if loss in ('log_loss', 'logistic', 'exponential', 'squared_hinge'):
        y = np.where(y > np.median(y), 1.0, -1.0)
    if loss == 'classification':
        y = np.digitize(y, np.quantile(y, [0.3, 0.6])).astype(float)
    if model == 'ranking':
        y, options['group'] = np.clip(y // 8, 0, 4), [100, 200]
    if missing is None:
        X = np.nan_to_num(X)
    return sylvora.train(params, X, y, missing=missing, **options), X, y


def contents(model):
    """All that a model has."""
    keys = ('column', 'class', 'link', 'missing', 'bestRound', 'setting')
    return ([sylvora._core.Model.tree(model, i) for i in range(model.n_trees)],
            [model.describe(key) for key in keys], repr(model),
            model.to_bytes(), model.to_bytes(digits=6, description=False))


class WithoutNumPyTest(unittest.TestCase):
    def test_import_is_light(self):
        code = ('import sys; before = set(sys.modules); import sylvora; '
                'print(*sorted(name for name in set(sys.modules) - before '
                'if not name.startswith("sylvora")))')
        self.assertEqual(run(code).split(), [])

    def test_scores_without_numpy(self):
        with tempfile.TemporaryDirectory() as folder:
            path = os.path.join(folder, 'model.txt')
            with open(path, 'w') as file:
                file.write(model_text(PLAIN, 2))
            code = ('import sys; sys.modules["numpy"] = None; import copy, pickle, sylvora\n'
                    'model = sylvora.Model.load(%r)\n'
                    'rows = [[0, 0], [1, 3], [2, None], (5, 2.5)]\n'
                    'for m in model, copy.copy(model), pickle.loads(pickle.dumps(model)):\n'
                    '    print(*[m.score(row) for row in rows])\n'
                    'print(repr(model), model.n_features, model.parameters, model.missing)\n'
                    'model.save(%r); same = sylvora.Model.load(%r)\n'
                    'print(same.text(6, False) == model.text(6, False))'
                    % (path, path + '2', path + '2'))
            lines = run(code).splitlines()
        rows = [[0, 0], [1, 3], [2, -2147483648.0], [5, 2.5]]
        expected = ' '.join(str(expected_scores(PLAIN, row)[0]) for row in rows)
        self.assertEqual(lines[:3], [expected] * 3)
        self.assertEqual(lines[3], 'Model(GBDT, Square, 2 rounds, 2 columns) 2 {} nan')
        self.assertEqual(lines[4], 'True')

    def test_names(self):
        for name in ('Model', 'train', 'cv', 'SylvoraRegressor', 'callbacks', 'plot', 'error'):
            self.assertIn(name, dir(sylvora))
        self.assertFalse(hasattr(sylvora, 'Booster'))
        self.assertTrue(issubclass(sylvora.TrainingError, (sylvora.error, ValueError)))


@needs_numpy
class ModelTest(unittest.TestCase):
    KINDS = [(None, 'gbdt'), ('log_loss', 'gbdt'), ('absolute_error', 'gbdt'),
             ('cross_entropy', 'ranking'), ('regression', 'forest'), ('classification', 'forest'),
             ('regression', 'tree')]

    def test_copies_are_exact(self):
        for loss, kind in self.KINDS:
            for missing in (float('nan'), -1.0, None):
                names = ['a', 'ü', ' ', '\\']
                rows = ([[1] * 4, [20] * 4], [0, 1])
                model, X, y = trained(
                    loss, kind, missing=missing, feature_names=names,
                    eval_set={'e': (*rows, [2]) if kind == 'ranking' else rows})
                with tempfile.TemporaryDirectory() as folder:
                    path = os.path.join(folder, 'm')
                    model.save(path)
                    loaded = sylvora.Model.load(path)
                expected = model.predict(X)
                copies = [copy.copy(model), copy.deepcopy(model),
                          sylvora.Model.from_bytes(memoryview(model.to_bytes())), loaded]
                copies += [pickle.loads(pickle.dumps(model, p)) for p in range(2, 6)]
                for i, same in enumerate(copies):
                    with self.subTest(loss=loss, kind=kind, i=i):
                        np.testing.assert_array_equal(same.predict(X), expected)
                        self.assertEqual(contents(same), contents(model))
                        self.assertEqual(same.feature_names, names)
                        self.assertEqual(repr(same.missing), repr(missing))
                        if i not in (2, 3):
                            self.assertEqual(same.evals_result_, model.evals_result_)
                            self.assertEqual(same.best_score_, model.best_score_)

    def test_row_by_row_and_in_threads(self):
        for loss, kind in self.KINDS:
            model, X, _ = trained(loss, kind)
            expected = model.predict(X)
            np.testing.assert_array_equal([model.score(row) for row in X], expected)
            out = np.empty(len(X))
            self.assertIs(model.predict(X, n_jobs=8, out=out), out)
            np.testing.assert_array_equal(out, expected)
            results = [None] * 8

            def predict(i):
                results[i] = model.predict(X, n_jobs=1 + i % 2)

            each_on_a_thread(predict, 8)
            for result in results:
                np.testing.assert_array_equal(result, expected)

    def test_missing_values(self):
        model, X, _ = trained(missing=-1.0)
        with_nan = np.where(X == -1.0, np.nan, X)
        np.testing.assert_array_equal(model.predict(with_nan), model.predict(X))
        np.testing.assert_array_equal([model.score(row) for row in X], model.predict(X))
        scores = [model.score(list(row)) for row in with_nan]
        np.testing.assert_array_equal(scores, model.predict(X))
        model, X, _ = trained(missing=None)
        X[3, 1] = np.nan
        for call in (lambda: model.predict(X), lambda: model.score(X[3])):
            with self.assertRaisesRegex(ValueError, 'column 1'):
                call()
        with self.assertRaisesRegex(ValueError, '^row: column 0 is missing, .* missing=None$'):
            model.score([None, 1, 2, 3])
        self.assertEqual(model.score(X[4]), model.predict(X[4:5])[0])
        # A file of the command says nothing about missing values: NaN is one.
        plain = sylvora.Model.from_bytes(model.to_bytes(description=False))
        self.assertTrue(np.isfinite(plain.predict(X)).all())
        self.assertEqual(plain.score(X[3]), plain.predict(X[3:4])[0])

    def test_a_model_is_freed_at_once(self):
        model, _, _ = trained(missing=None)
        reference = weakref.ref(model)
        del model
        self.assertIsNone(reference())

    def test_stages_and_ranges(self):
        for loss in (None, 'log_loss', 'huber', 'objective'):
            if loss == 'objective':
                model, X, y = trained(objective=lambda y, f: y - f, base_score=2.5)
            else:
                model, X, y = trained(loss)
            stages = list(model.staged_predict(X))
            self.assertEqual((len(stages), model.n_rounds), (12, 12))
            self.assertEqual(model.n_groups, 12 + (loss is not None))
            np.testing.assert_array_equal(stages[-1], model.predict(X))
            start = model.predict(X, iteration_range=(0, 0))
            self.assertEqual(len(set(start)), 1)
            self.assertEqual(start[0] == 0, loss is None)
            outputs = np.array([tree.output[leaf] * tree.shrink for tree, leaf in
                                zip(model.trees(), model.predict_leaf(X).T)])
            sums = np.cumsum(outputs, axis=0)[int(loss is not None):]
            np.testing.assert_allclose(stages, sums, rtol=1e-12)
            np.testing.assert_array_equal(stages[4], model.predict(X, iteration_range=(0, 5)))
            np.testing.assert_allclose(model.predict(X, iteration_range=(5, 9)),
                                       stages[8] - stages[4] + start, rtol=1e-9, atol=1e-12)
            short = trained(loss, rounds=5)[0] if loss != 'objective' else None
            if short is not None:
                np.testing.assert_array_equal(short.predict(X), stages[4])
            for bad in ((0, 13), (-1, 2), (3, 2)):
                with self.assertRaisesRegex(ValueError, r'within \(0, 12\)'):
                    model.predict(X, iteration_range=bad)
            with self.assertRaisesRegex(TypeError, 'pair'):
                model.predict(X, iteration_range=3)
        forest, X, _ = trained('regression', 'forest')
        with self.assertRaisesRegex(ValueError, 'RandomForest has no rounds'):
            forest.staged_predict(X)

    def test_leaves_and_trees(self):
        """Walking the arrays of tree() leads to the leaves of predict_leaf."""
        for loss, kind in self.KINDS:
            model, X, _ = trained(loss, kind, rounds=3)
            leaves = model.predict_leaf(X, n_jobs=2)
            self.assertEqual((leaves.shape, leaves.dtype), ((300, model.n_trees), np.int32))
            filled = np.where(np.isnan(X), -2147483648, X)
            for index, tree in enumerate(model.trees()):
                for row in range(0, 300, 37):
                    node = 0
                    while tree.column[node] >= 0:
                        left = filled[row, tree.column[node]] <= tree.threshold[node]
                        node = tree.left[node] if left else tree.right[node]
                    self.assertEqual(leaves[row, index], node)
                split = tree.column >= 0
                np.testing.assert_array_equal(
                    tree.cover[split], tree.cover[tree.left[split]] + tree.cover[tree.right[split]])
        for index in (-1, model.n_trees):
            with self.assertRaisesRegex(IndexError, 'There is no tree'):
                model.tree(index)

    def test_importance(self):
        """Gain is what the splits take off the sum of squared errors."""
        random = np.random.RandomState(4)
        X = random.randint(0, 9, (200, 3)).astype(float)
        y = X[:, 1] + 0.2 * X[:, 2]
        tree = sylvora.train({'model': 'tree', 'task': 'regression', 'subsample': 1,
                              'max_features': 1}, X, y)
        error = ((y - tree.predict(X)) ** 2).sum()
        total = ((y - y.mean()) ** 2).sum()
        gain = tree.feature_importance()
        self.assertAlmostEqual(gain.sum(), total - error, 6)
        self.assertEqual(np.argsort(gain).tolist(), [0, 2, 1])
        arrays = list(tree.trees())
        splits = sum((np.bincount(t.column[t.column >= 0], minlength=3) for t in arrays))
        np.testing.assert_array_equal(tree.feature_importance('split'), splits)
        covers = sum(np.bincount(t.column[t.column >= 0], t.cover[t.column >= 0], 3)
                     for t in arrays)
        np.testing.assert_array_equal(tree.feature_importance('cover'), covers)
        constant = sylvora.train({'n_estimators': 9}, X, np.full(200, 0.1))
        self.assertEqual(constant.feature_importance().tolist(), [0, 0, 0])
        # The shrink enters squared: a model of one round with half of it has a quarter of the gain.
        params = {'n_estimators': 1, 'learning_rate': 0.5}
        half, whole = (sylvora.train(dict(params, learning_rate=rate), X, y).feature_importance()
                       for rate in (0.5, 1.0))
        np.testing.assert_allclose(4 * half, whole, rtol=1e-12)
        bare = sylvora.Model.from_bytes(tree.to_bytes(description=False))
        np.testing.assert_array_equal(bare.feature_importance('split'), splits)
        votes, _, _ = trained('classification', 'forest')
        self.assertEqual(votes.feature_importance('cover').shape, (4,))
        for model, kind, message in ((bare, 'gain', 'row counts'), (bare, 'cover', 'row counts'),
                                     (votes, 'gain', 'classification has no gain'),
                                     (tree, 'weight', "kind must be 'gain'")):
            with self.assertRaisesRegex(ValueError, message):
                model.feature_importance(kind)

    def test_probabilities(self):
        model, X, _ = trained('log_loss')
        larger = 1 / (1 + np.exp(-model.predict(X)))
        np.testing.assert_allclose(model.predict_proba(X), np.column_stack([1 - larger, larger]),
                                   rtol=1e-12)
        model, X, _ = trained('classification', 'forest')
        shares = model.predict_proba(X, n_jobs=2)
        leaves = model.predict_leaf(X)
        classes = np.array([tree.output[leaf] for tree, leaf in zip(model.trees(), leaves.T)])
        np.testing.assert_allclose(shares, np.stack([(classes == c).mean(0) for c in range(3)], 1))
        np.testing.assert_allclose(shares.sum(1), 1)
        for loss in ('squared_hinge', None):
            model, X, _ = trained(loss)
            with self.assertRaisesRegex(ValueError, 'has no probabilities'):
                model.predict_proba(X)

    def test_columns_by_name(self):
        pandas = self._pandas()
        model, X, _ = trained(feature_names=['a', 'b', 'c', 'd'])
        frame = pandas.DataFrame(X, columns=list('abcd'))
        np.testing.assert_array_equal(model.predict(frame[list('dbca')]), model.predict(X))
        with self.assertRaisesRegex(ValueError, 'Missing: "d".*Surplus: "e"'):
            model.predict(frame.rename(columns={'d': 'e'}))
        frame.loc[7, 'c'] = np.inf
        with self.assertRaisesRegex(ValueError, 'row 7, column "c"'):
            model.predict(frame)

    def _pandas(self):
        try:
            import pandas
        except ImportError:
            self.skipTest('needs pandas')
        return pandas

    def test_refused(self):
        model, X, _ = trained()
        read_only = np.empty(300)
        read_only.flags.writeable = False
        cases = [
            (lambda: model.predict(X[:, :3]), ValueError, '3 features'),
            (lambda: model.predict(X, out=np.empty(299)), ValueError, r'shape \(300,\), got'),
            (lambda: model.predict(X, out=np.empty(300, 'f4')), ValueError, 'got float32'),
            (lambda: model.predict(X, out=np.empty(600)[::2]), ValueError, 'contiguous'),
            (lambda: model.predict(X, out=read_only), ValueError, 'writable'),
            (lambda: model.predict(X, out=[0] * 300), ValueError, 'got list'),
            (lambda: model.predict(X, n_jobs=0), ValueError, 'n_jobs'),
            (lambda: model.save('x', digits=7), ValueError, 'digits must be 6 or 17'),
            (lambda: model.save('/no/such/folder/m'), OSError, ''),
            (lambda: sylvora.Model.load('/no/such/file'), OSError, '/no/such/file'),
            (lambda: sylvora.Model.load(__file__), sylvora.ModelError, 'test_model.py'),
            (lambda: sylvora.Model.from_bytes(model.to_bytes()[:-9]), sylvora.ModelError, ''),
            (lambda: setattr(model, 'loss', 'x'), AttributeError, 'do not change'),
            (lambda: model.cut(1), AttributeError, 'do not change'),
            (lambda: model.set_description('column', []), AttributeError, 'do not change'),
        ]
        for i, (call, kind, message) in enumerate(cases):
            with self.subTest(i), self.assertRaisesRegex(kind, message):
                call()
        self.assertFalse(os.path.exists('x'))

    def test_facts(self):
        model, _, _ = trained('log_loss', feature_names=['a', 'b', 'c', 'd'])
        self.assertEqual((model.n_features, model.n_trees, model.n_classes, model.model_type,
                          model.loss, model.feature_names, model.best_iteration_),
                         (4, 13, 0, 'GBDT', 'LogLoss', ['a', 'b', 'c', 'd'], None))
        self.assertEqual(repr(model), 'Model(GBDT, LogLoss, 12 rounds, 4 columns)')
        self.assertEqual(model.parameters['numTree'], '12')
        forest, _, _ = trained('classification', 'forest')
        self.assertEqual((forest.n_classes, forest.n_rounds), (3, 1))
        self.assertEqual(repr(forest), 'Model(RandomForest, Label, 12 trees, 4 columns)')
