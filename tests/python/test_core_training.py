"""Trainings of sylvora._core: settings, functions of the user, interrupts."""
import array
import gc
import os
import signal
import threading
import time
import traceback
import unittest
import weakref

from sylvora import _core
from sylvora._core import TrainingError
from core_cases import INFINITY, NAN, TrainingCase, dense, doubles, scores_of


class TrainingTest(TrainingCase):
    def test_run(self):
        class Sub(_core.Model):
            pass

        training = self.training(numTree=12)
        training.evaluate('train', self.table, self.y, None)
        training.metric('mae')
        seen, texts = [], []
        training.user_metric('largest', lambda name, scores: max(
            abs(a - b) for a, b in zip(self.y, memoryview(scores).cast('d'))), False)

        def progress(done, total):
            seen.append((done, total, [len(values) for _, _, values in training.record()],
                         training.snapshot(Sub)))

        training.on_progress(progress)
        training.on_message(lambda stream, text: texts.append((stream, text)))
        model = training.run(Sub)
        self.assertIs(type(model), Sub)
        self.assertEqual([entry[:3] for entry in seen],
                         [(i, 12, [i, i]) for i in range(1, 13)])
        scores = scores_of(model, self.table)
        record = {metric: (name, values[-1]) for name, metric, values in training.record()}
        self.assertEqual(record['largest'],
                         ('train', max(abs(a - b) for a, b in zip(self.y, scores))))
        self.assertEqual(scores_of(seen[-1][3], self.table), scores)
        self.assertEqual(model.score(self.rows[7]), scores[7])
        self.assertEqual((training.best_round, training.stopped_early), (0, False))
        self.assertEqual(model.describe('setting')[3], 'numTree=12')

    def test_early_stop(self):
        training = self.training(numTree=300, earlyStop=3, valShrink=1)
        training.evaluate('other', self.table, doubles([1.0, 2.0]) * (self.n // 2), None)
        training.stop_rule('other', 'rmse')
        model = training.run(_core.Model)
        self.assertTrue(training.stopped_early)
        self.assertEqual(model.num_groups, training.best_round)

    def test_weights_and_subsets(self):
        """Weights of 0 and 2 are rows left out and doubled, without sampling."""
        settings = dict(valSmpRt=1, ratio=1)
        weights = array.array('i', [i % 3 for i in range(self.n)])
        weighted = self.training(**settings)
        weighted.weights(weights)
        numbers = [i for i in range(self.n) for _ in range(i % 3)]
        repeated = _core.Training()
        for parameter, value in dict(modelType='GBDT', numTree=10, **settings).items():
            repeated.set(parameter, str(value))
        subset = self.dataset.subset(array.array('i', numbers))
        self.assertEqual((subset.num_rows, subset.num_columns), (len(numbers), 4))
        column = doubles([NAN]) * len(numbers)
        subset.column(1, column)
        self.assertEqual(column.tolist(), [self.rows[i][1] for i in numbers])
        repeated.data(subset, doubles([self.y[i] for i in numbers]), None)
        one, other = weighted.run(_core.Model), repeated.run(_core.Model)
        for row in self.rows[:20]:
            self.assertAlmostEqual(one.score(row), other.score(row), places=6)
        for fault, rows in ((ValueError, array.array('i', [self.n])),
                            (ValueError, array.array('i', [-1])), (TypeError, doubles([1])),
                            (TypeError, [1])):
            with self.assertRaises(fault):
                self.dataset.subset(rows)

    def test_exceptions_of_functions(self):
        class Mine(Exception):
            pass

        def fail(*_):
            raise Mine('here')

        def failing(register):
            training = self.training(numTree=200, fPrint='true')
            training.evaluate('train', self.table, self.y, None)
            register(training)
            return training

        def bad_metric(training):
            training.user_metric('m', lambda *_: 'x', False)

        def truth_fails(training):
            class Bad:
                __bool__ = fail
            training.on_progress(lambda *_: Bad())

        for register in (lambda t: t.on_progress(fail), lambda t: t.on_message(fail), truth_fails,
                         lambda t: t.user_metric('m', fail, True)):
            names = []
            try:
                failing(register).run(_core.Model)
            except Mine as caught:
                names = [frame.name for frame in traceback.extract_tb(caught.__traceback__)]
            self.assertEqual(names, ['test_exceptions_of_functions', 'fail'])
        with self.assertRaises(TypeError):
            failing(bad_metric).run(_core.Model)
        for threads in (1, 3):
            training = self.with_objective(act=lambda round: fail() if round == 3 else None,
                                           numThread=threads)
            with self.assertRaises(Mine):
                training.run(_core.Model)
        # The first one counts, and the record stays.
        training = self.training()
        training.evaluate('train', self.table, self.y, None)
        training.on_progress(lambda done, total: fail() if done == 4 else False)
        with self.assertRaises(Mine):
            training.run(_core.Model)
        self.assertEqual(len(training.record()[0][2]), 4)

    def test_first_exception_ends_the_run(self):
        raised, rounds = [], []

        def fail(*_):
            raised.append(ValueError(len(raised)))
            raise raised[-1]

        for functions, least in (('on_message', 1), ('on_message metric', 2)):
            del raised[:], rounds[:]
            training = self.training(numTree=200, fPrint='true')
            training.evaluate('train', self.table, self.y, None)
            training.on_message(fail)
            training.on_progress(lambda done, total: rounds.append(done))
            if 'metric' in functions:
                training.user_metric('m', fail, True)
            with self.assertRaises(ValueError) as caught:
                training.run(_core.Model)
            self.assertIs(caught.exception, raised[0])
            self.assertGreaterEqual(len(raised), least)
            self.assertLessEqual(len(rounds), 1)

    def test_progress_is_told_once_per_round(self):
        for settings in ({}, {'modelType': 'RandomForest', 'fRegCls': 'REG', 'numThread': 3},
                         {'numThread': 2, 'fPrint': 'true'}):
            calls = []
            training = self.training(**dict(settings, numTree=30))
            training.on_progress(lambda done, total: calls.append((done, total)))
            training.on_message(lambda *_: None)
            training.run(_core.Model)
            self.assertEqual(calls, [(done, 30) for done in range(1, 31)])

    def test_use_of_a_running_training(self):
        training = self.training(numTree=5)
        metric_calls, faults = [], []

        def attempt():
            for call in (lambda: training.set('numTree', '3'), lambda: training.run(_core.Model),
                         lambda: training.data(self.dataset, self.y, None),
                         lambda: training.weights(array.array('i', [1]) * self.n),
                         lambda: training.on_progress(print), lambda: training.on_message(print),
                         lambda: training.metric('mae'), lambda: training.start(0.0),
                         lambda: training.stop_rule(None, None),
                         lambda: training.user_metric('x', print, True),
                         lambda: training.evaluate('x', self.table, self.y, None),
                         lambda: training.objective(print, self.y, self.y, None)):
                try:
                    call()
                except RuntimeError as fault:
                    faults.append(str(fault))

        def inspect():
            for call in (training.record, lambda: training.snapshot(_core.Model),
                         lambda: training.best_round, lambda: training.stopped_early):
                try:
                    call()
                except RuntimeError as fault:
                    faults.append(str(fault))

        def progress(done, total):
            self.assertEqual((training.best_round, training.stopped_early), (0, False))
            if done == 2:
                attempt()
                for action in (attempt, inspect):
                    thread = threading.Thread(target=action)
                    thread.start()
                    thread.join()

        training.evaluate('train', self.table, self.y, None)
        training.on_progress(progress)
        training.user_metric('m', lambda *_: metric_calls.append(1) or inspect() or 0.0, True)
        training.run(_core.Model)
        self.assertEqual(len(faults), 12 + 12 + 4 + 4 * len(metric_calls))
        del faults[:]
        attempt()
        self.assertEqual(len(faults), 12)
        with self.assertRaisesRegex(RuntimeError, 'progress function'):
            training.snapshot(_core.Model)
        training.record()

    def test_run_while_arguments_are_converted(self):
        """A training that runs meanwhile has run: its other arguments come too late."""
        class Running:
            def __float__(self):
                training.run(_core.Model)
                return 0.0

            def __bool__(self):
                return not training.run(_core.Model)

        for call in (lambda: training.start(Running()),
                     lambda: training.user_metric('x', print, Running())):
            training = self.training(numTree=2)
            with self.assertRaisesRegex(RuntimeError, 'has run'):
                call()

    def test_faults(self):
        def objective(*arguments):
            return lambda: self.training().objective(*arguments)

        def short():
            training = self.training()
            few = [doubles([0]) for _ in range(2)]
            training.objective(print, *few, None)
            training.run(_core.Model)

        y, long = self.y, doubles([0]) * (self.n + 1)
        for fault, text, call in (
                (TypeError, 'no arguments', lambda: _core.Training(1)),
                (TypeError, '', lambda: _core.Dataset(self.rows)),
                (TypeError, 'keyword', lambda: _core.Dataset(table=self.table)),
                (IndexError, 'no column 4', lambda: self.dataset.column(4, doubles(self.y))),
                (ValueError, 'out: .* length of 401', lambda: self.dataset.column(0, long)),
                (TrainingError, 'no parameter "x"', lambda: self.training(x=1)),
                (TrainingError, 'numTree: "x"', lambda: self.training(numTree='x')),
                (TrainingError, 'fileTrain', lambda: self.training(fileTrain='x')),
                (ValueError, 'null', lambda: self.training(numTree='1\0')),
                (TypeError, '', lambda: self.training().set('numTree', 3)),
                (TrainingError, 'no data', lambda: _core.Training().run(_core.Model)),
                (TrainingError, 'labels', lambda: self.training(long)),
                (TypeError, 'labels: the items are float32, expected float64',
                 lambda: self.training(array.array('f', y))),
                (TypeError, 'labels: an array', lambda: self.training(list(y))),
                (TypeError, 'queries: the items', lambda: _core.Training().data(
                    self.dataset, y, y)),
                (TrainingError, 'weights', lambda: self.training().weights(array.array('i', [1]))),
                (TypeError, 'cannot be called', objective(3, y, y, None)),
                (ValueError, 'gradients: .*length', objective(print, y, doubles([1]), None)),
                (ValueError, 'hessians: .*length', objective(print, y, y, doubles([1]))),
                (ValueError, 'scores: .*read-only', objective(
                    print, memoryview(bytes(y)).cast('d'), y, None)),
                (ValueError, 'scores: .*length of 1, expected 400', short),
                (TrainingError, 'finite', lambda: self.training().start(NAN)),
                (TypeError, '', lambda: self.training().start('x')),
                (TypeError, 'cannot be called', lambda: self.training().on_progress(None)),
                (TypeError, 'subclass', lambda: self.training().run(int)),
                (TypeError, 'subclass', lambda: self.training().run(3)),
                (TrainingError, 'labels', lambda: self.training().evaluate(
                    'x', self.table, long, None))):
            with self.assertRaisesRegex(fault, text, msg=text):
                call()
        infinite = _core.Training()
        infinite.set('modelType', 'GBDT')
        with self.assertRaisesRegex(ValueError, '(?i)row 1.*column 0'):
            infinite.data(_core.Dataset(dense([[1.0], [INFINITY]])), doubles([1, 2]), None)
            infinite.run(_core.Model)

    @unittest.skipUnless(hasattr(signal, 'raise_signal'), 'needs signals')
    def test_interrupt(self):
        # A test run in the background may ignore the signal.
        before = signal.signal(signal.SIGINT, signal.default_int_handler)
        self.addCleanup(signal.signal, signal.SIGINT, before)
        for functions in (False, True):
            training = self.training(numTree=1000000)
            if functions:
                training.on_progress(lambda done, total: False)
            timer = threading.Timer(0.2, os.kill, (os.getpid(), signal.SIGINT))
            begin = time.monotonic()
            timer.start()
            with self.assertRaises(KeyboardInterrupt):
                training.run(_core.Model)
            self.assertLess(time.monotonic() - begin, 20)
            timer.join()

    def test_cycles_are_collected(self):
        def cycle(run):
            training = self.training()

            def progress(done, total):
                return len(training.record()) < 0

            training.on_progress(progress)
            training.on_message(lambda stream, text: training)
            if run:
                training.run(_core.Model)
            return weakref.ref(progress)

        for run in (False, True):
            alive = cycle(run)
            gc.collect()
            self.assertIsNone(alive())
