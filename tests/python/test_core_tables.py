"""Tables of sylvora._core: buffers, sparse matrices, Arrow. With NumPy, more kinds of memory."""
import array
import ctypes
import gc
import unittest

from sylvora import _core
import arrow_producer
from arrow_producer import ArrowStream, ArrowTable, column
from core_cases import INFINITY, NAN, ROWS, dense, doubles, expected, grid, scores_of, small_model

try:
    import numpy
except ImportError:
    numpy = None


class TableTest(unittest.TestCase):
    rows = ROWS

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
        self.check(_core.Table.from_dense(view[:0], None, False), [])

    @unittest.skipUnless(numpy, 'needs NumPy')
    def test_numpy(self):
        x = numpy.array(self.rows)
        for kind in ('f8', 'f4', 'i8', 'i4', 'i2', 'i1', 'u8', 'u4', 'u2', 'u1', '=f8', '<i4'):
            for layout in (numpy.ascontiguousarray, numpy.asfortranarray,
                           lambda a: numpy.repeat(a, 2, 1)[:, ::2],
                           lambda a: a[:, ::-1].copy()[:, ::-1]):
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
        for indices, begins, fault in (([0, 0], [0, 2], 'out of order'),
                                       ([0, 3], [0, 2], 'index 3'),
                                       ([-1, 0], [0, 2], 'index -1'),
                                       ([0, 1], [-2, 2], 'negative'),
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
                (TypeError, 'Table is made by', lambda: _core.Table()),
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
                    (1, 3), memoryview(doubles([1, 2, 3]))[::2], indices,
                    array.array('i', [0, 2]))),
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
    rows = ROWS
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

    def test_select(self):
        rows = [row[::-1] for row in self.rows]
        table = _core.Table.from_arrow(ArrowStream(self.columns('gfi', rows)), None, False)
        reverse = table.select([2, 1, 0])
        self.assertEqual((reverse.names, table.names), (['z', 'y', 'x'], ['x', 'y', 'z']))
        del table
        gc.collect()
        self.check(reverse)
        self.check(reverse.select((2, 1, 0)), rows)
        self.assertEqual(reverse.select([1]).names, ['y'])
        for fault, order in ((IndexError, [3]), (IndexError, [-1]), (IndexError, [2 ** 70]),
                             (TypeError, ['x']), (TypeError, 1)):
            with self.assertRaises(fault):
                reverse.select(order)
        with self.assertRaisesRegex(ValueError, 'by column only'):
            dense(rows).select([0])
        del reverse
        gc.collect()
        self.assertEqual(arrow_producer.LIVE, {})

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

    def test_null_pointers(self):
        def without(parts):
            """A table whose schema or array has null pointers in these places."""
            class Damaged(ArrowTable):
                def __arrow_c_array__(self, requested_schema=None):
                    schema, array = self.schema(), self.array(0, 3)
                    for place in parts:
                        exec(place, {'schema': schema, 'array': array})
                    return arrow_producer.capsule(schema), arrow_producer.capsule(array)

            return Damaged(self.columns())

        for place in ('schema.format = None', 'schema.children[0].contents.format = None',
                      'schema.children = None', 'schema.children[1] = None',
                      'array.children = None', 'array.children[1] = None',
                      'array.children[0].contents.buffers = None'):
            with self.subTest(place), self.assertRaisesRegex(ValueError, 'contradict'):
                _core.Table.from_arrow(without([place]), None, False)
