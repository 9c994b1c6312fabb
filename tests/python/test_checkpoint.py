"""train with a checkpoint: killed and stopped trainings give the bytes of one that never stopped."""
import os
import random
import signal
import subprocess
import sys
import tempfile
import time
import unittest
import warnings

try:
    import numpy as np
except ImportError:
    raise unittest.SkipTest('needs NumPy')

import sylvora
from sylvora.callbacks import Callback, EarlyStopping, TimeLimit

draw = np.random.RandomState(5)
X = draw.randint(0, 9, (300, 4)).astype(float)
Y = X[:, 0] - 2 * X[:, 1] + draw.normal(size=300)
X_VALID = draw.randint(0, 9, (90, 4)).astype(float)
Y_VALID = X_VALID[:, 0] - 2 * X_VALID[:, 1] + draw.normal(size=90)


def pull(y, scores):
    """Gradients and second derivatives of a loss between the square and the absolute error."""
    distance = scores - y
    root = np.sqrt(1 + distance**2)
    return -distance / root, 1 / root**3


def worst(y, scores):
    return float(np.abs(y - scores).max())


class Stop(Callback):
    def __init__(self, at, answer=None):
        self.at, self.answer, self.rounds = at, answer, []

    def after_round(self, round):
        self.rounds.append(round.round)
        if round.round < self.at:
            return False
        if self.answer is None:
            raise KeyboardInterrupt
        return self.answer


CASES = {
    'objective': ({'n_estimators': 40, 'subsample': 0.7, 'max_depth': 3},
                  {'objective': pull, 'base_score': 0.3, 'eval_metric': [worst, 'mae'],
                   'eval_set': {'train': (X, Y), 'valid': (X_VALID, Y_VALID)}}),
    'early': ({'n_estimators': 300, 'learning_rate': 0.4, 'early_stopping_rounds': 6},
              {'eval_metric': worst, 'eval_set': {'valid': (X_VALID, Y_VALID)}}),
    'weights': ({'n_estimators': 30, 'loss': 'huber', 'max_features': 0.5},
                {'sample_weight': draw.randint(0, 3, 300)}),
    'forest': ({'model': 'forest', 'task': 'regression', 'n_estimators': 20}, {}),
}


def fit(case, threads=1, **more):
    params, options = CASES[case]
    return sylvora.train(params, X, Y, n_jobs=threads, **options, **more)


class CheckpointTest(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = folder.name
        self.path = os.path.join(folder.name, 'state')

    def same(self, one, other):
        self.assertEqual(one.to_bytes(), other.to_bytes())
        self.assertEqual(one.evals_result_, other.evals_result_)
        self.assertEqual(one.best_iteration_, other.best_iteration_)

    def test_stopped_trainings(self):
        for case in CASES:
            whole = fit(case)
            for at in (1, 7, 13):
                with self.subTest(case=case, at=at), warnings.catch_warnings():
                    warnings.simplefilter('error')  # going on is no reason to warn
                    with self.assertRaises(KeyboardInterrupt):
                        fit(case, checkpoint=self.path, callbacks=[Stop(at)])
                    seen = Stop(1000, True)
                    self.same(whole, fit(case, 2, checkpoint=self.path, callbacks=[seen]))
                    self.assertEqual(seen.rounds[0], at)
                    again = Stop(1000, True)
                    self.same(whole, fit(case, 3, checkpoint=self.path, callbacks=[again]))
                    self.assertEqual(again.rounds, seen.rounds[-1:])
                os.remove(self.path)

    def test_killed_trainings(self):
        """By SIGKILL, at any moment."""
        chance = random.Random(3)
        program = ('import sys, test_checkpoint as t\n'
                   't.fit(sys.argv[1], 2, checkpoint=sys.argv[2], checkpoint_every=1,'
                   ' callbacks=[t.Slow()])')
        here = os.path.dirname(os.path.abspath(__file__))
        paths = os.pathsep.join([here, *filter(None, sys.path)])
        for case in ('objective', 'forest'):
            whole, kills = fit(case), 0
            while kills < 4:
                run = subprocess.Popen([sys.executable, '-c', program, case, self.path],
                                       env=dict(os.environ, PYTHONPATH=paths))
                before = os.stat(self.path).st_mtime_ns if kills else 0
                while run.poll() is None and not (
                        os.path.exists(self.path) and os.stat(self.path).st_mtime_ns > before):
                    time.sleep(0.002)
                time.sleep(chance.uniform(0, 0.02))
                run.send_signal(signal.SIGKILL)
                if run.wait() == 0:
                    break  # it was over
                kills += 1
            self.assertGreater(kills, 1)
            self.same(whole, fit(case, checkpoint=self.path))
            self.assertEqual(os.listdir(self.folder), ['state'])
            os.remove(self.path)

    def test_callbacks_that_end_a_training(self):
        params, options = {'n_estimators': 200, 'learning_rate': 0.4}, CASES['early'][1]

        def train(*more, **others):
            callbacks = [EarlyStopping(6, metric='worst'), *more]
            return sylvora.train(params, X, Y, callbacks=callbacks, **options, **others)

        whole = train()
        self.assertLess(whole.n_rounds, 200)
        for at in (2, whole.n_rounds, whole.n_rounds + 3):
            with self.assertRaises(KeyboardInterrupt):
                train(Stop(at), checkpoint=self.path)
            self.same(whole, train(checkpoint=self.path))
            self.same(whole, train(checkpoint=self.path))
            os.remove(self.path)
        part = sylvora.train(params, X, Y, callbacks=[TimeLimit(1e-9)], checkpoint=self.path)
        self.assertEqual(part.n_rounds, 1)
        full = sylvora.train(params, X, Y, checkpoint=self.path)
        self.assertEqual(full.to_bytes(), sylvora.train(params, X, Y).to_bytes())

    def test_an_objective_that_fails(self):
        calls = []

        def failing(y, scores):
            calls.append(1)
            if len(calls) == 18:
                raise ArithmeticError
            return pull(y, scores)

        params, options = CASES['objective']
        with self.assertRaises(ArithmeticError):
            sylvora.train(params, X, Y, **dict(options, objective=failing),
                          checkpoint=self.path, checkpoint_every=4)
        seen = Stop(1000, True)
        self.same(fit('objective'), fit('objective', checkpoint=self.path, callbacks=[seen]))
        self.assertEqual(seen.rounds[0], 16)

    def test_refusals(self):
        params = {'n_estimators': 5}
        sylvora.train(params, X, Y, checkpoint=self.path)
        longer = sylvora.train({'n_estimators': 8}, X, Y, checkpoint=self.path)
        self.assertEqual(longer.to_bytes(), sylvora.train({'n_estimators': 8}, X, Y).to_bytes())
        other = os.path.join(self.folder, 'other')
        with open(other, 'w') as file:
            file.write('tree')
        for kind, text, call in (
                (sylvora.TrainingError, 'and numTree is only 5',
                 lambda: sylvora.train(params, X, Y, checkpoint=self.path)),
                (sylvora.TrainingError, 'the labels of the training data differ',
                 lambda: sylvora.train({'n_estimators': 8}, X, Y + 1, checkpoint=self.path)),
                (sylvora.TrainingError, 'is no checkpoint',
                 lambda: sylvora.train(params, X, Y, checkpoint=other)),
                (ValueError, 'give checkpoint$',
                 lambda: sylvora.train(params, X, Y, checkpoint_every=3)),
                (ValueError, 'checkpoint_every must be at least 1, got 0',
                 lambda: sylvora.train(params, X, Y, checkpoint='s', checkpoint_every=0)),
                (TypeError, 'checkpoint_every must be an integer',
                 lambda: sylvora.train(params, X, Y, checkpoint='s', checkpoint_every=2.5)),
                (ValueError, 'file name', lambda: sylvora.train(params, X, Y, checkpoint='')),
                (TypeError, 'str, bytes or os.PathLike',
                 lambda: sylvora.train(params, X, Y, checkpoint=3)),
                (ValueError, 'give checkpoint and checkpoint_every to train',
                 lambda: sylvora.train({'checkpoint': 's'}, X, Y))):
            with self.assertRaisesRegex(kind, text):
                call()
        with open(other) as file:
            self.assertEqual(file.read(), 'tree')


class Slow(Callback):
    def after_round(self, round):
        time.sleep(0.003)


if __name__ == '__main__':
    unittest.main()
