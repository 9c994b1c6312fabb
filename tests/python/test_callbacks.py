"""Callbacks: order, stopping, what is written, failures, Ctrl-C."""
import io
import os
import signal
import subprocess
import sys
import tempfile
import threading
import types
import unittest
from unittest import mock

try:
    import numpy as np
except ImportError:
    raise unittest.SkipTest('needs NumPy')

import sylvora
from sylvora._training import progress as _progress
from sylvora._training.best import best_rounds
from sylvora.callbacks import (Callback, Checkpoint, EarlyStopping, KeepOnInterrupt, LogEvaluation,
                               ProgressBar, TimeLimit)

random = np.random.RandomState(2)
X = random.randint(0, 9, (200, 3)).astype(float)
Y = X[:, 0] + random.normal(size=200)
PARAMS = {'n_estimators': 10}


class Recorder(Callback):
    """Notes its calls; `act` runs after each round."""

    def __init__(self, act=lambda round: None):
        self.act, self.calls = act, []

    def begin(self, total):
        self.calls.append(('begin', total))

    def after_round(self, round):
        self.calls.append((round.round, round.total))
        return self.act(round)

    def end(self, result):
        self.calls.append(('end', result.model.n_rounds))

    def failed(self):
        self.calls.append('failed')


def fail(round):
    if round.round == 3:
        raise KeyError('of the callback')


class CallTest(unittest.TestCase):
    def test_order(self):
        recorder = Recorder()
        for _ in range(2):  # one object, several trainings
            sylvora.train(PARAMS, X, Y, callbacks=[recorder])
        expected = [('begin', 10)] + [(i, 10) for i in range(1, 11)] + [('end', 10)]
        self.assertEqual(recorder.calls, expected * 2)
        recorder = Recorder()
        for params in ({'model': 'forest', 'task': 'regression', 'n_estimators': 4},
                       {'model': 'tree', 'task': 'regression'}):
            sylvora.train(params, X, Y, callbacks=[recorder])
        self.assertEqual([call for call in recorder.calls if call[0] == 'begin'],
                         [('begin', 4), ('begin', 1)])
        self.assertEqual([call for call in recorder.calls if call[0] == 'end'], [('end', 1)] * 2)

    def test_stop_keeps_the_model(self):
        stopper, other = Recorder(lambda round: round.round == 4), Recorder()
        model = sylvora.train(PARAMS, X, Y, callbacks=[stopper, other])
        self.assertEqual(model.n_rounds, 4)
        self.assertEqual(other.calls[-2:], [(4, 10), ('end', 4)])
        short = sylvora.train({'n_estimators': 4}, X, Y)
        self.assertEqual(model.to_bytes(description=False).split(b'\n', 2)[2],
                         short.to_bytes(description=False).split(b'\n', 2)[2])

    def test_failures(self):
        class FailingBegin(Callback):
            def begin(self, total):
                raise OSError('at the beginning')

        for bad, kind, rounds in ((Recorder(fail), KeyError, 3), (FailingBegin(), OSError, 0)):
            recorder = Recorder()
            with self.assertRaises(kind):
                sylvora.train(PARAMS, X, Y, callbacks=[recorder, bad])
            self.assertEqual(recorder.calls[-1], 'failed')
            self.assertEqual(len(recorder.calls), 2 + rounds)
        recorder = Recorder()
        with self.assertRaises(sylvora.TrainingError):
            sylvora.train(dict(PARAMS, loss='log_loss'), X, Y, callbacks=[recorder])
        self.assertEqual(recorder.calls, [('begin', 10), 'failed'])

    def test_all_are_told_of_a_failure(self):
        class Failing(Callback):
            def failed(self):
                raise OSError

        seen = Recorder()
        with self.assertRaises(ZeroDivisionError):
            sylvora.train(PARAMS, X, Y, callbacks=[seen, Failing(), Recorder(lambda r: 1 // 0)])
        self.assertEqual(seen.calls[-1], 'failed')

    def test_what_a_round_shows(self):
        seen = []

        def look(round):
            part = round.model()
            seen.append((round.elapsed, len(round.evals['e']['rmse']), part.n_rounds,
                         part.feature_names, part.predict(X[:5])))

        model = sylvora.train(PARAMS, X, Y, eval_set={'e': (X, Y)}, callbacks=[Recorder(look)],
                              feature_names=['a', 'b', 'c'])
        times, lengths, rounds, names, scores = zip(*seen)
        self.assertEqual(list(times), sorted(times))
        self.assertEqual((list(lengths), list(rounds)), (list(range(1, 11)),) * 2)
        self.assertEqual(names[0], ['a', 'b', 'c'])
        np.testing.assert_array_equal(scores, list(model.staged_predict(X[:5])))


class StoppingTest(unittest.TestCase):
    """That EarlyStopping does what the library does is in test_train."""

    def test_choice_of_set_and_metric(self):
        sets = {'a': (X[:50], Y[:50]), 'b': (X[50:], -Y[50:])}
        model = sylvora.train({'n_estimators': 30}, X, Y, eval_set=sets,
                              callbacks=[EarlyStopping(2, on='b', metric='mae')])
        values = model.evals_result_['b']['mae']
        self.assertEqual(model.best_score_, min(values))
        self.assertEqual(model.n_rounds, model.best_iteration_)
        self.assertEqual(len(values), model.best_iteration_ + 2)
        reloaded = sylvora.Model.from_bytes(model.to_bytes())
        self.assertEqual(reloaded.best_iteration_, model.best_iteration_)

    def test_the_best_round_may_be_the_last_one(self):
        sets = {'good': (X, Y), 'bad': (X, np.roll(Y, 7))}
        for rounds in (3, 4):
            model = sylvora.train({'n_estimators': rounds}, X, Y, eval_set=sets,
                                  callbacks=[EarlyStopping(5, metric='mae', on='good')])
            errors = model.evals_result_['good']['mae']
            self.assertEqual((model.best_iteration_, model.best_score_), (rounds, errors[-1]))

    def test_min_delta(self):
        options = dict(eval_set={'e': (X, Y)})
        values = sylvora.train({'n_estimators': 50}, X, Y, **options).evals_result_['e']['rmse']
        delta = 0.2
        best = 0
        for i, value in enumerate(values):
            if values[best] - value > delta:
                best = i
            elif i - best >= 3:
                break
        model = sylvora.train({'n_estimators': 50}, X, Y, **options,
                              callbacks=[EarlyStopping(3, min_delta=delta)])
        self.assertEqual(model.best_iteration_, best + 1)

    def test_the_best_of_odd_values(self):
        nan, inf = float('nan'), float('inf')
        for values, larger, best in (
                ([], False, []), ([3, 2, 2, 1, 5], False, [1, 2, 2, 4, 4]),
                ([3, 2, 3, 4], True, [1, 1, 1, 4]), ([nan, 1, nan, 0], False, [0, 2, 2, 4]),
                ([-inf, inf, 2, 1], False, [0, 0, 3, 4]), ([nan, nan], True, [0, 0])):
            with self.subTest(values):
                self.assertEqual(list(best_rounds(values, larger)), best)

    def test_refused(self):
        for call, message in (
                (lambda: EarlyStopping(0), 'whole number of 1 or more'),
                (lambda: EarlyStopping(1, min_delta=-1), 'min_delta'),
                (lambda: TimeLimit(0), 'above 0'), (lambda: Checkpoint('x', 0), 'every'),
                (lambda: LogEvaluation(0), 'every')):
            with self.assertRaisesRegex(ValueError, message):
                call()
        for stopping, eval_set, message in (
                (EarlyStopping(1), None, 'give eval_set'),
                (EarlyStopping(1, on='x'), {'e': (X, Y)}, "no set 'x', but e"),
                (EarlyStopping(1, metric='x'), {'e': (X, Y)}, "no metric 'x', but rmse, mae")):
            with self.assertRaisesRegex(ValueError, message):
                sylvora.train(PARAMS, X, Y, eval_set=eval_set, callbacks=[stopping])
        nothing = Recorder()
        with self.assertRaisesRegex(ValueError, 'not finite after any round'):
            sylvora.train(PARAMS, X, Y, eval_set={'e': (X, Y)}, eval_metric=lambda y, f: np.nan,
                          callbacks=[nothing, EarlyStopping(50)])
        self.assertEqual(nothing.calls[-1], 'failed')

    def test_time_limit(self):
        clock = mock.Mock(side_effect=[100.0] + [100.0 + i for i in range(1, 20)])
        with mock.patch('time.monotonic', clock):
            model = sylvora.train(PARAMS, X, Y, callbacks=[TimeLimit(3)])
        self.assertEqual(model.n_rounds, 3)


class CheckpointTest(unittest.TestCase):
    def test_files(self):
        with tempfile.TemporaryDirectory() as folder:
            path = os.path.join(folder, 'm')
            seen = []

            def look(round):
                if os.path.exists(path):
                    seen.append(sylvora.Model.load(path).n_rounds)

            model = sylvora.train(PARAMS, X, Y, callbacks=[Checkpoint(path, 4), Recorder(look)])
            self.assertEqual(seen, [4, 4, 4, 4, 8, 8, 8])
            np.testing.assert_array_equal(sylvora.Model.load(path).predict(X), model.predict(X))
            self.assertEqual(os.listdir(folder), ['m'])
            classes = np.arange(len(X)) % 3
            several = sylvora.SylvoraClassifier(n_estimators=2, callbacks=[Checkpoint(path)])
            with self.assertRaisesRegex(ValueError, 'Checkpoint is for one training'):
                several.fit(X, classes)
            several.fit(X, np.where(classes, 'hot', 'cold'))
            self.assertEqual(sylvora.Model.load(path).classes, ['cold', 'hot'])
            nowhere = os.path.join(folder, 'no', 'folder')
            with self.assertRaises(OSError):
                sylvora.train(PARAMS, X, Y, callbacks=[Checkpoint(nowhere, 4)])


class Terminal(io.StringIO):
    def isatty(self):
        return True


class OutputTest(unittest.TestCase):
    def test_log(self):
        lines = []
        sets = {'a': (X[:50], Y[:50]), 'b': (X[50:], Y[50:])}
        model = sylvora.train(PARAMS, X, Y, eval_set=sets,
                              callbacks=[LogEvaluation(4, lines.append)])
        expected = ['[%d]  ' % i + '  '.join(
            '%s: rmse %.6g, mae %.6g' % (name, metrics['rmse'][i - 1], metrics['mae'][i - 1])
            for name, metrics in model.evals_result_.items()) for i in (4, 8, 10)]
        self.assertEqual(lines, expected)
        del lines[:]
        sylvora.train({'n_estimators': 500, 'learning_rate': 0.9}, X[:50], Y[:50],
                      eval_set={'b': sets['b']}, callbacks=[LogEvaluation(1000, lines.append),
                                                            EarlyStopping(5)])
        self.assertEqual(len(lines), 2)
        self.assertRegex(lines[1], r'The model ends with round \d+, the best one')
        del lines[:]
        sylvora.train({'model': 'forest', 'task': 'regression', 'n_estimators': 4}, X, Y,
                      eval_set=sets, callbacks=[LogEvaluation(1, lines.append)])
        self.assertEqual(len(lines), 1)
        sylvora.train(PARAMS, X, Y, callbacks=[LogEvaluation(1, self.fail)])

    def test_verbose(self):
        out = io.StringIO()
        with mock.patch('sys.stdout', out):
            sylvora.train(PARAMS, X, Y, eval_set={'e': (X, Y)}, verbose=5)
        self.assertEqual([line[:4] for line in out.getvalue().splitlines()], ['[5] ', '[10]'])
        with mock.patch('sys.stderr', io.StringIO()) as err, mock.patch('sys.stdout', out):
            sylvora.train({'n_estimators': 40}, X, Y, verbose=True)
        self.assertEqual(len(err.getvalue().splitlines()), 10)

    def test_bar_in_a_file(self):
        err = io.StringIO()
        with mock.patch('sys.stderr', err):
            sylvora.train({'n_estimators': 25}, X, Y, eval_set={'e': (X, Y)},
                          callbacks=[ProgressBar()])
        lines = err.getvalue().splitlines()
        self.assertEqual(len(lines), 10)
        self.assertRegex(lines[-1], r'^\[#{24}\] 25/25  \d\d:\d\d < 00:00  e rmse [\d.]+$')

    def test_bar_on_a_terminal(self):
        err = Terminal()
        with mock.patch('sys.stderr', err):
            sylvora.train({'n_estimators': 25}, X, Y, callbacks=[ProgressBar()])
            with self.assertRaises(KeyError):
                sylvora.train(PARAMS, X, Y, callbacks=[ProgressBar(), Recorder(fail)])
        text = err.getvalue()
        self.assertIn('25/25', text.split('\r')[-2] + text.split('\r')[1])
        self.assertEqual(text.count('\n'), 2)  # at the end, and after the failure
        self.assertTrue(text.endswith('\n'))
        display = _progress.Display(100, Terminal())
        display.show(10, 9.0, 'a long metric 0.5')
        display.show(20, 18.0, 'm 1')
        first, second = display._stream.getvalue().split('\r')[1:]
        bar = '[##......................]'
        self.assertEqual(first, bar + ' 10/100  00:09 < 01:21  a long metric 0.5')
        self.assertEqual(len(second), len(first))  # nothing of the longer line remains
        self.assertEqual(_progress.clock(3661.9), '1:01:01')
        with mock.patch('sys.stderr', None):  # as under pythonw
            sylvora.train(PARAMS, X, Y, callbacks=[ProgressBar()])

    def test_bar_in_a_notebook(self):
        """One line that is replaced: an output with an id, then updates of it."""
        calls = []
        handle = types.SimpleNamespace(update=lambda data, raw: calls.append(('update', data, raw)))

        def display(data, raw, display_id):
            calls.append(('display', data, raw))
            self.assertTrue(display_id)
            return handle

        shell = types.SimpleNamespace(kernel=object())
        modules = {
            'ipykernel': types.ModuleType('ipykernel'),
            'IPython': types.SimpleNamespace(get_ipython=lambda: shell),
            'IPython.display': types.SimpleNamespace(display=display),
        }
        err = io.StringIO()
        with mock.patch.dict(sys.modules, modules), mock.patch('sys.stderr', err), \
                mock.patch.object(_progress, '_SHORTEST_PAUSE', 0.0):
            sylvora.train(PARAMS, X, Y, callbacks=[ProgressBar()])
        self.assertEqual([call[0] for call in calls], ['display'] + ['update'] * 9)
        self.assertRegex(calls[-1][1]['text/plain'], '10/10')
        self.assertEqual(err.getvalue(), '')


INTERRUPTED = '''
import os, signal, sys, threading, time
import numpy as np, sylvora
from sylvora.callbacks import Callback, KeepOnInterrupt
signal.signal(signal.SIGINT, signal.default_int_handler)
X = np.random.RandomState(0).rand(20000, 20)
class Interrupt(Callback):
    def after_round(self, round):
        if round.round == 3:
            os.kill(os.getpid(), signal.SIGINT)
callbacks = {callbacks}
if not callbacks:
    threading.Timer(0.3, os.kill, (os.getpid(), signal.SIGINT)).start()
before = signal.getsignal(signal.SIGINT)
begin = time.monotonic()
try:
    params = dict(n_estimators=100000, n_jobs={threads})
    model = sylvora.train(params, X, X[:, 0], callbacks=callbacks)
    print('kept', model.n_rounds)
except KeyboardInterrupt:
    print('interrupted')
assert signal.getsignal(signal.SIGINT) is before
print(time.monotonic() - begin < 20)
'''


class InterruptTest(unittest.TestCase):
    def test_ctrl_c(self):
        for callbacks, threads, expected in (
                ('[]', 1, 'interrupted'), ('[]', 2, 'interrupted'),
                ('[Interrupt()]', 1, 'interrupted'),
                ('[KeepOnInterrupt(), Interrupt()]', 2, r'kept [34]')):
            code = INTERRUPTED.format(callbacks=callbacks, threads=threads)
            environment = dict(os.environ, PYTHONPATH=os.pathsep.join(sys.path))
            with self.subTest(callbacks=callbacks, threads=threads):
                result = subprocess.run([sys.executable, '-c', code], env=environment, timeout=60,
                                        stdout=subprocess.PIPE, text=True)
                self.assertRegex(result.stdout, '^%s\nTrue\n$' % expected)

    def test_keep_needs_all_of_several_trainings(self):
        before = signal.signal(signal.SIGINT, signal.default_int_handler)
        self.addCleanup(signal.signal, signal.SIGINT, before)
        before = signal.default_int_handler
        keep = KeepOnInterrupt()

        def interrupt(round):
            if round.round == 3:
                signal.raise_signal(signal.SIGINT)

        callbacks = [keep, KeepOnInterrupt(), keep, Recorder(interrupt)]
        with self.assertRaises(KeyboardInterrupt):
            sylvora.cv(PARAMS, X, Y, folds=2, callbacks=callbacks)
        classifier = sylvora.SylvoraClassifier(n_estimators=9, callbacks=callbacks)
        with self.assertRaises(KeyboardInterrupt):
            classifier.fit(X, np.arange(len(X)) % 3)
        self.assertFalse(hasattr(classifier, 'classes_'))
        self.assertIs(signal.getsignal(signal.SIGINT), before)

    def test_keep_in_another_thread_does_nothing(self):
        models = []
        thread = threading.Thread(target=lambda: models.append(
            sylvora.train(PARAMS, X, Y, callbacks=[KeepOnInterrupt()])))
        thread.start()
        thread.join()
        self.assertEqual(models[0].n_rounds, 10)
        self.assertIs(signal.getsignal(signal.SIGINT), signal.default_int_handler)
