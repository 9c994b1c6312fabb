"""Names and values of parameters, as texts for the library."""
import os
import unittest

try:
    import numpy as np
except ImportError:
    raise unittest.SkipTest('needs NumPy')

import bundled
from sylvora import _core
from sylvora._training import other_names as _other_names
from sylvora._training.parameters import _PARAMETERS, settings_of
from sylvora._training.processors import usable_jobs


class ParameterTest(unittest.TestCase):
    def test_texts(self):
        generator = np.random.default_rng(1)
        cases = [
            ({'n_estimators': np.int64(7)}, 'numTree', '7'),
            ({'learning_rate': np.float32(0.1)}, 'valShrink', '0.10000000149011612'),
            ({'learning_rate': 1 / 3}, 'valShrink', repr(1 / 3)),
            ({'min_samples_split': 6}, 'numBound', '5'),
            ({'numBound': 6}, 'numBound', '6'),
            ({'random_state': None}, 'randomSeed', '1'),
            ({'random_state': generator}, 'randomSeed',
             str(np.random.default_rng(1).integers(1, 2**31 - 1))),
            ({'n_jobs': -1}, 'numThread', str(min(256, _core.usable_processors()))),
            ({'model': 'ranking', 'loss': 'squared_hinge'}, 'lossFunc', 'HingeSquareRank'),
            ({'loss': 'squared_hinge'}, 'lossFunc', 'HingeSquare'),
            ({'lossFunc': 'LogLoss'}, 'lossFunc', 'LogLoss'),
            ({'subsample_unit': 'query'}, 'randomMode', 'QUERY'),
            ({'fPrint': True}, 'fPrint', 'true'),
        ]
        for params, name, value in cases:
            with self.subTest(params):
                self.assertEqual(settings_of(params)[name], value)

    def test_usable_processors(self):
        allowed = os.sched_getaffinity(0)
        self.assertIn(_core.usable_processors(), range(1, len(allowed) + 1))
        try:
            os.sched_setaffinity(0, {min(allowed)})
            self.assertEqual((_core.usable_processors(), usable_jobs(-1), usable_jobs(-2)),
                             (1, 1, 1))
        finally:
            os.sched_setaffinity(0, allowed)

    def test_refused(self):
        cases = [
            ({'n_estimator': 5}, ValueError, 'did you mean n_estimators'),
            ({'num_leaves': 5}, ValueError, 'did you mean max_leaf_nodes'),
            ({'max_leafs': 5}, ValueError, 'did you mean max_leaf_nodes.$'),
            ({'max_bin': 255}, ValueError, "'max_bin': every value is tried as a split"),
            ({'num_rounds': 5}, ValueError, 'did you mean n_estimators'),
            ({'reg_lambda': 1}, ValueError, 'there is no regularisation'),
            ({'alpha': 1}, ValueError, 'it is quantile; there is no regularisation'),
            ({'min_samples_leaf': 1}, ValueError, 'leaves have no least size; .* min_samples_spl'),
            ({'eval_set': []}, ValueError, 'an argument of its own'),
            ({'zzzz': 5}, ValueError, 'known are model, task, loss'),
            ({'fileTrain': 'x'}, ValueError, 'give the data as X and y'),
            ({'objective': 'x'}, ValueError, 'argument of its own'),
            ({'numTree': 5, 'n_estimators': 5}, ValueError, 'same parameter'),
            ({5: 5}, TypeError, 'must be a string'),
            ({'n_estimators': 0}, ValueError, 'n_estimators must be at least 1, got 0'),
            ({'n_estimators': 2.0}, TypeError, 'n_estimators must be an integer, got 2.0'),
            ({'n_estimators': True}, TypeError, 'must be an integer'),
            ({'n_estimators': 2**31}, ValueError, 'below 2'),
            ({'min_samples_split': 1}, ValueError, 'at least 2, got 1'),
            ({'subsample': 0}, ValueError, 'above 0 and at most 1, got 0'),
            ({'quantile': 1}, ValueError, 'above 0 and below 1, got 1'),
            ({'learning_rate': float('nan')}, ValueError, 'finite'),
            ({'learning_rate': '0.1'}, TypeError, "must be a number, got '0.1'"),
            ({'loss': 'l2'}, ValueError, "one of 'squared_error'"),
            ({'loss': 5}, TypeError, 'must be a string'),
            ({'random_state': -1}, ValueError, 'from 0'),
            ({'n_jobs': 0}, ValueError, 'n_jobs must be from 1 to 256'),
            ({'n_jobs': 1.5}, TypeError, 'n_jobs must be an integer'),
            ({'max_depth': None}, TypeError, 'got None; for no limit, give the value of max_leaf_n'),
            ({'maxDepth': -1}, ValueError, 'maxDepth must be .* for no limit, give the value of'),
            ({'max_leaf_nodes': 0}, ValueError, 'for no limit, give the number of rows'),
            ({'max_features': 'sqrt'}, TypeError, r"got 'sqrt'; it is the share .* n \*\* -0.5 for"),
            ({'max_features': 5}, ValueError, 'k / n for k'),
            ({'subsample': None}, TypeError, 'the share of the n rows: 1.0 for all'),
            ({'model': 'forest'}, ValueError, 'A forest needs the parameter task'),
            ({'task': 'classification'}, ValueError, 'boosting has no task'),
        ]
        for params, kind, message in cases:
            with self.subTest(params), self.assertRaisesRegex(kind, message):
                settings_of(params)

    def test_names_of_other_libraries_are_not_ours(self):
        for name in [*_other_names._ADVICE, *_other_names._ELSEWHERE]:
            with self.subTest(name), self.assertRaises(ValueError):
                settings_of({name: 1})
        for ours in _other_names._SAME:
            self.assertIn(ours, _PARAMETERS)

    def test_all_are_documented_and_settable(self):
        """The names and the default number of rounds are those of docs/parameters.md."""
        from sylvora import _core
        from sylvora._training.fit import _DEFAULT_ROUNDS
        from sylvora._training.parameters import _OF_LIBRARY
        with open(os.path.join(bundled.ROOT, 'docs', 'parameters.md')) as file:
            rows = [line.split(' | ') for line in file if line.startswith('| `')]
        defaults = {row[0][3:-1]: row[2].strip('`') for row in rows}
        self.assertEqual(_DEFAULT_ROUNDS, defaults['numTree'])
        for name in _OF_LIBRARY:
            self.assertIn(name, defaults)
        training = _core.Training()
        for name, value in settings_of({'n_estimators': 3, 'max_depth': 2, 'margin': 0.1}).items():
            training.set(name, value)
