"""What the tests of the extension module share. They need no NumPy."""
import array
import math
import os
import random
import struct
import sys
import unittest

from sylvora import _core
from models import expected_scores, model_text

NAN, INFINITY = math.nan, math.inf
MISSING = -2147483648.0
TREE = (0, 1.5, (1, 2.5, 1.0, (2, 0.5, 2.0, 4.0)), (2, 3.5, 8.0, (1, -0.5, 16.0, 32.0)))
MODEL = (0, [(0.1, [TREE]), (0.7, [(1, 4.5, 0.25, (0, -3.0, 0.5, 0.75))]), (1.0, [0.125])])
ROWS = [[draw.randrange(6) for _ in range(3)] for draw in [random.Random(3)] for _ in range(21)]


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


def memory():
    """Bytes that the process has in memory."""
    with open('/proc/self/statm') as file:
        return int(file.read().split()[1]) * os.sysconf('SC_PAGE_SIZE')


def references():
    """All references, if a debug interpreter counts also those of the module."""
    return 0 if 'abi3' in _core.__file__ else getattr(sys, 'gettotalrefcount', int)()


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

    def with_objective(self, act=lambda round: None, **settings):
        """A training whose objective is the squared error."""
        training = self.training(**settings)
        scores, gradients = (doubles([NAN]) * self.n for _ in range(2))

        def objective(round):
            act(round)
            for i, (label, score) in enumerate(zip(self.y, scores)):
                gradients[i] = label - score

        training.objective(objective, scores, gradients, None)
        return training
