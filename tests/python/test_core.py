"""The extension module sylvora._core: tables, data sets, trainings, models. CPython 3.9 and later.

Needs no NumPy; with it, more kinds of memory are tried.
"""
import array
import ctypes
import gc
import math
import os
import random
import signal
import struct
import subprocess
import sys
import tempfile
import threading
import time
import traceback
import unittest
import weakref

from sylvora import _core
from sylvora._core import ModelError, TrainingError, error
import arrow_producer
from arrow_producer import ArrowStream, ArrowTable, column
from models import expected_scores, model_text

try:
    import numpy
except ImportError:
    numpy = None

NAN, INFINITY = math.nan, math.inf
MISSING = -2147483648.0
TREE = (0, 1.5, (1, 2.5, 1.0, (2, 0.5, 2.0, 4.0)), (2, 3.5, 8.0, (1, -0.5, 16.0, 32.0)))
MODEL = (0, [(0.1, [TREE]), (0.7, [(1, 4.5, 0.25, (0, -3.0, 0.5, 0.75))]), (1.0, [0.125])])


def doubles(values):
    return array.array('d', values)


def grid(rows, code='d'):
    """A list of lists as a C-contiguous buffer with two dimensions."""
    flat = struct.pack('%d%s' % (len(rows) * len(rows[0]), code), *[v for row in rows for v in row])
    return memoryview(bytearray(flat)).cast(code, (len(rows), len(rows[0])))


def dense(rows, missing=None, refuse_nan=False):
    return _core.Table.from_dense(grid(rows), missing, refuse_nan)


def small_model(num_column=3):
    return _core.Model.parse(model_text(MODEL, num_column).encode(), False)


def scores_of(model, table, threads=1):
    out = doubles([NAN]) * table.num_rows
    model.score_table(table, out, threads)
    return out.tolist()


def expected(rows, model=MODEL):
    return [expected_scores(model, [MISSING if v is None or v != v else float(v) for v in row])[0]
            for row in rows]


class TableTest(unittest.TestCase):
    rows = [[draw.randrange(6) for _ in range(3)] for draw in [random.Random(3)] for _ in range(21)]

    def check(self, table, rows=None):
        rows = self.rows if rows is None else rows
        self.assertEqual((table.num_rows, table.num_columns), (len(rows), 3))
        self.assertEqual(scores_of(small_model(), table), expected(rows))

    def test_dense(self):
        for code in 'bBhHiIlLqQnNfd':
            self.check(_core.Table.from_dense(grid(self.rows, code), None, False))
        flags = [[value > 2 for value in row] for row in self.rows]
        self.check(_core.Table.from_dense(grid(flags, '?'), None, False), flags)
        # Strides.
        view = grid(self.rows)
        self.check(_core.Table.from_dense(view[::-1], None, False), self.rows[::-1])
        self.check(_core.Table.from_dense(view[1:20:3], None, False), self.rows[1:20:3])
        # ctypes exports no strides.
        cells = (ctypes.c_double * 3 * 21)(*[tuple(row) for row in self.rows])
        self.check(_core.Table.from_dense(cells, None, False))
        self.check(_core.Table.from_dense(memoryview(b'').cast('d').cast('B').cast('d', (0, 3))
                                          if sys.version_info >= (3, 99) else grid(self.rows)[:0],
                                          None, False), [])

    @unittest.skipUnless(numpy, 'needs NumPy')
    def test_numpy(self):
        x = numpy.array(self.rows)
        for kind in ('f8', 'f4', 'i8', 'i4', 'i2', 'i1', 'u8', 'u4', 'u2', 'u1', '=f8', '<i4'):
            for layout in (numpy.ascontiguousarray, numpy.asfortranarray,
                           lambda a: numpy.repeat(a, 2, 1)[:, ::2], lambda a: a[::-1, ::-1][::-1,
                                                                                           ::-1]):
                self.check(_core.Table.from_dense(layout(x.astype(kind)), None, False))
        for kind, fault in (('f2', TypeError), ('g', TypeError), ('c16', TypeError),
                            ('O', TypeError), ('>f8', ValueError), ('S3', TypeError)):
            with self.assertRaises(fault, msg=kind):
                _core.Table.from_dense(x.astype(kind), None, False)
        with self.assertRaisesRegex(ValueError, 'overlapping'):
            scores_of(small_model(), _core.Table.from_dense(
                numpy.broadcast_to(x[:1].astype(float), (5, 3)), None, False))
        with self.assertRaisesRegex(ValueError, 'one value in memory'):
            _core.Table.from_columns([numpy.broadcast_to(1.0, 5)], 5, None, False)
        with self.assertRaisesRegex(ValueError, 'read-only'):
            out = numpy.zeros(21)
            out.flags.writeable = False
            small_model().score_table(dense(self.rows), out, 1)

    def test_missing(self):
        rows = [[1.0, NAN, 3.0], [NAN, -7.0, -7.0], [2.0, 1.0, 0.0]]
        self.check(dense(rows), rows)
        self.check(dense(rows, -7.0), [[1.0, NAN, 3.0], [NAN, NAN, NAN], [2.0, 1.0, 0.0]])
        self.check(dense(rows, NAN), rows)
        for row, fault in ((0, 'row 0.*column 1'), (1, 'row 1.*column 0')):
            with self.assertRaisesRegex(ValueError, '(?i)' + fault):
                scores_of(small_model(), dense([[0.0] * 3] * row + rows[row:], None, True))
        for value in (INFINITY, -INFINITY):
            with self.assertRaisesRegex(ValueError, '(?i)row 1.*column 2'):
                scores_of(small_model(), dense([[1.0, 2.0, 3.0], [1.0, 2.0, value]]))

    def test_columns(self):
        columns = [array.array(code, values) for code, values in zip('dbI', zip(*self.rows))]
        self.check(_core.Table.from_columns(columns, 21, None, False))
        self.check(_core.Table.from_columns(tuple(memoryview(c)[::-1] for c in columns), 21, None,
                                            False), self.rows[::-1])
        bits = bytes([0b10101101, 0b11110000, 0b00011111])
        rows = [[None if not bits[i // 8] >> i % 8 & 1 else row[0]] + row[1:]
                for i, row in enumerate(self.rows)]
        self.check(_core.Table.from_columns(
            [(columns[0], bits), (columns[1], None), columns[2]], 21, None, False), rows)

    def test_sparse(self):
        def compress(lines):
            values, indices, begins = [], [], [0]
            for line in lines:
                for i, value in enumerate(line):
                    if value:
                        values.append(value)
                        indices.append(i)
                begins.append(len(values))
            return values, indices, begins

        for by_rows in (True, False):
            values, indices, begins = compress(self.rows if by_rows else zip(*self.rows))
            for codes in ('dii', 'fqq', 'bqi', 'Qiq'):
                parts = [array.array(code, part) for code, part
                         in zip(codes, (values, indices, begins))]
                self.check(_core.Table.from_sparse((21, 3), by_rows, *parts, None, False))
                parts[2][-1] += 1
                with self.assertRaisesRegex(ValueError, 'begins: the last one'):
                    _core.Table.from_sparse((21, 3), by_rows, *parts, None, False)
        for indices, begins, fault in (([0, 0], [0, 2], 'out of order'), ([0, 3], [0, 2], 'index 3'),
                                       ([-1, 0], [0, 2], 'index -1'), ([0, 1], [-2, 2], 'negative'),
                                       ([0, 1], [0, 2, 1], 'descending')):
            table = _core.Table.from_sparse(
                (len(begins) - 1, 3), True, doubles([1, 2]), array.array('i', indices),
                array.array('q', begins), None, False)
            with self.assertRaisesRegex(ValueError, fault):
                scores_of(small_model(), table)

    def test_faults(self):
        view, flat = grid(self.rows), doubles(range(21))
        indices = array.array('i', [0, 1])
        dense_of, columns_of = _core.Table.from_dense, _core.Table.from_columns

        def sparse_of(shape, *parts):
            return _core.Table.from_sparse(shape, True, *parts, None, False)

        class Structure(ctypes.Structure):
            _fields_ = [('x', ctypes.c_double)]

        big = ctypes.c_double.__ctype_be__
        for fault, text, call in (
                (TypeError, 'abstract|Table is made by', lambda: _core.Table()),
                (TypeError, 'array is needed, not list', lambda: dense_of([[1.0]], None, False)),
                (ValueError, '1 dimensions, expected 2', lambda: dense_of(flat, None, False)),
                (ValueError, '0 dimensions', lambda: dense_of(ctypes.c_double(), None, False)),
                (TypeError, 'format "c"', lambda: dense_of(
                    memoryview(b'abc').cast('c', (3, 1)), None, False)),
                (TypeError, 'format', lambda: dense_of((Structure * 2 * 2)(), None, False)),
                (ValueError, 'big-endian', lambda: dense_of((big * 2 * 2)(), None, False)),
                (TypeError, 'real number|float', lambda: dense_of(view, 'x', False)),
                (TypeError, 'argument', lambda: dense_of(view)),
                (TypeError, 'not iterable', lambda: columns_of(3, 21, None, False)),
                (ValueError, 'column 1: .*length of 21', lambda: columns_of(
                    [doubles([1]), flat], 1, None, False)),
                (ValueError, 'negative', lambda: columns_of([flat], -1, None, False)),
                (ValueError, 'at most', lambda: columns_of([flat], 2 ** 31, None, False)),
                (OverflowError, '', lambda: columns_of([flat], 2 ** 64, None, False)),
                (ValueError, 'column 0: .*2 bytes of validity, expected 3', lambda: columns_of(
                    [(flat, b'xx')], 21, None, False)),
                (ValueError, 'column 0: a pair', lambda: columns_of([(flat,)], 21, None, False)),
                (TypeError, 'column 0: an array', lambda: columns_of([None], 21, None, False)),
                (ValueError, 'indices: .*length', lambda: sparse_of(
                    (1, 3), doubles([1]), indices, array.array('i', [0, 1]))),
                (ValueError, 'begins: .*length', lambda: sparse_of(
                    (2, 3), doubles([1, 2]), indices, array.array('i', [0, 1]))),
                (TypeError, 'indices: the items must be int32 or int64', lambda: sparse_of(
                    (1, 3), doubles([1, 2]), doubles([0, 1]), indices)),
                (ValueError, 'values: .*contiguous', lambda: sparse_of(
                    (1, 3), memoryview(doubles([1, 2, 3]))[::2], indices, array.array('i', [0, 2]))),
                (ValueError, 'negative', lambda: sparse_of((-1, 3), flat, indices, indices)),
                (TypeError, '', lambda: sparse_of(3, flat, indices, indices))):
            with self.assertRaisesRegex(fault, text):
                call()
        # The memory is borrowed until the table goes.
        data = bytearray(16)
        table = dense_of(memoryview(data).cast('d', (2, 1)), None, False)
        with self.assertRaises(BufferError):
            data.extend(b'x')
        del table
        data.extend(b'x')


class ArrowTest(unittest.TestCase):
    rows = TableTest.rows
    check = TableTest.check

    def columns(self, formats='gis', rows=None):
        values = zip(*(rows or self.rows))
        return [column('xyz'[c], f, list(v)) for c, (f, v) in enumerate(zip(formats, values))]

    def test_formats(self):
        for formats in ('gfc', 'CsS', 'iIl', 'Lgg'):
            for kind in (ArrowTable, ArrowStream):
                table = _core.Table.from_arrow(kind(self.columns(formats)), None, False)
                self.assertEqual(table.names, ['x', 'y', 'z'])
                self.check(table)
        flags = [[value > 2 for value in row] for row in self.rows]
        nulls = [[i % 2, None, None if i % 3 else i % 5] for i in range(21)]
        for offset, skipped in ((0, 0), (3, 0), (0, 5), (9, 4)):
            for chunks in (None, [21], [8, 0, 13], [1, 1, 19], [0, 21]):
                options = dict(chunks=chunks, offset=offset, skipped=skipped)
                for rows, formats in ((flags, 'bbb'), (nulls, 'bni'), (nulls, 'gfi'),
                                      (self.rows, 'bng'[2:] * 3)):
                    data = ArrowStream(self.columns(formats, rows), **options)
                    self.check(_core.Table.from_arrow(data, None, False), rows)
        del table
        gc.collect()
        self.assertEqual(arrow_producer.LIVE, {})

    def test_empty(self):
        for chunks in ([], [0], [0, 0]):
            table = _core.Table.from_arrow(ArrowStream(self.columns(), chunks), None, False)
            self.assertEqual((table.num_rows, table.names), (0, ['x', 'y', 'z']))
            self.assertEqual(scores_of(small_model(), table), [])

    def test_kept(self):
        data = ArrowTable(self.columns())
        table = _core.Table.from_arrow(data, None, False)
        self.assertEqual(len(arrow_producer.LIVE), 1)
        dataset = _core.Dataset(table)
        del table
        self.assertEqual(len(arrow_producer.LIVE), 1)
        del dataset
        self.assertEqual(len(arrow_producer.LIVE), 0)

    def test_faults(self):
        class Odd:
            def __arrow_c_array__(self):
                return 1, 2

        for format, text in (('u', 'text'), ('U', 'text'), ('vu', 'text'), ('tdD', 'dates'),
                             ('tsu:UTC', 'dates'), ('d:9,2', 'decimals'), ('e', 'half'),
                             ('z', 'no numbers'), ('+l', 'no numbers')):
            data = ArrowTable([column('x', 'g', [1]), column('name "é"', format, [2])])
            with self.assertRaisesRegex(TypeError, 'Column "name "é"" holds .*' + text):
                _core.Table.from_arrow(data, None, False)
        for fault, text, data in (
                (TypeError, 'categories', ArrowTable([column('x', 'i', [1], dictionary=True)])),
                (ValueError, 'null as a whole', ArrowTable(self.columns(), null_rows=True)),
                (ValueError, 'failed: disk on fire', ArrowStream(self.columns(),
                                                                 fail='disk on fire')),
                (TypeError, 'neither', [1]), (ValueError, 'PyCapsule', Odd())):
            with self.assertRaisesRegex(fault, text):
                _core.Table.from_arrow(data, None, False)
        gc.collect()
        self.assertEqual(arrow_producer.LIVE, {})


class ModelTest(unittest.TestCase):
    def test_score(self):
        draw = random.Random(5)
        model = small_model()
        cells = [float(v) for v in range(-4, 7)] + [NAN, INFINITY, -INFINITY]
        for _ in range(300):
            row = [draw.choice(cells) for _ in range(3)]
            whole = [v if math.isfinite(v) else 2 for v in row]
            for given in (row, tuple(row), doubles(row), memoryview(doubles(row[::-1]))[::-1],
                          array.array('f', row)):
                self.assertEqual(model.score(given), expected([row])[0], given)
            for given in ([int(v) for v in whole], array.array('b', [int(v) for v in whole])):
                self.assertEqual(model.score(given), expected([whole])[0])
        self.assertEqual(model.score([None, True, 2]), expected([[None, 1, 2]])[0])
        wide = small_model(1000)
        row = [draw.choice(cells[:-2]) for _ in range(1000)]
        self.assertEqual(wide.score(row), expected([row])[0])

    def test_score_reads_the_missing_value_of_the_description(self):
        model = small_model()
        for rule in ('-999', 'nan -999'):
            model.set_description('missing', [rule])
            row = doubles([-999.0, 1.0, NAN])
            for given in (row.tolist(), row):
                self.assertEqual(model.score(given), expected([[None, 1.0, None]])[0])
            self.assertEqual(row[0], -999.0)
        model.set_description('missing', ['nan'])
        self.assertEqual(model.score([-999.0, 1.0, 2.0]), expected([[-999.0, 1.0, 2.0]])[0])

    def test_score_faults(self):
        model = small_model()

        class Bad:
            def __init__(self, action):
                self.action = action

            def __float__(self):
                self.action()
                return 1.0

        def shrink():
            del row[1:]

        def fail():
            raise KeyError('mine')

        row = [0.0, Bad(shrink), 0.0]
        for fault, text, given in (
                (ValueError, 'The row has 2 values, the model needs 3', [1.0, 2.0]),
                (ValueError, 'The row has 4 values, the model needs 3', doubles([1] * 4)),
                (ValueError, 'The row has 0 values', ()),
                (ValueError, 'The row has 1 values', row),
                (TypeError, 'Item 2 of the row is a str, not a number', [1.0, 2.0, '3']),
                (TypeError, 'Item 0 of the row is a complex', (1j, 2.0, 3.0)),
                (ValueError, 'Item 1 of the row is beyond', [1.0, 10 ** 400, 2.0]),
                (KeyError, 'mine', [1.0, 2.0, Bad(fail)]),
                (TypeError, 'must be a list', {1, 2, 3}), (TypeError, 'must be a list', 'abc'),
                (ValueError, 'dimensions', grid([[1.0, 2.0, 3.0]])),
                (TypeError, 'format', memoryview(b'abc').cast('c'))):
            with self.assertRaisesRegex(fault, text):
                model.score(given)

    def test_outputs(self):
        model, rows = small_model(), TableTest.rows
        table, n = dense(rows), len(rows)
        for first in range(model.num_groups + 1):
            out = doubles([0]) * n
            model.add_groups(table, 0, first, out, 1)
            model.add_groups(table, first, model.num_groups, out, 2)
            self.assertEqual(out.tolist(), expected(rows))
        leaves = memoryview(bytearray(4 * n * 3)).cast('i', (n, 3))
        model.leaves(table, leaves, 0)
        trees = [list(struct.iter_unpack('ddiiii', model.tree(t)[0])) for t in range(3)]
        self.assertEqual([model.tree(t)[1] for t in range(3)], [0, 1, 2])
        for row, found in zip(rows, leaves.tolist()):
            for tree, leaf in zip(trees, found):
                node = 0
                while tree[node][2] >= 0:
                    node = tree[node][3 if row[tree[node][2]] <= tree[node][0] else 4]
                self.assertEqual(leaf, node)
        forest = (3, [(1.0, [0, (0, 1.5, 1, 2), 2, (1, 2.5, 0, 2)])])
        voting = _core.Model.parse(model_text(forest, 3).encode(), False)
        shares = memoryview(bytearray(8 * n * 3)).cast('d', (n, 3))
        voting.votes(table, shares, 1)
        for row, found in zip(rows, shares.tolist()):
            votes = [0, 1 if row[0] <= 1.5 else 2, 2, 0 if row[1] <= 2.5 else 2]
            self.assertEqual(found, [votes.count(c) / 4 for c in range(3)])
        for fault, text, call in (
                (TypeError, 'out: the items must be float64',
                 lambda: model.score_table(table, array.array('f', [0]) * n, 1)),
                (ValueError, 'out: .*length of 20, expected 21',
                 lambda: model.score_table(table, doubles([0]) * 20, 1)),
                (ValueError, 'out: .*read-only', lambda: model.score_table(
                    table, memoryview(bytes(8 * n)).cast('d'), 1)),
                (ValueError, 'contiguous', lambda: model.score_table(
                    table, memoryview(doubles([0]) * (2 * n))[::2], 1)),
                (ValueError, 'out: .*3 columns, expected 4', lambda: _core.Model.parse(
                    model_text((4, forest[1]), 3).encode(), False).votes(table, shares, 1)),
                (ValueError, 'regression', lambda: model.votes(table, shares, 1)),
                (ValueError, 'threads is -1', lambda: model.leaves(table, leaves, -1)),
                (ValueError, 'group', lambda: model.add_groups(table, 2, 9, doubles([0]) * n, 1)),
                (ValueError, '3 columns|[Dd]imension|columns', lambda: small_model(4).score_table(
                    table, doubles([0]) * n, 1)),
                (TypeError, 'Table', lambda: model.score_table(rows, doubles([0]) * n, 1)),
                (IndexError, 'no tree 3', lambda: model.tree(3)),
                (IndexError, '', lambda: model.tree(-1)), (ValueError, '', lambda: model.cut(0)),
                (ValueError, '', lambda: model.cut(9)),
                (TypeError, 'is made by', _core.Model)):
            with self.assertRaisesRegex(fault, text):
                call()

    def test_description(self):
        model = small_model()
        names = ['größe', 'b c', 'x=1']
        model.set_description('column', names)
        model.set_description('setting', ['numTree=3'])
        copy = _core.Model.parse(model.text(17, True), True)
        self.assertEqual(copy.describe('column'), names)
        self.assertEqual(copy.describe('setting'), ['numTree=3'])
        self.assertEqual(_core.Model.parse(model.text(17, True), False).describe('column'), [])
        self.assertEqual((copy.num_columns, copy.num_groups, copy.num_trees, copy.num_classes,
                          copy.type, copy.loss), (3, 3, 3, 0, 'GBDT', 'Square'))
        copy.cut(2)
        self.assertEqual((copy.num_groups, copy.num_trees), (2, 2))
        self.assertEqual(copy.score([1.0, 2.0, 3.0]), expected([[1, 2, 3]], (0, MODEL[1][:2]))[0])
        for fault, arguments in ((ValueError, ('column', ['a'])), (ValueError, ('no key', ['a'])),
                                 (TypeError, ('column', 'abc')), (TypeError, ('column', [1, 2, 3])),
                                 (ValueError, ('column', ['a', 'b', 'c\0'])),
                                 (ValueError, ('column', ['a', 'b', '\udc80']))):
            with self.assertRaises(fault, msg=repr(arguments)):
                model.set_description(*arguments)
        self.assertEqual(model.describe('column'), names)

    def test_files(self):
        class Sub(_core.Model):
            pass

        model = small_model()
        with tempfile.TemporaryDirectory() as folder:
            path = os.path.join(folder, 'möd el.txt')
            model.write(path, 17, True)
            for name in (path, os.fsencode(path)):
                copy = Sub.read(name, True)
                self.assertIs(type(copy), Sub)
                self.assertEqual(copy.text(17, False), model.text(17, False))
            with open(path, 'rb') as file:
                text = file.read()
            self.assertEqual(text, model.text(17, True))
            broken = os.path.join(folder, 'broken.txt')
            with open(broken, 'wb') as file:
                file.write(text[:len(text) // 2])
            cut = text[:200]
            absent = os.path.join(folder, 'no', 'such')
            for fault, text, call in (
                    (FileNotFoundError, absent, lambda: Sub.read(absent, True)),
                    (IsADirectoryError, folder, lambda: Sub.read(folder, True)),
                    (ModelError, 'broken.txt: ', lambda: Sub.read(broken, True)),
                    (FileNotFoundError, absent, lambda: model.write(absent, 17, True)),
                    (IsADirectoryError, folder, lambda: model.write(folder, 17, True)),
                    (ValueError, 'null byte', lambda: Sub.read('a\0b', True)),
                    (FileNotFoundError, '', lambda: Sub.read('', True)),
                    (ValueError, 'digits is 7', lambda: model.write(path, 7, True)),
                    (ValueError, 'digits is 0', lambda: model.text(0, True)),
                    (ModelError, '', lambda: Sub.parse(b'', True)),
                    (ModelError, '', lambda: Sub.parse(cut, True)),
                    (TypeError, 'bytes are needed, not str', lambda: Sub.parse('text', True)),
                    (TypeError, '', lambda: Sub.read(3, True))):
                with self.assertRaises(fault) as caught:
                    call()
                self.assertIn(text, str(caught.exception))
                if isinstance(caught.exception, OSError):
                    self.assertIn(caught.exception.filename, (absent, folder, ''))
            with open(path, 'rb') as file:
                self.assertEqual(file.read(), model.text(17, True))
        self.assertTrue(issubclass(ModelError, error) and issubclass(ModelError, ValueError))

    def test_losses(self):
        scores = doubles([-2.0, 0.0, 3.0])
        _core.probabilities('LogLoss', scores, scores)
        for actual, score in zip(scores, (-2.0, 0.0, 3.0)):
            self.assertAlmostEqual(actual, 1 / (1 + math.exp(-score)), places=14)
        self.assertAlmostEqual(_core.log_odds(doubles([1, -1, 1]), array.array('i', [2, 1, 0])),
                               math.log(2), places=14)
        self.assertEqual(_core.log_odds(doubles([1, 0]), None), 0.0)
        for call in (lambda: _core.probabilities('Square', scores, scores),
                     lambda: _core.probabilities('LogLoss', scores, doubles([1])),
                     lambda: _core.log_odds(doubles([1, 1]), None),
                     lambda: _core.log_odds(doubles([1, 0]), array.array('i', [1]))):
            with self.assertRaises(ValueError):
                call()


class TrainingCase(unittest.TestCase):
    """What the tests of trainings share."""

    n = 400

    @classmethod
    def setUpClass(cls):
        draw = random.Random(11)
        cls.rows = [[draw.random() for _ in range(4)] for _ in range(cls.n)]
        cls.y = doubles([3 * a + b * b - c for a, b, c, _ in cls.rows])
        cls.table = dense(cls.rows)
        cls.dataset = _core.Dataset(cls.table)

    def training(self, labels=None, **settings):
        training = _core.Training()
        for parameter, value in dict(dict(modelType='GBDT', numTree=10), **settings).items():
            training.set(parameter, str(value))
        training.data(self.dataset, self.y if labels is None else labels, None)
        return training

    def with_objective(self, hessians=False, act=lambda round: None, **settings):
        """A training whose objective is the squared error."""
        training = self.training(**settings)
        scores, gradients, seconds = (doubles([NAN]) * self.n for _ in range(3))

        def objective(round):
            act(round)
            for i, (label, score) in enumerate(zip(self.y, scores)):
                gradients[i], seconds[i] = label - score, 1.0

        training.objective(objective, scores, gradients, seconds if hessians else None)
        return training


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
        self.assertEqual([entry[:3] for entry in seen[-12:]],
                         [(i, 12, [i, i]) for i in range(1, 13)])
        scores = scores_of(model, self.table)
        record = {metric: (name, values[-1]) for name, metric, values in training.record()}
        self.assertEqual(record['largest'],
                         ('train', max(abs(a - b) for a, b in zip(self.y, scores))))
        self.assertEqual(scores_of(seen[-1][3], self.table), scores)
        self.assertEqual(model.score(self.rows[7]), scores[7])
        self.assertEqual((training.best_round, training.stopped_early), (0, False))
        self.assertEqual(model.describe('setting')[3], 'numTree=12')

    def test_stop_and_keep(self):
        training = self.training(numTree=100)
        training.on_progress(lambda done, total: done == 5)
        self.assertEqual(training.run(_core.Model).num_groups, 5)

    def test_early_stop(self):
        training = self.training(numTree=300, earlyStop=3, valShrink=1)
        training.evaluate('other', self.table, doubles([1.0, 2.0]) * (self.n // 2), None)
        training.stop_rule('other', 'rmse')
        model = training.run(_core.Model)
        self.assertTrue(training.stopped_early)
        self.assertEqual(model.num_groups, training.best_round)

    def test_objective(self):
        plain = scores_of(self.training().run(_core.Model), self.table)
        for threads in (1, 3):
            for hessians in (False, True):
                training = self.with_objective(hessians, numThread=threads)
                scores = scores_of(training.run(_core.Model), self.table)
                if not hessians:
                    self.assertEqual(scores, plain)
                for one, other in zip(scores, plain):
                    self.assertAlmostEqual(one, other, 6)
        started = self.with_objective(numTree=1, numBound=self.n)  # a tree of one leaf
        started.start(1e6)
        self.assertGreater(started.run(_core.Model).score(self.rows[0]), 9e5)

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
            for call in (training.record, lambda: training.snapshot(_core.Model)):
                try:
                    call()
                except RuntimeError as fault:
                    faults.append(str(fault))

        def progress(done, total):
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
        self.assertEqual(len(faults), 12 + 12 + 2 + 2 * len(metric_calls))
        del faults[:]
        attempt()
        self.assertEqual(len(faults), 12)
        with self.assertRaisesRegex(RuntimeError, 'progress function'):
            training.snapshot(_core.Model)
        training.record()

    def test_faults(self):
        def objective(*arguments):
            return lambda: self.training().objective(*arguments)

        def short():
            training = self.training()
            few = [doubles([0]) for _ in range(2)]
            training.objective(print, *few, None)
            training.run(_core.Model)

        def run(**settings):
            return lambda: self.training(**settings).run(_core.Model)

        y, long = self.y, doubles([0]) * (self.n + 1)
        for fault, text, call in (
                (TypeError, 'no arguments', lambda: _core.Training(1)),
                (TypeError, '', lambda: _core.Dataset(self.rows)),
                (TypeError, 'keyword', lambda: _core.Dataset(table=self.table)),
                (TrainingError, 'no parameter "x"', lambda: self.training(x=1)),
                (TrainingError, 'numTree: "x"', lambda: self.training(numTree='x')),
                (TrainingError, 'numTree', run(numTree=-1)),
                (TrainingError, 'fileTrain', lambda: self.training(fileTrain='x')),
                (ValueError, 'null', lambda: self.training(numTree='1\0')),
                (TypeError, '', lambda: self.training().set('numTree', 3)),
                (TrainingError, 'no data', lambda: _core.Training().run(_core.Model)),
                (TrainingError, 'modelType', run(modelType='')),
                (TrainingError, 'query', run(modelType='GBRank')),
                (TrainingError, 'labels', lambda: self.training(long)),
                (TrainingError, 'row 1 ', lambda: self.training(doubles([0, NAN]) * (self.n // 2))),
                (TypeError, 'labels: the items are float32, expected float64',
                 lambda: self.training(array.array('f', y))),
                (TypeError, 'labels: an array', lambda: self.training(list(y))),
                (TypeError, 'queries: the items', lambda: _core.Training().data(
                    self.dataset, y, y)),
                (TrainingError, 'not together', lambda: _core.Training().data(
                    self.dataset, y, array.array('i', [0, 1]) * (self.n // 2))),
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
        for name in ('nonsense', ''):
            training = self.training()
            training.evaluate('train', self.table, y, None)
            with self.assertRaises(TrainingError, msg=name):
                training.metric(name)
                training.run(_core.Model)
        infinite = _core.Training()
        infinite.set('modelType', 'GBDT')
        with self.assertRaisesRegex(ValueError, '(?i)row 1.*column 0'):
            infinite.data(_core.Dataset(dense([[1.0], [INFINITY]])), doubles([1, 2]), None)
            infinite.run(_core.Model)

    @unittest.skipUnless(hasattr(signal, 'raise_signal'), 'needs signals')
    def test_interrupt(self):
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
        for run in (False, True):
            training = self.training()

            def progress(done, total):
                return len(training.record()) < 0

            training.on_progress(progress)
            training.on_message(lambda stream, text: training)
            if run:
                training.run(_core.Model)
            alive = weakref.ref(progress)
            del training, progress
            gc.collect()
            self.assertIsNone(alive())


class StressTest(TrainingCase):
    """Threads, and many calls."""

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

        sys.setswitchinterval(1e-5)
        self.addCleanup(sys.setswitchinterval, 0.005)
        threads = [threading.Thread(target=work, args=(i,)) for i in range(16)]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join()
        self.assertEqual(faults, [])

    def test_changes_need_exclusive_access(self):
        model = self.training(numTree=300).run(_core.Model)
        big = memoryview(bytearray(8 * 4 * 200000)).cast('d', (200000, 4))
        table = _core.Table.from_dense(big, None, False)
        out = doubles([0]) * 200000
        thread = threading.Thread(target=model.score_table, args=(table, out, 1))
        thread.start()
        refused = 0
        while thread.is_alive():
            try:
                model.set_description('missing', ['nan'])
            except RuntimeError:
                refused += 1
        thread.join()
        self.assertGreater(refused, 0)
        model.cut(3)
        self.assertEqual(model.num_groups, 3)

    def test_the_interpreter_ends_during_a_run(self):
        code = ('import test_core, threading, time\n'
                'test_core.TrainingCase.setUpClass()\n'
                'training = test_core.TrainingCase().training(numTree=10000000)\n'
                'training.on_progress(lambda done, total: False)\n'
                'threading.Thread(target=training.run, args=(test_core._core.Model,),'
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


def memory():
    """Bytes that the process has in memory."""
    with open('/proc/self/statm') as file:
        return int(file.read().split()[1]) * os.sysconf('SC_PAGE_SIZE')


def references():
    return getattr(sys, 'gettotalrefcount', int)()


if __name__ == '__main__':
    unittest.main()
