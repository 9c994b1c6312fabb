"""Models of sylvora._core: scores, descriptions, files; and its functions of losses."""
import array
import math
import os
import random
import tempfile
import unittest

from sylvora import _core
from sylvora._core import ModelError, error
from core_cases import (INFINITY, MODEL, NAN, ROWS, dense, doubles, expected, grid, small_model)
from models import model_text


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
        model.set_description('missing', [])
        self.assertEqual(model.score([1.0, None, 2.0]), expected([[1.0, None, 2.0]])[0])
        model.set_description('setting', ['numTree=2'])
        for row in ([1.0, None, 2.0], doubles([1.0, NAN, 2.0])):
            with self.assertRaisesRegex(ValueError, 'row: column 1 is missing'):
                model.score(row)
        model.set_description('missing', ['nan'])
        self.assertEqual(model.score([1.0, None, 2.0]), expected([[1.0, None, 2.0]])[0])

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
        model, rows = small_model(), ROWS
        table, n = dense(rows), len(rows)
        for first in range(model.num_groups + 1):
            out = doubles([0]) * n
            model.add_groups(table, 0, first, out, 1)
            model.add_groups(table, first, model.num_groups, out, 2)
            self.assertEqual(out.tolist(), expected(rows))
        leaves = memoryview(bytearray(4 * n * 3)).cast('i', (n, 3))
        model.leaves(table, leaves, 0)
        self.assertEqual([model.tree(t)[1] for t in range(3)], [0, 1, 2])
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
                (ValueError, 'columns', lambda: small_model(4).score_table(
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
