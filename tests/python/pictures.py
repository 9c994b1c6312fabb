"""What the tests of pictures share: hand-made models, and what a reader of a picture sees."""
import itertools
import unittest

try:
    import matplotlib
    import numpy as np
    matplotlib.use('Agg')
    from matplotlib import pyplot
    from sylvora import plot
except (ImportError, SyntaxError):  # SyntaxError: an interpreter that has the older module only
    plot = None

NAN = float('nan')
LONG = ['average_number_of_payments_in_the_last_%d_days_per_customer' % days for days in (1, 30)]


class Tree(object):
    """A hand-made tree: (column, threshold, left, right, output) or an output; covers from 100."""

    def __init__(self, root, shrink=0.5, cover=True):
        self.group, self.shrink, rows = 0, shrink, []
        waiting = [(root, -1, '')]
        while waiting:
            node, parent, side = waiting.pop(0)
            if parent >= 0:
                rows[parent][side] = len(rows)
            split = node if isinstance(node, tuple) else (-1, 0.0, None, None, node)
            rows.append({'column': split[0], 'threshold': split[1], 'output': split[4],
                         'left': -1, 'right': -1, 'cover': 100 - len(rows) if cover else -1})
            if isinstance(node, tuple):
                place = len(rows) - 1
                waiting += [(node[2], place, 'left'), (node[3], place, 'right')]
        for name in rows[0]:
            setattr(self, name, np.array([row[name] for row in rows]))


class Model(object):
    """As much of a model as a picture asks for."""

    n_classes, n_groups, n_trees, missing, classes = 0, 9, 9, NAN, None

    def __init__(self, names=None, importance=(), trees=None, scores=(), loss='Square'):
        self.feature_names, self.n_features = names, len(names or importance or 'abc')
        self.importance, self.tree_of, self.scores, self.loss = importance, trees, scores, loss

    def feature_importance(self, kind):
        if self.importance is None and kind != 'split':
            raise ValueError('there are no row counts')
        return np.array(self.importance if self.importance is not None else [2, 1, 0])

    def tree(self, index):
        return self.tree_of

    def staged_predict(self, X):
        return (np.full(len(X), score) for score in self.scores)


class Estimator(object):
    def __init__(self, **attributes):
        self.__dict__.update(attributes)

    def fit(self):
        pass


def drawn_texts(axes):
    """The texts that the axes show, with their boxes in pixels."""
    renderer = axes.figure.canvas.get_renderer()
    axes.figure.draw(renderer)
    texts = list(axes.texts) + [axes.title, axes.xaxis.label, axes.yaxis.label]
    texts += axes.get_legend().get_texts() if axes.get_legend() else []
    for axis, direction in ((axes.xaxis, 0), (axes.yaxis, 1)):
        low, high = sorted(axis.get_view_interval())
        texts += [label for label in axis.get_ticklabels()
                  if low <= label.get_position()[direction] <= high]
    return [(text.get_text(), text.get_window_extent(renderer)) for text in texts
            if text.get_visible() and text.get_text().strip()]


@unittest.skipUnless(plot, 'needs matplotlib and the package')
class Pictures(unittest.TestCase):
    def setUp(self):
        self.settings = dict(matplotlib.rcParams)
        pyplot.close('all')

    def tearDown(self):
        self.assertEqual(dict(matplotlib.rcParams), self.settings)
        pyplot.close('all')

    def assert_readable(self, axes):
        """All texts are inside the figure, and no two of them overlap."""
        whole = axes.figure.bbox.padded(1)
        texts = drawn_texts(axes)
        for text, box in texts:
            self.assertTrue(whole.contains(*box.p0) and whole.contains(*box.p1), text)
        for (one, box), (two, other) in itertools.combinations(texts, 2):
            apart = (box.x1 <= other.x0 + 1 or other.x1 <= box.x0 + 1
                     or box.y1 <= other.y0 + 1 or other.y1 <= box.y0 + 1)
            self.assertTrue(apart, (one, two))

    def assert_refused(self, text, function, *arguments, **options):
        with self.assertRaisesRegex(ValueError, text):
            function(*arguments, **options)
        self.assertEqual(pyplot.get_fignums(), [])
