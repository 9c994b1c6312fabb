"""Trainings on a Dask cluster of processes: the models of sylvora's estimators, byte for byte."""
import functools
import os
import pickle
import signal
import time
import unittest
from unittest import mock

from dask_cases import (
    CHUNKS, CLASSES, N, QUERIES, SMALL, WEIGHTS, ClusterCase, X, Y, chunked, fail, kill, objective,
    stop, text_of, unknown)

try:
    import pandas as pd
except ImportError as error:
    raise unittest.SkipTest('needs pandas: %s' % error)

import dask.array as da
import dask.dataframe as dd
import distributed
import numpy as np
import sklearn
import sylvora
import sylvora.dask
from sylvora._dask import driver
from sylvora._dask.shares import deal

class Cluster(ClusterCase):
    def test_models_are_those_of_one_process(self):
        cases = [
            ('SylvoraRegressor', {'loss': 'huber'}, Y, {'eval_set': {'same': (X[:99], Y[:99])}}),
            ('SylvoraClassifier', {'n_jobs': 2}, CLASSES, {'sample_weight': WEIGHTS}),
            ('SylvoraRanker', {}, np.round(Y), {'qid': QUERIES}),
            ('SylvoraForestRegressor', {}, Y, {'sample_weight': WEIGHTS}),
            ('SylvoraForestClassifier', {}, CLASSES, {}),
        ]
        for name, params, y, others in cases:
            expected = getattr(sylvora, name)(**SMALL, **params).fit(X, y, **others)
            by_chunk = {key: chunked(value) if isinstance(value, np.ndarray) else value
                        for key, value in others.items()}
            for number in (1, 3, 4):
                with self.subTest(name, workers=number):
                    model = getattr(sylvora.dask, name)(
                        **SMALL, **params, workers=self.workers[:number])
                    self.assertIs(model.fit(chunked(X), chunked(y), **by_chunk), model)
                    local = model.to_local()
                    self.assertIs(type(local), type(expected))
                    self.assertEqual(text_of(local), text_of(expected))
                    self.assertEqual(getattr(local, 'evals_result_', None),
                                     getattr(expected, 'evals_result_', None))
            predicted = model.predict(chunked(X))
            self.assertEqual(predicted.chunks, CHUNKS)
            np.testing.assert_array_equal(predicted.compute(), expected.predict(X))
            if hasattr(expected, 'predict_proba'):
                shares = model.predict_proba(chunked(X))
                self.assertEqual(shares.shape, (N, 3))
                np.testing.assert_array_equal(shares.compute(), expected.predict_proba(X))
            again = pickle.loads(pickle.dumps(model))
            self.assertEqual(text_of(again.to_local()), text_of(expected))

    def test_dataframes(self):
        frame = pd.DataFrame(X, columns=list('abcdefg'))
        # The first and the last partition are empty.
        some, labels = [
            dd.from_pandas(data, npartitions=5).map_partitions(lambda part: part.loc[100:299])
            for data in (frame, pd.Series(CLASSES))]
        rows = slice(100, 300)
        expected = sylvora.SylvoraClassifier(**SMALL).fit(frame[rows], CLASSES[rows])
        model = sylvora.dask.SylvoraClassifier(**SMALL, client=self.client).fit(some, labels)
        self.assertEqual(text_of(model), text_of(expected))
        self.assertEqual(list(model.feature_names_in_), list('abcdefg'))
        predicted = model.predict(some).compute()
        np.testing.assert_array_equal(predicted.to_numpy(), expected.predict(frame[rows]))
        self.assertEqual(list(predicted.index), list(range(100, 300)))
        shares = model.predict_proba(some).compute()
        np.testing.assert_array_equal(shares.to_numpy(), expected.predict_proba(frame[rows]))
        self.assertEqual(list(shares.columns), list(expected.classes_))
        # Labels in this process, for all rows.
        model.fit(some, CLASSES[rows])
        self.assertEqual(text_of(model), text_of(expected))

    def test_parameters(self):
        model = sylvora.dask.SylvoraRegressor(max_depth=3, client=self.client)
        self.assertEqual(model.get_params()['max_depth'], 3)
        other = sklearn.clone(model).set_params(max_depth=5, workers=['a'])
        self.assertEqual((other.max_depth, model.max_depth, other.workers), (5, 3, ['a']))
        for one in (model, other, sklearn.clone(other)):
            self.assertIs(one.client, self.client)
            self.assertIs(one.get_params()['client'], self.client)
        self.assertIsNone(sklearn.clone(model.set_params(client=None)).client)
        with self.assertRaises(TypeError):
            sylvora.dask.SylvoraRegressor(depth=3)
        with self.assertRaisesRegex(sklearn.exceptions.NotFittedError, 'not fitted'):
            model.predict(chunked(X))

    def test_errors(self):
        infinite = X.copy()
        infinite[333, 2] = np.inf
        model = sylvora.dask.SylvoraRegressor(**SMALL)
        for kind, text, x, y in [
                (ValueError, 'infinite value in row 333, column 2', infinite, Y),
                (ValueError, 'y: row 7 is NaN', X, np.where(np.arange(N) == 7, np.nan, Y)),
                (ValueError, 'y has 399 values, but X has 400 rows', X, Y[:-1])]:
            with self.subTest(text), self.assertRaisesRegex(kind, text):
                chunks = CHUNKS if len(y) == N else (N - 1,)
                model.fit(chunked(x), da.from_array(y, chunks=chunks))
        for kind, text, fit in [
                (TypeError, 'X must be an array or a dataframe of Dask', lambda: model.fit(X, Y)),
                (ValueError, 'got 1D array', lambda: model.fit(chunked(Y), Y)),
                (ValueError, 'y has 2 values in chunk 0, but X has 3 rows',
                 lambda: model.fit(unknown(X[:3]), unknown(Y[:2]))),
                (ValueError, 'y has 1 chunks, but X has 6',
                 lambda: model.fit(chunked(X), unknown(Y))),
                (ValueError, 'callbacks must be None',
                 lambda: sylvora.dask.SylvoraRegressor(callbacks=[]).fit(chunked(X), Y)),
                (RuntimeError, 'no worker to train on',
                 lambda: model.set_params(workers=['tcp://127.0.0.1:9']).fit(chunked(X), Y))]:
            with self.subTest(text), self.assertRaisesRegex(kind, text):
                fit()

    def test_failure_of_one_rank_ends_all(self):
        start = time.monotonic()
        model = sylvora.dask.SylvoraRegressor(
            n_estimators=10**6, objective=functools.partial(objective, self.marker(), fail))
        with self.assertRaisesRegex(LookupError, 'one rank only'):
            model.fit(chunked(X), chunked(Y))
        self.assertLess(time.monotonic() - start, 30)

    def test_lost_worker(self):
        params = dict(SMALL, n_estimators=20)
        expected = sylvora.SylvoraRegressor(
            **params, objective=functools.partial(objective, '/', None)).fit(X, Y)
        lossy = functools.partial(objective, self.marker(), kill)
        model = sylvora.dask.SylvoraRegressor(**params, objective=lossy).fit(chunked(X), chunked(Y))
        self.assertTrue(os.path.exists(self.marker()))
        self.assertEqual(text_of(model), text_of(expected))

    def test_worker_that_does_not_answer(self):
        params = dict(SMALL, n_estimators=20)
        expected = sylvora.SylvoraRegressor(
            **params, objective=functools.partial(objective, '/', None)).fit(X, Y)
        pids = self.client.run(os.getpid)
        lossy = functools.partial(objective, self.marker(), stop)
        model = sylvora.dask.SylvoraRegressor(**params, objective=lossy)
        try:
            with mock.patch.object(driver, '_SECONDS_OF_SILENCE', 5):
                model.fit(chunked(X), chunked(Y))
            self.assertTrue(os.path.exists(self.marker()))
        finally:
            for pid in pids.values():
                os.kill(pid, signal.SIGCONT)
        self.assertEqual(text_of(model), text_of(expected))

    def test_gives_up(self):
        model = sylvora.dask.SylvoraRegressor(
            objective=functools.partial(objective, self.marker(), kill), workers=self.workers[:1])
        with mock.patch.object(driver, '_MOST_LOSSES', 1):
            with self.assertRaisesRegex(RuntimeError, 'workers were lost in 1 attempts'):
                model.fit(chunked(X), chunked(Y))


class Threads(unittest.TestCase):
    def test_workers_of_one_process(self):
        with distributed.LocalCluster(n_workers=2, threads_per_worker=1, processes=False,
                                      dashboard_address=None, silence_logs=50) as cluster:
            with distributed.Client(cluster):
                model = sylvora.dask.SylvoraRegressor(**SMALL).fit(chunked(X), chunked(Y))
        self.assertEqual(text_of(model), text_of(sylvora.SylvoraRegressor(**SMALL).fit(X, Y)))


class Deal(unittest.TestCase):
    def test_runs_are_contiguous_and_cover_all(self):
        for sizes in ([1], [5, 0, 0, 5], [1, 100, 1, 1], [0, 0], [3] * 40, [40] + [1] * 40):
            for number in range(1, 9):
                runs = deal(sizes, number)
                self.assertLessEqual(len(runs), number)
                self.assertEqual([i for run in runs for i in run], list(range(len(sizes))))


if __name__ == '__main__':
    unittest.main()
