"""Cross-validation: folds, curves, early stopping on the mean."""
import unittest

try:
    import numpy as np
except ImportError:
    raise unittest.SkipTest('needs NumPy')

import sylvora
from bundled import small_data as data
from sylvora.callbacks import Callback


class CvTest(unittest.TestCase):
    def test_each_fold_is_a_training_on_its_rows(self):
        X, y = data(150)
        params = {'n_estimators': 15, 'learning_rate': 0.3}
        result = sylvora.cv(params, X, y, folds=3, return_models=True)
        tested = np.concatenate([test for _, test in result.folds])
        self.assertEqual(sorted(tested), list(range(150)))
        for (train, test), model, values in zip(result.folds, result.models, result.fold_evals):
            alone = sylvora.train(params, X[train], y[train], eval_set={'t': (X[test], y[test])})
            self.assertEqual(model.to_bytes(), alone.to_bytes())
            np.testing.assert_array_equal(values['rmse'], alone.evals_result_['t']['rmse'])
        curves = [values['rmse'] for values in result.fold_evals]
        np.testing.assert_array_equal(result.evals['rmse']['mean'], np.mean(curves, axis=0))
        np.testing.assert_array_equal(result.evals['rmse']['std'], np.std(curves, axis=0))
        at = result.best_iteration - 1
        self.assertEqual(at, int(np.argmin(result.evals['rmse']['mean'])))
        self.assertEqual(result.best_score, result.evals['rmse']['mean'][at])
        self.assertIn('3 folds, best round %d of 15' % (at + 1), repr(result))

    def test_early_stopping_on_the_mean(self):
        X, y = data(120)
        params = {'n_estimators': 80, 'learning_rate': 0.5}
        whole = sylvora.cv(params, X, y)
        mean = whole.evals['rmse']['mean']
        cut = sylvora.cv(dict(params, early_stopping_rounds=4), X, y, return_models=True)
        best = cut.best_iteration
        self.assertEqual(best, 1 + int(np.argmin(mean[:best + 4])))
        self.assertEqual(len(cut.evals['rmse']['mean']), min(best + 4, 80))
        np.testing.assert_array_equal(cut.evals['rmse']['mean'], mean[:best + 4])
        for model, values in zip(cut.models, cut.fold_evals):
            self.assertEqual((model.n_rounds, model.best_iteration_), (best, best))
            self.assertEqual(model.best_score_, values['rmse'][best - 1])
            self.assertEqual(model.evals_result_['test']['rmse'], values['rmse'].tolist())

    def test_folds(self):
        X, y = data(90)
        labels = (np.arange(90) % 9 == 0).astype(float)
        params = {'n_estimators': 2, 'loss': 'log_loss'}
        for fold in sylvora.cv(params, X, labels, folds=5).folds:
            self.assertEqual(labels[fold[1]].sum(), 2)
        blocks = sylvora.cv({'n_estimators': 2}, X, y, folds=3, shuffle=False).folds
        self.assertEqual([list(test) for _, test in blocks],
                         [list(range(i, i + 30)) for i in (0, 30, 60)])
        first, second, other = (
            sylvora.cv({'n_estimators': 2}, X, y, folds=3, seed=seed).folds for seed in (1, 1, 2))
        np.testing.assert_array_equal(first[0][1], second[0][1])
        self.assertFalse(np.array_equal(first[0][1], other[0][1]))
        mask = np.arange(90) < 60
        pairs = [(mask, ~mask), (range(60), range(60, 90))]
        own = sylvora.cv({'n_estimators': 2}, X, y, folds=pairs)
        np.testing.assert_array_equal(*[values['rmse'] for values in own.fold_evals])
        for folds, kind, message in [
            (1, ValueError, 'at least 2'), (91, ValueError, 'only 90 rows'),
            ('abc', TypeError, 'pair'), (2.5, TypeError, 'folds must be'),
            ([([0, 90], [1])], ValueError, 'training rows of fold 0 must be from 0 to 89'),
            ([([0, 1], [])], TypeError, 'test rows of fold 0'), ([], ValueError, 'none'),
        ]:
            with self.subTest(message), self.assertRaisesRegex(kind, message):
                sylvora.cv({'n_estimators': 2}, X, y, folds=folds)

    def test_ranking_keeps_queries_whole(self):
        X, y = data(100)
        qid = np.repeat(np.arange(20), 5)
        result = sylvora.cv({'model': 'ranking', 'n_estimators': 3}, X, np.clip(y // 4, 0, 4),
                            qid=qid, folds=4)
        for train, test in result.folds:
            self.assertFalse(set(qid[train]) & set(qid[test]))
        self.assertEqual(list(result.evals), ['ndcg@10', 'pairs'])

    def test_kinds_of_data(self):
        X, y = data(60)
        expected = sylvora.cv({'n_estimators': 4}, X, y, folds=3).evals['rmse']['mean']
        kinds = [X.tolist(), np.asfortranarray(X, np.float32)]
        try:
            import pandas
            from scipy import sparse
            kinds += [pandas.DataFrame(X), sparse.csc_matrix(X), sparse.csr_matrix(X)]
            from sklearn.model_selection import KFold
        except ImportError:
            KFold = None
        for kind in kinds:
            mean = sylvora.cv({'n_estimators': 4}, kind, y, folds=3).evals['rmse']['mean']
            np.testing.assert_array_equal(mean, expected)
        with self.assertRaisesRegex(TypeError, 'not a Dataset'):
            sylvora.cv({}, sylvora.Dataset(X), y)
        if KFold is not None:
            by_splitter = sylvora.cv({'n_estimators': 4}, X, y, folds=KFold(3))
            blocks = sylvora.cv({'n_estimators': 4}, X, y, folds=3, shuffle=False)
            np.testing.assert_array_equal(by_splitter.evals['mae']['mean'],
                                          blocks.evals['mae']['mean'])

    def test_callbacks_run_for_each_fold(self):
        class Count(Callback):
            begun = 0

            def begin(self, total):
                self.begun += 1

        X, y = data(60)
        count = Count()
        sylvora.cv({'n_estimators': 2}, X, y, folds=3, callbacks=[count])
        self.assertEqual(count.begun, 3)
