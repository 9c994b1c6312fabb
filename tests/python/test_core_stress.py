"""The extension module with many threads and many calls, and when the interpreter ends."""
import array
import gc
import os
import subprocess
import sys
import threading

from sylvora import _core
from arrow_producer import ArrowStream, column
from core_cases import TrainingCase, doubles, grid, memory, references, scores_of, small_model
from threads import each_on_a_thread


class StressTest(TrainingCase):
    def test_threads(self):
        expected_text = self.training().run(_core.Model).text(17, True)
        shared = self.training().run(_core.Model)
        scores = scores_of(shared, self.table)
        faults = []
        fresh = _core.Dataset(self.table)  # is coded by one of the threads

        def work(number):
            try:
                training = self.training()
                training.data(fresh, self.y, None)
                if number % 2:
                    training.on_progress(lambda done, total: False)
                for _ in range(3):
                    assert scores_of(shared, self.table, number % 3) == scores
                    assert [shared.score(row) for row in self.rows[:50]] == scores[:50]
                assert training.run(_core.Model).text(17, True) == expected_text
            except BaseException as fault:
                faults.append(fault)

        each_on_a_thread(work, 16)
        self.assertEqual(faults, [])

    def test_changes_need_exclusive_access(self):
        model = self.training(numTree=300).run(_core.Model)
        big = memoryview(bytearray(8 * 4 * 200000)).cast('d', (200000, 4))
        table = _core.Table.from_dense(big, None, False)
        out = doubles([0]) * 200000
        refused = False
        while not refused:  # a busy machine may run the threads one after the other
            thread = threading.Thread(target=model.score_table, args=(table, out, 1))
            thread.start()
            while thread.is_alive() and not refused:
                try:
                    model.set_description('missing', ['nan'])
                except RuntimeError:
                    refused = True
            thread.join()
        model.cut(3)
        self.assertEqual(model.num_groups, 3)

    def test_the_interpreter_ends_during_a_run(self):
        code = ('import core_cases, threading, time\n'
                'core_cases.TrainingCase.setUpClass()\n'
                'training = core_cases.TrainingCase().training(numTree=10000000)\n'
                'training.on_progress(lambda done, total: False)\n'
                'threading.Thread(target=training.run, args=(core_cases._core.Model,),'
                ' daemon=True).start()\n'
                'time.sleep(0.1)\n')
        run = subprocess.run([sys.executable, '-c', code], stderr=subprocess.PIPE, timeout=60,
                             cwd=os.path.dirname(os.path.abspath(__file__)))
        self.assertEqual((run.returncode, run.stderr), (0, b''))

    def test_no_leaks(self):
        model, row, bad = small_model(), [1.0, 2.0, 3.0], [1.0, 'x', 2.0]
        text = model.text(17, True)
        rows = [row] * 3
        out, view = doubles([0]) * 3, grid(rows)
        arrow = ArrowStream([column(c, 'g', [1.0, None, 2.0]) for c in 'abc'], [2, 1])

        def score_all():
            for given in (row, doubles(row)):
                model.score(given)
            for call in (lambda: model.score(bad), lambda: _core.Model.parse(b'x', True),
                         lambda: _core.Table.from_dense(row, None, False)):
                try:
                    call()
                except (TypeError, ValueError):
                    pass
            model.score_table(_core.Table.from_dense(view, 1.0, False), out, 1)

        def objects():
            copy = _core.Model.parse(text, True)
            copy.set_description('column', ['a', 'b', 'c'])
            copy.describe('column')
            copy.tree(0)
            _core.Table.from_columns([(out, b'\7'), out], 3, None, False)
            _core.Dataset(_core.Table.from_arrow(arrow, None, False)).subset(array.array('i', [1]))

        def trainings():
            training = self.with_objective(numTree=1)
            training.on_progress(lambda done, total: training.record() is None)
            training.run(_core.Model)
            training.record()
            failing = self.training(numTree=1)
            failing.on_progress(lambda done, total: 1 / 0)
            try:
                failing.run(_core.Model)
            except ZeroDivisionError:
                pass

        scale = 0.1 if hasattr(sys, 'gettotalrefcount') or 'asan' in os.environ.get(
            'LD_PRELOAD', '') else 1
        for work, count in ((score_all, 20000), (objects, 3000), (trainings, 60)):
            for _ in range(10):
                work()
            gc.collect()
            before, total = memory(), references()
            for _ in range(int(count * scale)):
                work()
            gc.collect()
            self.assertLess(references() - total, 60, work.__name__)
            if scale == 1:
                self.assertLess(memory() - before, 3e6, work.__name__)
