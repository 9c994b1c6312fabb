"""train: the command's bytes, objectives, weights, early stopping, errors."""
import decimal
import os
import tempfile
import unittest
import warnings

try:
    import numpy as np
except ImportError:
    raise unittest.SkipTest('needs NumPy')

import bundled
import sylvora
from bundled import small_data as data
from sylvora._training.best import best_round
from sylvora._training.facts import METRICS
from sylvora.callbacks import EarlyStopping
from threads import each_on_a_thread


def text(model):
    """The trees alone, exactly: without the lines of settings and the block behind them."""
    return model.to_bytes(description=False).split(b'\n', 2)[2]


@unittest.skipUnless(os.path.exists(bundled.COMMAND), 'needs the command')
class CommandBytesTest(unittest.TestCase):
    """The package writes the model file that the command writes."""

    def test_bundled_sets(self):
        for name in bundled.SETS:
            with tempfile.TemporaryDirectory() as folder:
                expected = bundled.command_model(name, folder)
            again = sylvora.Model.from_bytes(expected)
            self.assertEqual(again.to_bytes(digits=6, description=False), expected, name)
            params, X, y, queries = bundled.load(name)
            params.pop('numThread')
            for threads in (1, 2, 8):
                model = sylvora.train(params, X, y, qid=queries, n_jobs=threads)
                with self.subTest(name=name, threads=threads):
                    self.assertEqual(model.to_bytes(digits=6, description=False), expected)

    def test_two_fits_at_once(self):
        cases = [bundled.load(name) for name in ('bike', 'wdbc')] * 2
        expected = [sylvora.train(p, X, y).to_bytes() for p, X, y, _ in cases[:2]] * 2
        results = [None] * len(cases)

        def fit(i):
            params, X, y, _ = cases[i]
            results[i] = sylvora.train(params, X, y).to_bytes()

        each_on_a_thread(fit, len(cases))
        self.assertEqual(results, expected)


class ObjectiveTest(unittest.TestCase):
    def test_square_and_log_loss_bit_for_bit(self):
        X, y = data()
        labels = (y > np.median(y)).astype(float)
        weights = np.arange(len(y)) % 4

        def square(y, scores):
            return y - scores

        def log_loss(y, scores):
            g = y - sylvora.expit(scores)
            return g, np.abs(g) * (1 - np.abs(g))

        for threads in (1, 4):
            for weight in (None, weights):
                params = {'n_estimators': 40, 'n_jobs': threads}
                plain = sylvora.train(params, X, y, sample_weight=weight)
                own = sylvora.train(params, X, y, sample_weight=weight, objective=square)
                self.assertEqual(text(own), text(plain))
                start = sylvora.log_odds(labels, weight)
                plain = sylvora.train(dict(params, loss='log_loss'), X, labels,
                                      sample_weight=weight)
                own = sylvora.train(params, X, labels, sample_weight=weight, objective=log_loss,
                                    base_score=start)
                self.assertEqual(text(own), text(plain))
                np.testing.assert_array_equal(own.predict(X), plain.predict(X))
                np.testing.assert_array_equal(own.predict(X, iteration_range=(0, 0)), start)

    def test_called_once_per_round_with_all_rows(self):
        X, y = data(60)
        seen = []

        def square(labels, scores):
            seen.append(scores.copy())
            self.assertFalse(labels.flags.writeable or scores.flags.writeable)
            np.testing.assert_array_equal(labels, y)
            return y - scores

        model = sylvora.train({'n_estimators': 3}, X, y, objective=square)
        stages = [np.zeros(60), *model.staged_predict(X)]
        self.assertEqual(len(seen), 3)
        np.testing.assert_allclose(seen, stages[:3], rtol=1e-6)  # shrinks are floats

    def test_wrong_results(self):
        X, y = data(50)
        cases = [
            (lambda g: g[:-1], ValueError, r'round 2: gradients .* \(50,\), got \(49,\)'),
            (lambda g: g[:, None], ValueError, r'round 2: gradients .* got \(50, 1\)'),
            (lambda g: None, TypeError, 'round 2: gradients must be real numbers, got object'),
            (lambda g: g + 0j, TypeError, 'round 2: gradients must be real numbers, got complex'),
            (lambda g: np.where(np.arange(50) == 7, np.nan, g), ValueError,
             'round 2: gradients must be finite, but that of row 7 is nan'),
            (lambda g: (g, g * 0 + 1), ValueError, 'round 2: hessians must be returned in all'),
            (lambda g: (g, g, g), ValueError, 'round 2: .* got 3 values'),
            (lambda g: 1 / 0, ZeroDivisionError, 'division'),
        ]
        for change, kind, message in cases:
            rounds = []

            def objective(y, scores):
                rounds.append(1)
                return y - scores if len(rounds) == 1 else change(y - scores)

            with self.subTest(message), self.assertRaisesRegex(kind, message):
                sylvora.train({'n_estimators': 5}, X, y, objective=objective)
            self.assertEqual(len(rounds), 2)
        with self.assertRaisesRegex(ValueError, 'round 1: hessians .*not negative.* row 0 is -1'):
            sylvora.train({}, X, y, objective=lambda y, f: (y, y * 0 - 1))

    def test_expit(self):
        values = np.concatenate([np.random.RandomState(1).normal(0, 9, 300), [0, -709, 800, -800]])
        with decimal.localcontext() as context:
            context.prec = 60
            exact = [float(1 / (1 + (-decimal.Decimal(float(value))).exp())) for value in values]
        np.testing.assert_allclose(sylvora.expit(values), exact, rtol=4e-16, atol=1e-300)
        grid = values[:300].reshape(20, 15)[::2, ::3]
        np.testing.assert_array_equal(sylvora.expit(grid), sylvora.expit(grid.tolist()))
        self.assertEqual(sylvora.expit(grid.astype(np.float32)).dtype, np.float64)
        self.assertEqual((sylvora.expit(0), sylvora.expit(-800)), (0.5, 0.0))
        self.assertTrue(np.isnan(sylvora.expit(np.nan)))


class WeightTest(unittest.TestCase):
    def test_rows_of_weight_0_count_nowhere(self):
        X, y = data()
        weights = np.random.RandomState(5).randint(0, 3, len(y))
        kept = weights > 0
        for params in ({}, {'loss': 'absolute_error'}):
            params = dict(params, n_estimators=10)
            model = sylvora.train(params, X, y, sample_weight=weights)
            part = sylvora.train(params, X[kept], y[kept], sample_weight=weights[kept])
            self.assertEqual(model.to_bytes(), part.to_bytes())

    def test_weights_of_1_are_none(self):
        X, y = data(60)
        params = {'model': 'forest', 'task': 'classification', 'n_estimators': 3}
        model = sylvora.train(params, X, y > 0, sample_weight=np.ones(60))
        self.assertEqual(model.to_bytes(), sylvora.train(params, X, y > 0).to_bytes())


class EvaluationTest(unittest.TestCase):
    def test_early_stopping_as_the_callback(self):
        """The library's rule and EarlyStopping choose the same round and model."""
        def worst(y, scores):
            return np.abs(y - scores).max()

        def negative_worst(y, scores):
            return -worst(y, scores)

        negative_worst.greater_is_better = True
        for seed in range(12):
            random = np.random.RandomState(seed)
            X, y = data(120, 3, seed)
            params = {'n_estimators': 60, 'learning_rate': 0.4, 'random_state': seed}
            metric = [None, 'mae', worst, negative_worst][seed % 4]
            if seed % 3 == 0:
                params['loss'], y = 'log_loss', (y > 3).astype(float)
                metric = 'auc' if seed % 2 else None
            sets = {'train': (X[:60], y[:60]), 'held': (X[60:], y[60:])}
            patience = int(random.randint(1, 8))
            options = dict(eval_set=sets, eval_metric=metric)
            stopping = dict(params, early_stopping_rounds=patience)
            a = sylvora.train(stopping, X[:60], y[:60], **options)
            b = sylvora.train(params, X[:60], y[:60], callbacks=[EarlyStopping(patience)],
                              **options)
            with self.subTest(seed=seed):
                self.assertEqual(a.best_iteration_, b.best_iteration_)
                self.assertEqual(a.n_rounds, a.best_iteration_)
                self.assertEqual(a.best_score_, b.best_score_)
                self.assertEqual(a.evals_result_, b.evals_result_)
                self.assertEqual(text(a), text(b))
                short = sylvora.train(dict(params, n_estimators=a.n_rounds), X[:60], y[:60])
                self.assertEqual(text(a), text(short))

    def test_recorded_values_and_best_round(self):
        X, y = data()
        model = sylvora.train({'n_estimators': 30}, X[:300], y[:300],
                              eval_set={'a': (X[:300], y[:300]), 'b': (X[300:], y[300:])})
        self.assertEqual(list(model.evals_result_), ['a', 'b'])
        self.assertEqual(list(model.evals_result_['b']), ['rmse', 'mae'])
        expected = [np.sqrt(np.mean((s - y[300:]) ** 2)) for s in model.staged_predict(X[300:])]
        values = model.evals_result_['b']['rmse']
        np.testing.assert_allclose(values, expected, rtol=1e-12)
        self.assertEqual(model.best_iteration_, 1 + int(np.argmin(values)))
        self.assertEqual((model.best_score_, model.n_rounds), (min(values), 30))

    def test_own_metric(self):
        X, y = data(100)
        seen = []

        def first(labels, scores):
            seen.append((len(labels), scores.dtype, scores.flags.writeable))
            return scores[0]

        model = sylvora.train({'n_estimators': 4}, X, y, eval_set=[(X[:9], y[:9])],
                              eval_metric=[first, 'mae'])
        self.assertEqual(list(model.evals_result_['eval_0']), ['first', 'mae'])
        np.testing.assert_array_equal(model.evals_result_['eval_0']['first'],
                                      [s[0] for s in model.staged_predict(X)])
        self.assertEqual(set(seen), {(9, np.dtype(float), False)})
        for bad, kind in ((lambda y, f: 'x', TypeError), (lambda y, f: 1 / 0, ZeroDivisionError)):
            with self.assertRaises(kind):
                sylvora.train({'n_estimators': 4}, X, y, eval_set=[(X, y)], eval_metric=bad)

    def test_forest_and_ranking(self):
        X, y = data(120)
        forest = sylvora.train({'model': 'forest', 'task': 'regression', 'n_estimators': 5}, X, y,
                               eval_set={'e': (X, y)})
        score = np.sqrt(np.mean((forest.predict(X) - y) ** 2))
        self.assertIsNone(forest.best_iteration_)
        self.assertAlmostEqual(forest.best_score_, score, 12)
        grades = np.clip(y // 5, 0, 4)
        ranking = sylvora.train({'model': 'ranking', 'n_estimators': 5}, X, grades,
                                group=[40, 80], eval_set={'e': (X, grades, [60, 60])})
        self.assertEqual(list(ranking.evals_result_['e']), ['ndcg@10', 'pairs'])
        best = int(np.argmax(ranking.evals_result_['e']['ndcg@10']))
        self.assertEqual(ranking.best_iteration_, 1 + best)

    def test_directions_of_metrics_are_the_library_s(self):
        X, y = data(120)
        ones = (y > np.median(y)).astype(float)
        for name, larger in METRICS.items():
            metric = name + '@50' * (name == 'ndcg')
            params = {'n_estimators': 6, 'early_stopping_rounds': 9, 'loss': 'log_loss'}
            sets, group = (X[:80], ones[:80]), None
            if name in ('ndcg', 'pairs'):
                params.update(loss='cross_entropy', model='ranking')
                sets, group = (*sets, [80]), [60, 60]
            model = sylvora.train(params, X, ones, group=group, eval_set=[sets],
                                  eval_metric=metric)
            values = model.evals_result_['eval_0'][metric]
            with self.subTest(metric):
                self.assertGreater(len(set(values)), 1)
                self.assertEqual(model.best_iteration_, best_round(values, larger))

    def test_values_below_the_missing_one(self):
        X, y = data(60)
        X[:5, 1], X[5:9, 1], X[9, 0] = -3e9, np.nan, np.nan
        names = ['n%d' % i for i in range(X.shape[1])]
        with self.assertWarnsRegex(UserWarning, '^column "n1" has missing values') as caught:
            sylvora.train({'n_estimators': 1}, X, y, feature_names=names)
        self.assertEqual(len(caught.warnings), 1)

    def test_notices_are_warnings(self):
        X, y = data(60)
        params = {'model': 'tree', 'task': 'regression', 'n_estimators': 5}
        with warnings.catch_warnings(record=True) as caught:
            warnings.simplefilter('always')
            sylvora.train(params, X, y)
            sylvora.cv(params, X, y, folds=2)
        self.assertEqual(len(caught), 3)
        for warning in caught:
            self.assertIs(warning.category, UserWarning)
            self.assertRegex(str(warning.message), '^In CART, only one tree.*!$')
            self.assertEqual(warning.filename, __file__)
        with warnings.catch_warnings():
            warnings.simplefilter('error')
            sylvora.train(dict(params, n_estimators=1), X, y)
            with self.assertRaises(UserWarning):
                sylvora.train(params, X, y)


class RefusedTest(unittest.TestCase):
    def test_arguments(self):
        X, y = data(50)
        ranking = dict(params={'model': 'ranking'}, group=[50])
        cases = [
            (dict(params=[]), TypeError, 'params must be a dict'),
            (dict(params={'n_jobs': 1}, n_jobs=2), ValueError, 'same parameter'),
            (dict(y=y[:-1]), ValueError, 'y has 49 values, but X has 50 rows'),
            (dict(sample_weight=y), ValueError, 'sample_weight: row'),
            (dict(group=[50]), ValueError, 'group is for ranking'),
            (dict(params={'model': 'ranking'}), ValueError, '^pass either group .* or qid'),
            (dict(params={'model': 'ranking'}, group=[50], qid=y), ValueError, '^pass either'),
            (dict(base_score=1.0), ValueError, 'base_score needs an objective'),
            (dict(params={'loss': 'huber'}, objective=len), ValueError, 'either'),
            (dict(params={'early_stopping_rounds': 5}), ValueError, 'give eval_set'),
            (dict(eval_metric='rmse'), ValueError, 'give eval_set'),
            (dict(eval_set=[(X, y)], eval_metric='rsme'), ValueError,
             "no metric 'rsme': choose from rmse, mae, .* pairs and ndcg@K"),
            (dict(eval_set=[(X, y)], eval_metric=['mae', 'ndcg@0']), ValueError, "'ndcg@0'"),
            (dict(eval_set=[(X, y)], eval_metric=[5]), TypeError, 'names or functions, got 5'),
            (dict(eval_set={'a': (X, y, y)}), ValueError,
             r"^eval_set\['a'\] must be \(X, y\): .* no weights"),
            (dict(ranking, eval_set={'a': (X, y)}), ValueError,
             r"^eval_set\['a'\] must be \(X, y, group\)"),
            (dict(ranking, eval_set=[(X, y, [9])]), ValueError,
             r"^eval_set\['eval_0'\]: group: its counts add up to 9"),
            (dict(y=['no'] * 50), TypeError, 'has text .* use a classifier'),
            (dict(eval_set=[(X[:, :3], y)]), ValueError, r"eval_set\['eval_0'\]: X has 3"),
            (dict(eval_set={'a': X}), ValueError, r"eval_set\['a'\] must be \(X, y\)"),
            (dict(eval_set={1: (X, y)}), TypeError, 'names'),
            (dict(callbacks=[print]), TypeError, 'Callback'),
            (dict(verbose=-1), ValueError, 'verbose'),
            (dict(X=sylvora.Dataset(X), feature_names=list('abcde')), ValueError, 'Dataset'),
            (dict(X=np.where(X == X[3, 2], np.inf, X), feature_names=list('abcde')), ValueError,
             'row .* column "'),
            (dict(params={'loss': 'log_loss'}), sylvora.TrainingError,
             r'"LogLoss" .* both of them; write them so, for example by numpy.where\(.*, 1, 0\)'),
            (dict(params={'loss': 'logistic'}), sylvora.TrainingError,
             r'"Logistic"; write them so, for example by numpy.where\(.*, 1, -1\)'),
            (dict(params={'model': 'tree', 'task': 'classification'}, y=-np.ones(50)),
             sylvora.TrainingError, 'label: -1 found; number the classes 0, 1, ...'),
            (dict(params={'subsample': 0.001}), sylvora.TrainingError, 'raise subsample$'),
        ]
        for change, kind, message in cases:
            arguments = dict(dict(params={}, X=X, y=y), **change)
            with self.subTest(message), self.assertRaisesRegex(kind, message):
                sylvora.train(arguments.pop('params'), arguments.pop('X'), arguments.pop('y'),
                              **arguments)
