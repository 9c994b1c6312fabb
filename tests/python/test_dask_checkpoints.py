"""Trainings on a Dask cluster that lose workers: they go on from a checkpoint."""
import functools
import glob
import os
import re
import signal
import time
import unittest
from unittest import mock

from dask_cases import (
    CLASSES, QUERIES, SMALL, WEIGHTS, ClusterCase, X, Y, chunked, text_of)

import dask
import dask.array as da
import distributed
import numpy as np

import sylvora
import sylvora.dask
from sylvora._dask import checkpoints, exchange

ROUNDS = 12
LOST = 'workers were lost; the training goes on after ([0-9]+) rounds or trees, on up to ([0-9])'
# By estimator: parameters, labels and other arguments of fit.
CASES = {
    'SylvoraRegressor': ({'loss': 'huber'}, Y, {'eval_set': {'same': (X[:99], Y[:99])}}),
    'SylvoraClassifier': ({}, CLASSES, {'sample_weight': WEIGHTS}),
    'SylvoraRanker': ({}, np.round(Y), {'qid': QUERIES}),
    'SylvoraForestRegressor': ({}, Y, {'sample_weight': WEIGHTS}),
    'SylvoraForestClassifier': ({}, CLASSES, {}),
}


def hold(num_steps, marker):
    """On a worker: with so many rounds in checkpoints, rank 0 waits for a file in each exchange."""
    plain = getattr(exchange.Group, 'plain', exchange.Group.wait)

    def wait(group, work):
        if group.rank == 0 and group.folder is not None:
            found = group.folder.news({}).values()
            if sum(checkpoints._num_steps(data) for _, data in found) >= num_steps:
                while not os.path.exists(marker) and not group.cancelled():
                    time.sleep(0.01)
        return plain(group, work)

    exchange.Group.plain, exchange.Group.wait = plain, wait


def squares(counts, y, scores):
    """An objective that counts its calls: one at the beginning of a training, which also serves the
    first round, and one in each later round."""
    with open(counts, 'a') as file:
        file.write('.')
    return y - scores


class Losses(ClusterCase):
    def lose(self, model, fit, num_steps, victim, change=lambda data: data):
        """Kills a worker once the client has a checkpoint with `num_steps`, between two exchanges
        of rank 0, and returns the lines that fit logs. `change` is made to what the client gets."""
        marker = os.path.join(self.folder.name, self.id() + type(model).__name__)
        self.client.run(hold, num_steps, marker)
        pid = self.client.run(os.getpid, workers=[victim])[victim]
        take = checkpoints.Kept.take

        def take_and_kill(kept, number, data):
            take(kept, number, change(data))
            if kept.num_steps() >= num_steps and not os.path.exists(marker):
                os.kill(pid, signal.SIGKILL)
                if self.num_workers == 1:  # its nanny need not replace it
                    self.cluster.scale(2)
                os.close(os.open(marker, os.O_CREAT))

        with mock.patch.object(checkpoints.Kept, 'take', take_and_kill):
            with self.assertLogs('sylvora.dask', 'WARNING') as logged:
                fit()
        return [record.getMessage() for record in logged.records]

    def check_case(self, name, num_workers, rank, num_steps):
        params, y, others = CASES[name]
        params = dict(SMALL, **params, n_estimators=ROUNDS)
        expected = getattr(sylvora, name)(**params).fit(X, y, **others)
        by_chunk = {key: chunked(value) if isinstance(value, np.ndarray) else value
                    for key, value in others.items()}
        self.wait_for_workers()
        workers = sorted(self.client.scheduler_info()['workers'])[:num_workers]
        model = getattr(sylvora.dask, name)(
            **params, workers=workers if num_workers < self.num_workers else None)
        lines = self.lose(
            model, lambda: model.fit(chunked(X), chunked(y), **by_chunk, checkpoint_every=1),
            num_steps, workers[rank])
        self.assertEqual(len(lines), 1, lines)
        found = re.search(LOST, lines[0])
        self.assertIsNotNone(found, lines)
        self.assertGreaterEqual(int(found[1]), num_steps)
        self.assertEqual(text_of(model.to_local()), text_of(expected))
        self.assertEqual(getattr(model.to_local(), 'evals_result_', None),
                         getattr(expected, 'evals_result_', None))

    def check_nothing_is_left(self):
        self.wait_for_workers()
        self.assertEqual(glob.glob(self.folder.name + '/**/sylvora-*', recursive=True), [])


class FourWorkers(Losses):
    def test_goes_on_from_a_checkpoint(self):
        cases = [
            ('SylvoraRegressor', 4, 0, 5),
            ('SylvoraClassifier', 3, 0, ROUNDS + 5),  # in the second of three models
            ('SylvoraRanker', 4, 2, 5),
            ('SylvoraForestRegressor', 3, 0, 5),
            ('SylvoraForestClassifier', 3, 1, 5),
        ]
        for case in cases:
            with self.subTest(case):
                self.check_case(*case)
        self.check_nothing_is_left()

    def test_rounds_are_not_trained_again(self):
        counts = os.path.join(self.folder.name, 'counts')
        model = sylvora.dask.SylvoraRegressor(
            **dict(SMALL, n_estimators=ROUNDS), objective=functools.partial(squares, counts))
        lines = self.lose(model, lambda: model.fit(chunked(X), chunked(Y), checkpoint_every=1),
                          5, self.workers[0])
        done, num_workers = map(int, re.search(LOST, lines[0]).groups())
        # A rank that does not wait for rank 0 may be a round ahead of it.
        before, after = 4 * (done + 2), num_workers * (1 + ROUNDS - done)
        self.assertLessEqual(os.path.getsize(counts), before + after)

    def test_begins_again_without_a_usable_checkpoint(self):
        expected = sylvora.SylvoraRegressor(**SMALL).fit(X, Y)
        model = sylvora.dask.SylvoraRegressor(**SMALL)
        lines = self.lose(model, lambda: model.fit(chunked(X), chunked(Y), checkpoint_every=1),
                          3, self.workers[1], lambda data: data[:-1] + b'x')
        self.assertRegex(lines[0], LOST)
        self.assertRegex(lines[1], 'begins again: the checkpoint is damaged')
        self.assertEqual(text_of(model), text_of(expected))
        self.check_nothing_is_left()

    def test_file(self):
        path = os.path.join(self.folder.name, 'state')
        other = path + '.other'
        counts = os.path.join(self.folder.name, 'resumed')
        objective = functools.partial(squares, counts)
        fit = functools.partial(
            lambda path=path, **params: sylvora.dask.SylvoraRegressor(
                **{**SMALL, 'objective': objective, **params}).fit(
                    chunked(X), chunked(Y), checkpoint=path))
        fit()
        sylvora.train(dict(SMALL, learning_rate=0.09), X, Y, objective=objective, checkpoint=other)
        with open(path, 'rb') as file, open(other, 'rb') as other_file:
            self.assertEqual(file.read(), other_file.read())
        # With more rounds, as another client would.
        calls = os.path.getsize(counts)
        model = fit(n_estimators=9)
        self.assertEqual(os.path.getsize(counts), calls + 4 * (1 + 3))
        expected = sylvora.SylvoraRegressor(
            **dict(SMALL, n_estimators=9), objective=objective).fit(X, Y)
        self.assertEqual(text_of(model), text_of(expected))
        with self.assertRaisesRegex(ValueError, '^checkpoint %s: .*valShrink 0.09, not 0.5' % path):
            fit(learning_rate=0.5)
        with open(path, 'rb+') as file:
            file.truncate(2000)
        with self.assertRaisesRegex(ValueError, '^checkpoint %s: is damaged' % path):
            fit()
        self.assertEqual(os.path.getsize(path), 2000)

    def test_files_of_several_models(self):
        path = os.path.join(self.folder.name, 'classes')
        fit = functools.partial(
            sylvora.dask.SylvoraClassifier(**SMALL).fit, chunked(X), chunked(CLASSES))
        fit(checkpoint=path)
        self.assertEqual(sorted(glob.glob(path + '*')), [path, path + '.1', path + '.2'])
        os.remove(path + '.2')
        expected = sylvora.SylvoraClassifier(**SMALL).fit(X, CLASSES)
        self.assertEqual(text_of(fit(checkpoint=path)), text_of(expected))

    def test_arguments(self):
        model = sylvora.dask.SylvoraRegressor(**SMALL)
        for kind, text, arguments in [
                (TypeError, 'checkpoint must be a file name, False or None', {'checkpoint': True}),
                (ValueError, "must be a file name, got ''", {'checkpoint': ''}),
                (ValueError, 'no regular file', {'checkpoint': self.folder.name}),
                (ValueError, 'cannot be written', {'checkpoint': '/dev/null/state'}),
                (ValueError, 'checkpoint is False', {'checkpoint': False, 'checkpoint_every': 2}),
                (ValueError, 'checkpoint_every', {'checkpoint_every': 0})]:
            with self.subTest(text), self.assertRaisesRegex(kind, text):
                model.fit(chunked(X), chunked(Y), **arguments)

    def test_scattered_data_that_are_lost(self):
        victim = self.workers[1]
        futures = self.client.scatter([X[:150], X[150:]], workers=[victim], hash=False)
        scattered = da.concatenate([
            da.from_delayed(dask.delayed(future), (size, X.shape[1]), X.dtype)
            for future, size in zip(futures, (150, 250))])
        model = sylvora.dask.SylvoraRegressor(**dict(SMALL, n_estimators=ROUNDS))
        expected = sylvora.SylvoraRegressor(**dict(SMALL, n_estimators=ROUNDS)).fit(X, Y)
        self.assertEqual(text_of(model.fit(scattered, Y)), text_of(expected))
        with self.assertRaisesRegex(RuntimeError, 'data were lost.* in all.*scatter them again'):
            self.lose(model, lambda: model.fit(scattered, Y, checkpoint_every=1), 5, victim)


class OneWorker(Losses):
    num_workers = 1

    def test_goes_on_when_it_is_back(self):
        self.check_case('SylvoraRegressor', 1, 0, 5)
        self.check_nothing_is_left()


class Threads(unittest.TestCase):
    def test_worker_that_cannot_write(self):
        expected = text_of(sylvora.SylvoraRegressor(**SMALL).fit(X, Y))
        with distributed.LocalCluster(n_workers=2, threads_per_worker=1, processes=False,
                                      dashboard_address=None, silence_logs=50) as cluster:
            with distributed.Client(cluster):
                model = sylvora.dask.SylvoraRegressor(**SMALL)
                with mock.patch.object(checkpoints.Folder, '__init__', side_effect=OSError('full')):
                    with self.assertLogs('sylvora.dask', 'WARNING') as logged:
                        model.fit(chunked(X), chunked(Y))
                    self.assertEqual([r.getMessage() for r in logged.records],
                                     ['sylvora.dask: the training has no checkpoint: full'])
                self.assertEqual(text_of(model), expected)
                with mock.patch.object(checkpoints, 'Folder', side_effect=AssertionError):
                    model.fit(chunked(X), chunked(Y), checkpoint=False)
                self.assertEqual(text_of(model), expected)


if __name__ == '__main__':
    unittest.main()
