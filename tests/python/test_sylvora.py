"""The module `sylvora`: scores against independent arithmetic, errors, hostile callers.

Runs unchanged under Python 2.7 and 3.8 and later, with the module's folder in PYTHONPATH:
python -m unittest discover -s tests/python

SYLVORA_CYCLES in the environment is the number of times that a model is loaded and released.
"""
import os
import random
import resource
import shutil
import sys
import tempfile
import threading
import unittest
from decimal import Decimal
from fractions import Fraction

import sylvora
from models import expected_scores, model_text
from threads import each_on_a_thread

NAN, INFINITY = float('nan'), float('inf')
MISSING = -2147483648.0
CYCLES = int(os.environ.get('SYLVORA_CYCLES', '3000'))

STUMP = (1, 0.25, -1.5, (0, 2.0, 0.5, 7.25))
REGRESSION = (0, [(0.1, [STUMP]), (0.05, [(2, -1.0, 3.0, 4.0)]), (1.0, [0.125])])


class Acting(object):
    def __init__(self, value, action=lambda: None):
        self.value, self.action = value, action


class Item(Acting):
    """A list item whose conversion to a number runs `action` first."""

    def __float__(self):
        self.action()
        return self.value


class Index(Acting):
    """The same with a conversion to an integer."""

    def __index__(self):
        self.action()
        return int(self.value)


class Path(Acting):
    """An os.PathLike."""

    def __fspath__(self):
        self.action()
        return self.value


class ModuleTest(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.mkdtemp()
        self.addCleanup(shutil.rmtree, self.folder)

    def write(self, text):
        path = os.path.join(self.folder, 'model.txt')
        with open(path, 'w') as file:
            file.write(text)
        return path

    def load(self, model, num_column=3):
        return sylvora.LoadModel(self.write(model_text(model, num_column)))

    def assert_same(self, actual, expected, hint=None):
        """Equal bit for bit, except for the sign of a NaN."""
        self.assertEqual([repr(value) for value in actual], [repr(value) for value in expected],
                         hint)

    def assert_error(self, text, function, *arguments):
        with self.assertRaises(sylvora.error) as caught:
            function(*arguments)
        self.assertEqual(str(caught.exception), text, repr(arguments))


class ScoringTest(ModuleTest):
    def check(self, model, rows, num_column=3):
        handle = self.load(model, num_column)
        for row in rows:
            self.assert_same(sylvora.OnlineTesting(handle, row), expected_scores(model, row),
                             (model, row))
        self.assertIsNone(sylvora.ReleaseModel(handle))

    def test_random_models(self):
        draw = random.Random(7)

        def tree(num_class, depth):
            if depth == 0:
                return draw.randrange(num_class) if num_class else draw.randrange(-99, 99) / 64.0
            return (draw.randrange(3), draw.randrange(-4, 4) / 2.0, tree(num_class, depth - 1),
                    tree(num_class, depth - 1))

        cells = [value / 2.0 for value in range(-5, 5)] + [NAN, INFINITY, -INFINITY, MISSING]
        for num_class in (0, 2, 3, 5):
            for sizes in ([1], [7], [1, 1, 1], [3, 1, 4]):
                model = (num_class, [(draw.choice([0.1, 1.0]),
                                      [tree(num_class, draw.randrange(4)) for _ in range(size)])
                                     for size in sizes])
                self.check(model, [[draw.choice(cells) for _ in range(3)] for _ in range(20)])

    def test_second_item(self):
        """The mean, including unset entries, for a result of exactly 0 or 1; else the result."""
        for model in ((0, [(1.0, [1, 2, 3, -6])]),         # 0.0, three entries stay at -1.0
                      (0, [(1.0, [0.5]), (1.0, [0.5])]),   # 1.0
                      (0, [(1.0, [-0.0])]),                # -0.0 is 0 as well
                      (0, [(1.0, [1.0000001])]),
                      (2, [(1.0, [0, 1, 1])]), (2, [(1.0, [0, 1, 0])]), (3, [(1.0, [2, 0])])):
            self.check(model, [[0.0, 0.0, 0.0]])

    def test_groups_without_trees(self):
        """Such groups give NaN, and more values than the model has trees."""
        self.check((0, [(1.0, [])] * 40 + [(1.0, [2.5])]), [[0.0]], 1)

    def test_item_types(self):
        handle = self.load(REGRESSION)
        expected = expected_scores(REGRESSION, [3.0, 0.5, -1.0])

        class Row(list):
            pass

        for row in ([3, 0.5, -1], [Item(3.0), Fraction(1, 2), Decimal(-1)], Row([3, 0.5, -1]),
                    [3, 0.5, -True], [3, Item(0.5), -1.0]):
            self.assert_same(sylvora.OnlineTesting(handle, row), expected, row)
        sylvora.ReleaseModel(handle)


class ErrorTest(ModuleTest):
    def test_exception(self):
        self.assertTrue(issubclass(sylvora.error, Exception))
        self.assertEqual((sylvora.error.__module__, sylvora.error.__name__), ('sylvora', 'error'))
        first = sys.modules.pop('sylvora')
        import sylvora as again
        self.assertIs(again.error, first.error)

    def test_load(self):
        for arguments in ((), (5,), (None,), ('a\0b',), ('a', 'b'), (u'\ud800',), (bytearray(b'a'),)):
            self.assert_error('Can not get model path', sylvora.LoadModel, *arguments)
        self.assert_error('Load Model error', sylvora.LoadModel, os.path.join(self.folder, 'none'))
        text = model_text(REGRESSION, 3)
        for damaged in ('', text[:len(text) // 2], text.replace('TERMINAL', 'LEAF')):
            self.assert_error('Load Model error', sylvora.LoadModel, self.write(damaged))
        self.assert_error('Feature Dim Error', sylvora.LoadModel, self.write('no model'))
        self.assert_error('Feature Dim Error', self.load, (0, [(1.0, [1.0])]), 0)
        self.assert_error('Tree Num Error', self.load, (0, []))
        self.assert_error('Tree Num Error', sylvora.LoadModel, self.write('0 0 2147483647'))
        self.assert_error('Tree Num Error', self.load, (0, [(1.0, [])]))

    @unittest.skipIf(sys.version_info < (3,), 'Python 2 has no such paths')
    def test_paths(self):
        """Everything that open() accepts, except bytes objects, which were never accepted."""
        path = self.write(model_text(REGRESSION, 3))
        strange = os.path.join(os.fsencode(self.folder), b'\xff\xc3\xa4')
        shutil.copy(path, strange)
        for good in (Path(path), Path(path.encode()), os.fsdecode(strange), Path(strange),
                     Path(os.fsdecode(strange))):
            handle = sylvora.LoadModel(good)
            self.assertEqual(len(sylvora.OnlineTesting(handle, [0, 0, 0])), 5)
            sylvora.ReleaseModel(handle)
        for bad in (path.encode(), Path(5), Path(None), Path('a\0b'), Path(Path(path)), Path,
                    Path(path, lambda: {}['missing']), Path(path, lambda: sys.exit(1))):
            self.assert_error('Can not get model path', sylvora.LoadModel, bad)
        self.assert_error('Load Model error', sylvora.LoadModel, Path(self.folder))

    def test_model_that_cannot_score(self):
        text = model_text(REGRESSION, 3)
        for root in ('1 0.25 1 0', '1 0.25 1 9', '-1 0.25 1 2'):
            damaged = text.replace('1 0.25 1 2', root)
            self.assertNotEqual(damaged, text)
            handle = sylvora.LoadModel(self.write(damaged))
            self.assert_error('Online testing error', sylvora.OnlineTesting, handle, [0, 0, 0])
            sylvora.ReleaseModel(handle)

    def test_arguments(self):
        handle, row = self.load(REGRESSION), [0.0, 0.0, 0.0]
        released = self.load(REGRESSION)
        sylvora.ReleaseModel(released)
        for wrong in (0, 1, -1, handle + 1, handle + 2 ** 64, handle - 2 ** 64, -handle, 2 ** 200,
                      released, True, float(handle), str(handle), None, row, Item(1.0)):
            self.assert_error('Parse argv error', sylvora.OnlineTesting, wrong, row)
            self.assert_error('Parse argv error', sylvora.ReleaseModel, wrong)
        for arguments in ((), (handle,), (handle, row, 1), (handle, tuple(row)), (handle, None),
                          (handle, iter(row)), (row, handle)):
            self.assert_error('Parse argv error', sylvora.OnlineTesting, *arguments)
        for arguments in ((), (handle, handle)):
            self.assert_error('Parse argv error', sylvora.ReleaseModel, *arguments)
        if handle <= sys.maxsize:
            sylvora.OnlineTesting(int(handle), row)  # Python 2's int; the handle is a long
        sylvora.ReleaseModel(handle)

    def test_row(self):
        handle = self.load((0, [(1.0, [1.0])]), 5)
        for size in (0, 4, 6):
            self.assert_error('# Feature size error : expected 5, actual %d' % size,
                              sylvora.OnlineTesting, handle, [0.0] * size)
        for wrong, error in (('1.0', TypeError), (None, TypeError), (1j, TypeError),
                             (10 ** 400, OverflowError), (Item('x'), TypeError),
                             (Item(0.0, lambda: {}['missing']), KeyError)):
            self.assertRaises(error, sylvora.OnlineTesting, handle, [0, 1, wrong, 3, 4])
        self.assert_same(sylvora.OnlineTesting(handle, [0] * 5), [1.0, 1.0 / 1.000001, 1.0])
        sylvora.ReleaseModel(handle)


class HostileTest(ModuleTest):
    """A conversion may run any Python code during a call, and so may other threads."""

    def test_list_changes(self):
        handle = self.load(REGRESSION)
        for change, size in (('pop', 2), ('clear', 0), ('append', 4)):
            for kind in (Item, Index) if sys.version_info >= (3, 8) else (Item,):
                row = [0.0, 0.0]
                action = {'pop': row.pop, 'clear': lambda: row.__delitem__(slice(None)),
                          'append': lambda: row.append(0.0)}[change]
                row.insert(0, kind(0.0, action))
                self.assert_error('# Feature size error : expected 3, actual %d' % size,
                                  sylvora.OnlineTesting, handle, row)
        row = [0.0, 0.0, 0.0]
        row[0] = Item(3.0, lambda: row.__setitem__(slice(None), [9, 0.5, -1]))
        self.assert_same(sylvora.OnlineTesting(handle, row),
                         expected_scores(REGRESSION, [3.0, 0.5, -1.0]))
        sylvora.ReleaseModel(handle)

    def test_handle_is_used_and_released_meanwhile(self):
        handle, inner = self.load(REGRESSION), []

        def action():
            inner.append(sylvora.OnlineTesting(handle, [9, 9, 9]))
            sylvora.ReleaseModel(handle)
            self.assert_error('Parse argv error', sylvora.OnlineTesting, handle, [0, 0, 0])

        row = [3.0, Item(0.5, action), -1.0]
        self.assert_same(sylvora.OnlineTesting(handle, row),
                         expected_scores(REGRESSION, [3.0, 0.5, -1.0]))
        self.assert_same(inner[0], expected_scores(REGRESSION, [9, 9, 9]))
        self.assert_error('Parse argv error', sylvora.ReleaseModel, handle)

    def test_threads(self):
        """16 threads score with a handle of their own, with a shared one, and with one that any of
        them releases and loads again."""
        path = self.write(model_text(REGRESSION, 3))
        common, fleeting, wrong = sylvora.LoadModel(path), [sylvora.LoadModel(path)], []
        lock = threading.Lock()  # releasing a handle twice is an error

        def score(handle, row, may_be_gone):
            try:
                result = sylvora.OnlineTesting(handle, [Item(value) for value in row])
            except sylvora.error as error:
                return may_be_gone and str(error) == 'Parse argv error'
            return result == expected_scores(REGRESSION, row)

        def work(thread):
            own = sylvora.LoadModel(path)
            for count in range(100):
                row = [float(thread), count % 3 / 4.0, thread - 2.0]
                if not (score(own, row, False) and score(common, row, False) and
                        score(fleeting[0], row, True)):
                    wrong.append(row)
                if count % 7 == 0:
                    with lock:
                        sylvora.ReleaseModel(fleeting[0])
                        fleeting[0] = sylvora.LoadModel(path)
            sylvora.ReleaseModel(own)

        each_on_a_thread(work, 16)
        self.assertEqual(wrong, [])
        sylvora.ReleaseModel(common)
        sylvora.ReleaseModel(fleeting[0])

    def test_any_arguments(self):
        """Any arguments give a result or an exception."""
        path = self.write(model_text(REGRESSION, 3))
        handle, draw, refused = sylvora.LoadModel(path), random.Random(3), 0

        class Row(list):
            def __len__(self):
                return 3

            def __getitem__(self, index):
                raise KeyError(index)

        things = [None, True, -1, 0, 2 ** 31, 2 ** 63, 2 ** 64, -2 ** 63, 10 ** 400, 1.5, NAN, 1j, '',
                  u'x', b'x', bytearray(3), path, (), (1, 2, 3), [], [1, 2, 3], [[1], 2, 3], {}, set(),
                  object(), int, len, iter([]), sylvora, sylvora.error, Item(1.0), Item('x'), Index(1),
                  Decimal('nan'), Fraction(1, 3), Row([1, 2, 3]), Row(), [1, 2, Item(NAN)], slice(3),
                  lambda: 0, type('Any', (), {'__getattr__': lambda *_: 1 / 0})()]
        for _ in range(20000):
            function = draw.choice([sylvora.LoadModel, sylvora.OnlineTesting, sylvora.ReleaseModel])
            arguments = [draw.choice(things) for _ in range(draw.randrange(4))]
            if arguments and function is sylvora.OnlineTesting and draw.random() < 0.5:
                arguments[0] = handle
            try:
                result = function(*arguments)
                self.assertIn(len(arguments), (1, 2))
                if function is sylvora.LoadModel:
                    sylvora.ReleaseModel(result)
            except (sylvora.error, TypeError, OverflowError):
                refused += 1
        if 'SYLVORA_CYCLES' in os.environ:
            print('%d of 20000 calls refused' % refused)
        self.assertEqual(sylvora.OnlineTesting(handle, [3, 0.5, -1]),
                         expected_scores(REGRESSION, [3, 0.5, -1]))
        sylvora.ReleaseModel(handle)

    def test_a_handle_is_never_given_out_again(self):
        """Also after failures and releases; a stale handle stays refused."""
        path = self.write(model_text(REGRESSION, 3))
        stale = set()
        for count in range(500):
            handle = sylvora.LoadModel(path)
            self.assertNotIn(handle, stale)
            stale.add(handle)
            self.assert_error('Load Model error', sylvora.LoadModel, self.folder)
            if count % 3 != 0:
                sylvora.ReleaseModel(handle)
        for handle in stale:
            try:
                sylvora.ReleaseModel(handle)
            except sylvora.error:
                pass
        sylvora.LoadModel(path)
        for handle in stale:
            self.assert_error('Parse argv error', sylvora.OnlineTesting, handle, [0, 0, 0])

    def test_handles_of_another_process(self):
        """A child can use and release its parent's handles; the parent has none of the child's."""
        handle, stump = self.load(REGRESSION), (0, [(1.0, [STUMP])])
        expected = expected_scores(REGRESSION, [3.0, 0.5, -1.0])
        ours, theirs = os.pipe()
        child = os.fork()
        if child == 0:
            try:
                new = self.load(stump)
                same = (sylvora.OnlineTesting(handle, [3.0, 0.5, -1.0]) == expected and
                        sylvora.OnlineTesting(new, [0, 0, 0]) == expected_scores(stump, [0, 0, 0]))
                sylvora.ReleaseModel(handle)
                os.write(theirs, (u'%d' % new).encode() if same else b'0')
            finally:
                os._exit(0)
        os.close(theirs)
        with os.fdopen(ours) as answer:
            new = int(answer.read() or 0)
        self.assertEqual(os.waitpid(child, 0)[1], 0)
        self.assertNotEqual(new, 0)
        self.assert_error('Parse argv error', sylvora.OnlineTesting, new, [0, 0, 0])
        self.assert_same(sylvora.OnlineTesting(handle, [3.0, 0.5, -1.0]), expected)
        sylvora.ReleaseModel(handle)

    @unittest.skipIf('asan' in os.environ.get('LD_PRELOAD', ''), 'it keeps freed memory')
    def test_memory_is_steady(self):
        tree = 1.0
        for depth in range(10):
            tree = (0, depth / 8.0, tree, tree)
        path = self.write(model_text((0, [(1.0, [tree])]), 1))
        size = os.path.getsize(path)
        broken = os.path.join(self.folder, 'broken.txt')
        with open(path) as whole, open(broken, 'w') as file:
            file.write(whole.read()[:-3] + '- \n')
        item = Item(0.0)
        bad = Item('no number')
        references = [sys.getrefcount(each) for each in (item, bad, sylvora.error)]

        def use():
            handle = sylvora.LoadModel(path)
            self.assertRaises(sylvora.error, sylvora.LoadModel, broken)
            for _ in range(50):
                sylvora.OnlineTesting(handle, [item])
                self.assertRaises(TypeError, sylvora.OnlineTesting, handle, [bad])
                self.assertRaises(sylvora.error, sylvora.OnlineTesting, handle, [item, bad])
            sylvora.ReleaseModel(handle)

        small = os.path.join(self.folder, 'small.txt')
        with open(small, 'w') as file:
            file.write(model_text(REGRESSION, 3))

        def peak():
            return resource.getrusage(resource.RUSAGE_SELF).ru_maxrss * 1024

        for _ in range(20):
            use()
        before = peak()
        for _ in range(100):
            use()
        for _ in range(CYCLES):
            sylvora.ReleaseModel(sylvora.LoadModel(small))
        if 'SYLVORA_CYCLES' in os.environ:
            print('%d cycles, peak of memory %d bytes higher' % (CYCLES, peak() - before))
        # Each released handle's number stays reserved, at 32 bytes.
        self.assertLess(peak() - before, 20 * size + 40 * CYCLES)
        self.assertEqual([sys.getrefcount(each) for each in (item, bad, sylvora.error)],
                         references)
