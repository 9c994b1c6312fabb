# -*- coding: utf-8 -*-
"""Pictures: what they say, that it can be read, and errors.

The pictures of hand-made models need no training. Skipped where a package is missing.
"""
import itertools
import unittest

from pictures import LONG, NAN, Estimator, Model, Pictures, Tree, drawn_texts, plot

if plot:
    import numpy as np
    from matplotlib import pyplot

    import sylvora

try:
    import graphviz
except ImportError:
    graphviz = None


class Importance(Pictures):
    def test_the_largest_is_on_top_and_the_others_are_counted(self):
        names = ['f%d' % i for i in range(30)]
        axes = plot.importance(Model(names, range(30)), top=3)
        labels = [label.get_text() for label in axes.get_yticklabels()]
        self.assertEqual(labels, ['f29', 'f28', 'f27', '27 further features'])
        texts = [text.get_text() for text in axes.texts]
        self.assertEqual(texts, ['6.7 %', '6.4 %', '6.2 %', '80.7 % together'])
        self.assertEqual(axes.get_xlabel(), 'gain: total improvement by the splits, share in %')
        self.assertGreater(axes.get_ylim()[0], axes.get_ylim()[1])

    def test_sources(self):
        classes = Estimator(model_=[Model(['a', 'b'], [1, 1]), Model(['a', 'b'], [6, 0])])
        for source, options, expected in [
            (classes, {}, ['87.5 %', '12.5 %']),
            (classes, {'normalise': False}, ['7', '1']),
            ({'a': 0.25, 'b': -0.5}, {'normalise': False}, ['0.25', '-0.5']),
            ([1999.5, 123456.0], {'normalise': False}, ['123456', '1999.5']),
            ([0.0, 0.0], {}, ['0.0 %', '0.0 %']),
            ([1e-9, 1.0], {}, ['100.0 %', '< 0.1 %']),
        ]:
            axes = plot.importance(source, **options)
            self.assertEqual([text.get_text() for text in axes.texts], expected)
        votes = Model(['a'], [3])
        votes.n_classes = 2
        self.assertIn('cover', plot.importance(votes).get_xlabel())

    def test_any_names_and_numbers_of_features_can_be_read(self):
        wide = ['W' * 80, '$a$ and $b', '_private', 'two\nlines', 'x']
        for names, options in [(wide, {}), (['only'], {}), (LONG * 30, {'top': None}),
                               (['f%d' % i for i in range(500)], {}), (LONG * 10, {'top': 1})]:
            axes = plot.importance(Model(names, np.arange(len(names)) ** 2.0), **options)
            self.assert_readable(axes)
        labels = [label.get_text() for label in axes.get_yticklabels()]
        self.assertEqual(labels[1], '19 further features')

    def test_alike_names_are_told_apart(self):
        axes = plot.importance(Model(LONG + ['$a$ and $b'] * 2, [4, 3, 2, 1]))
        first, second, third, fourth = (label.get_text() for label in axes.get_yticklabels())
        self.assertIn('_1_', first)
        self.assertIn('_30_', second)
        self.assertEqual([third, fourth], ['\\$a\\$ and \\$b [2]', '\\$a\\$ and \\$b [3]'])
        for text, box in drawn_texts(axes):
            self.assertTrue('.0 %' not in text or box.x1 <= axes.bbox.x1, text)

    def test_errors(self):
        self.assert_refused("kind='split'", plot.importance, Model(importance=None))
        self.assert_refused("got 'weight'", plot.importance, Model(['a'], [1]),
                            kind='weight')
        self.assert_refused('call fit first', plot.importance, Estimator())
        self.assert_refused('finite', plot.importance, [1.0, NAN])
        self.assert_refused('at least 1', plot.importance, [1.0], top=0)
        plot.importance(Model(importance=None), kind='split')


class LearningCurve(Pictures):
    RESULT = {name: {metric: [0.9 - 0.016 * i + shift for i in range(51)]
                     for metric in ('logloss', 'auc')}
              for name, shift in [('train', 0), ('valid', 0.1), (LONG[0], 0.2)]}

    def test_panels_and_best_rounds(self):
        axes = plot.learning_curve(self.RESULT)
        self.assertEqual([each.get_ylabel().replace('\n', ' ') for each in axes],
                         ['logloss (lower is better)', 'auc (higher is better)'])
        self.assertRegex(axes[0].texts[0].get_text(), '^best round 51: average.* 0.3$')
        self.assertRegex(axes[1].texts[0].get_text(), '^best round 1: average.* 1.1$')
        self.assert_readable(axes[0])
        fitted = Estimator(model_=None, evals_result_=self.RESULT, best_iteration_=7)
        one = plot.learning_curve(fitted, metrics=['auc'])
        self.assertEqual(one.texts[0].get_text().split(':')[0], 'round 7')
        self.assertEqual(list(one.lines[-1].get_xdata()), [7, 7])

    def test_gaps_and_short_records(self):
        values = [NAN, 0.5, NAN, 0.4, 0.3, 0.6]
        axes = plot.learning_curve({'valid': {'mae': values}, 'none': {'mae': [NAN] * 6}})
        self.assertEqual(axes.lines[0].get_markevery(), [1])
        self.assertEqual(len(axes.texts), 0)
        labels = [text.get_text() for text in axes.get_legend().get_texts()]
        self.assertEqual(labels, ['valid', 'none (no values)'])
        one = plot.learning_curve({'valid': {'mine': [3.0]}}, larger_is_better=['mine'])
        self.assertEqual(one.lines[0].get_markevery(), [0])
        self.assertEqual(one.get_ylabel(), 'mine (higher is better)')
        for axes in (axes, one):
            self.assert_readable(axes)

    def test_given_axes_are_used(self):
        figure, grid = pyplot.subplots(2, 2, layout='constrained')
        self.assertEqual(plot.learning_curve(self.RESULT, ax=grid[0]), list(grid[0]))
        self.assertIs(plot.learning_curve({'v': {'mae': [2, 1]}}, ax=grid[1, 0]), grid[1, 0])
        self.assertIs(plot.importance({'a': 1.0}, ax=grid[1, 1]), grid[1, 1])
        self.assertEqual(len(pyplot.get_fignums()), 1)

    def test_errors(self):
        unmeasured = Estimator(model_=None, evals_result_={})
        per_class = Estimator(model_=[], evals_result_=[self.RESULT])
        for text, source, options in [
            ('pass eval_set', unmeasured, {}), ('pass eval_set', {'v': {'mae': []}}, {}),
            ('each class', per_class, {}), ('call fit first', Estimator(), {}),
            ("'rmse' was not recorded; metrics are: logloss, auc", self.RESULT,
             {'metrics': ['rmse']}),
            ('metrics is empty', self.RESULT, {'metrics': []}),
        ]:
            self.assert_refused(text, plot.learning_curve, source, **options)
        with self.assertRaisesRegex(ValueError, 'must be 2 axes.*got 1'):
            plot.learning_curve(self.RESULT, ax=pyplot.gca())


class StagedError(Pictures):
    def setUp(self):
        super(StagedError, self).setUp()
        self.X = np.zeros((4, 1))

    def values(self, *arguments, **options):
        return list(plot.staged_error(*arguments, **options).lines[0].get_ydata())

    def test_metrics(self):
        model, y = Model(scores=[0.0, 1.0, 2.0]), np.array([1.0, 1.0, 3.0, 3.0])
        self.assertEqual(self.values(model, self.X, y, metric='mae'), [2, 1, 1])
        self.assertEqual(self.values(model, self.X, y)[1:], [2 ** 0.5, 1])
        self.assertEqual(self.values(model, self.X, y - 2, metric='error'), [0.5, 0.5, 0.5])
        self.assertEqual(self.values(model, self.X, y, metric=lambda y, s: y.sum() - s.sum()),
                         [8, 4, 0])

    def test_classes(self):
        links = [Model(scores=scores, loss='LogLoss')
                 for scores in ([0.0, 9.0], [0.0], [0.0, -9.0, 20.0])]
        binary = Estimator(model_=links[0], classes_=np.array(['no', 'yes']))
        several = Estimator(model_=links, classes_=np.array(['a', 'b', 'c']))
        labels = ['yes', 'no', 'yes', 'yes']
        self.assertEqual(self.values(binary, self.X, labels, metric='error'), [0.75, 0.25])
        self.assertAlmostEqual(self.values(binary, self.X, labels)[0], np.log(2))
        self.assertEqual(self.values(several, self.X, list('aaac'), metric='error'),
                         [0.25, 0.25, 0.75])
        self.assertAlmostEqual(self.values(several, self.X, list('abcc'))[0], np.log(3))
        self.assert_refused_labels(binary)

    def assert_refused_labels(self, model):
        with self.assertRaisesRegex(ValueError, "'maybe'"):
            plot.staged_error(model, self.X, ['no', 'yes', 'maybe', 'no'])

    def test_sets_and_errors(self):
        model, y = Model(scores=np.linspace(3, 1, 20)), np.zeros(4)
        axes = plot.staged_error(model, self.X, y, sets={'more': (self.X, y + 2)})
        labels = [text.get_text() for text in axes.get_legend().get_texts()]
        self.assertEqual(labels, ['X, y', 'more'])
        self.assert_readable(axes)
        pyplot.close('all')
        self.assert_refused('pass X and y', plot.staged_error, model)
        self.assert_refused('Square has none', plot.staged_error, model, self.X, y,
                            metric='logloss')
        self.assert_refused('one of rmse.*r2', plot.staged_error, model, self.X, y, metric='r2')
        self.assert_refused('4 rows, y has 3', plot.staged_error, model, self.X, y[1:])


class Calibration(Pictures):
    def test_points_and_error(self):
        probabilities = [0.1, 0.2, 0.3, 0.8, 0.9, 1.0]
        axes = plot.calibration(probabilities, y=[0, 0, 1, 1, 1, 1], bins=2)
        points = axes.lines[1]
        np.testing.assert_allclose(points.get_xdata(), [0.2, 0.9])
        np.testing.assert_allclose(points.get_ydata(), [1 / 3.0, 1])
        self.assertEqual(axes.get_legend().get_texts()[1].get_text(), 'ECE 0.117')
        edge = plot.calibration([0, 0.5, 1], y=[0, 0, 1], bins=2, strategy='uniform')
        np.testing.assert_allclose(edge.lines[1].get_xdata(), [0, 0.75])
        small = plot.calibration([0.01, 0.03] * 200, y=[0, 1] + [0] * 398)
        self.assertLess(small.get_xlim()[1], 0.05)
        intervals = small.collections[0].get_paths()
        self.assertLess(max(path.vertices[:, 1].max() for path in intervals), small.get_ylim()[1])

    def test_all_rows_count_in_every_strategy(self):
        random = np.random.RandomState(5)
        for scale in (1.0, 0.04):
            for strategy, bins in itertools.product(('uniform', 'quantile'), (1, 2, 10, 50)):
                p = np.round(random.rand(400) * scale, 2)
                y = random.rand(400) < p
                axes = plot.calibration({'one': p, LONG[0]: 1 - p if scale == 1 else p / 2}, None,
                                        y, bins=bins, strategy=strategy)
                self.assertLessEqual(len(axes.lines[1].get_xdata()), bins)
                self.assert_readable(axes)
                pyplot.close('all')

    def test_the_second_class_of_an_estimator_counts(self):
        model = Estimator(classes_=np.array(['no', 'yes']),
                          predict_proba=lambda X: np.column_stack([1 - X[:, 0], X[:, 0]]))
        axes = plot.calibration(model, np.array([[0.0], [1.0]]), ['no', 'yes'], bins=2)
        self.assertEqual(axes.get_legend().get_texts()[1].get_text(), 'ECE 0.000')

    def test_errors(self):
        three = Estimator(predict_proba=lambda X: np.zeros((2, 3)))
        for text, arguments in [
            ('from 0 to 1', ([0.5, 1.5], None, [0, 1])), ('from 0 to 1', ([NAN], None, [0])),
            ('1 labels for 2', ([0.5, 0.5], None, [1])), ('no labels', ([], None, [])),
            ('more than two labels', ([0.5] * 3, None, [0, 1, 2])), ('y is needed', ([0.5],)),
            ('more than two classes', (three, [[0], [0]], [0, 1])),
            ('no probabilities', (Estimator(), [[0]], [0])), ('X is needed', (three, None, [0])),
        ]:
            self.assert_refused(text, plot.calibration, *arguments)


@unittest.skipUnless(graphviz, 'needs graphviz')
class Trees(Pictures):
    ROOT = (0, 2012.5, (1, -3e9, 1.0, (2, -0.25, -4.0, 2.0, 0.5), 1.25), 8.0, 1.5)

    def test_nodes_and_edges(self):
        source = plot.tree(Model(['year', '<b>"\\N', LONG[0]], trees=Tree(self.ROOT)), -1).source
        for text in ['year ≤ 2012.5\n100 rows\noutput 1.5',
                     '≤ -3e+09\nmissing: no', '≤ -0.25\n96 rows',
                     'output -4\nadds -2', 'output 8\nadds +4', 'tree 8 of 9',
                     'missing values go left', 'adds 0.5 × output', LONG[0]]:
            self.assertIn(text, source)
        for edge in ['0 -> 1 [label=" yes"]', '0 -> 2 [label=" no"]']:
            self.assertIn(edge, source)

    def test_dot_takes_it(self):
        names = ['<b>', 'a\\', 'say "x"\\N\n{}|']
        for tree in (Tree(self.ROOT), Tree(0.5), Tree(self.ROOT, cover=False)):
            graph = plot.tree(Model(names, trees=tree))
            try:
                drawing = graph.pipe(format='svg').decode()
            except graphviz.ExecutableNotFound:
                self.skipTest('needs the program dot')
            self.assertEqual(drawing.count('class="node"'), len(tree.left))
        self.assertIn('say &quot;x&quot;\\N', drawing)

    def test_classes_and_forests(self):
        model = Model(['a', 'b', 'c'], trees=Tree((0, 1.0, 0.0, 1.0, 0.0), shrink=1.0, cover=False))
        model.n_classes, model.classes = 2, ['no', 'yes']
        source = plot.tree(model).source
        self.assertIn('class yes', source)
        self.assertNotRegex(source, '[0-9] rows?')
        model.n_classes, model.n_groups = 0, 1
        self.assertIn('mean over the trees', plot.tree(model).source)
        model.missing = None
        self.assertNotIn('missing', plot.tree(model).source)

    def test_deep_trees_are_cut(self):
        root = 0.0
        for depth in range(3000):
            root = (depth % 3, depth + 0.5, float(depth), root, 0.0)
        model = Model(trees=Tree(root))
        self.assertEqual(plot.tree(model).source.count('->'), 6000)
        source = plot.tree(model, max_depth=4).source
        self.assertEqual(source.count('->'), 10)
        self.assertEqual(source.count('… 5991 nodes'), 1)
        self.assertEqual(source.count('dashed'), 1)
        self.assertEqual(source.count('adds +'), 5)  # leaves, of which one is below the cut
        self.assertEqual(dir(plot), sorted(plot.__all__))

    def test_errors(self):
        model = Model(trees=Tree(1.0))
        for text, source, options in [
            ('There is no tree 9: the model has 9', model, {'index': 9}),
            ('max_depth', model, {'max_depth': -1}), ('precision', model, {'precision': 0}),
            ('must have 3 names, got 2', model, {'feature_names': ['a', 'b']}),
            ('a model for each of 2 classes', Estimator(model_=[model, model]), {}),
            ('has no trees', 1.0, {}), ('call fit first', Estimator(), {}),
        ]:
            self.assert_refused(text, plot.tree, source, **options)

    def test_a_missing_package_is_named(self):
        from unittest import mock
        for package, function, source in [('graphviz', plot.tree, Model(trees=Tree(1.0))),
                                          ('matplotlib', plot.importance, {'a': 1.0})]:
            with mock.patch.dict('sys.modules', {package: None, package + '.pyplot': None}):
                with self.assertRaisesRegex(ImportError, 'pip install ' + package):
                    function(source)


@unittest.skipUnless(graphviz, 'needs graphviz')
class Trained(Pictures):
    """Pictures of trained models."""

    def setUp(self):
        super(Trained, self).setUp()
        random = np.random.RandomState(7)
        self.X = random.rand(300, 4)
        self.X[random.rand(300) < 0.1, 1] = NAN
        self.y = (self.X[:, 0] + 0.3 * random.rand(300) > 0.6).astype(float)

    def test_models(self):
        for loss, metric in [('log_loss', 'logloss'), ('logistic', 'logloss'),
                             ('squared_error', 'rmse'), ('absolute_error', 'mae')]:
            y = 2 * self.y - 1 if loss == 'logistic' else self.y
            model = sylvora.train({'loss': loss, 'n_estimators': 30}, self.X, y,
                                  eval_set={'same': (self.X, y)}, eval_metric=metric)
            staged = plot.staged_error(model, self.X, y, metric=metric)
            recorded = plot.learning_curve(model)
            np.testing.assert_allclose(staged.lines[0].get_ydata(),
                                       recorded.lines[0].get_ydata(), rtol=1e-12)
            self.assertEqual(staged.texts[0].get_text(), recorded.texts[0].get_text())
            bars = plot.importance(model, kind='split', normalise=False).patches
            splits = sum((tree.left >= 0).sum() for tree in model.trees())
            self.assertEqual(sum(bar.get_width() for bar in bars), splits)
            nodes = plot.tree(model, -1).source.count('tooltip')
            self.assertEqual(nodes, len(model.tree(model.n_trees - 1).left))
        self.assertIn('the start value', plot.tree(model).source)
        plain = sylvora.Model.from_bytes(model.to_bytes(description=False))
        pyplot.close('all')
        self.assert_refused("'split'", plot.importance, plain)

    def test_estimators(self):
        try:
            from sylvora import SylvoraClassifier, SylvoraForestClassifier
        except ImportError:
            self.skipTest('needs scikit-learn')
        names = np.array(['no', 'yes', 'maybe'])
        several = names[self.y.astype(int) + (self.X[:, 3] > 0.8)]
        boosted = SylvoraClassifier(n_estimators=20).fit(self.X, several)
        bars = plot.importance(boosted).patches
        np.testing.assert_allclose(sorted(bar.get_width() for bar in bars),
                                   sorted(100 * boosted.feature_importances_))
        errors = plot.staged_error(boosted, self.X, several, metric='error').lines[0].get_ydata()
        self.assertAlmostEqual(errors[-1], 1 - boosted.score(self.X, several))
        forest = SylvoraForestClassifier(n_estimators=9).fit(self.X, names[self.y.astype(int)])
        self.assertIn('class yes', plot.tree(forest, 3).source)
        self.assertIn('cover', plot.importance(forest).get_xlabel())
        plot.calibration(forest, self.X, names[self.y.astype(int)])
