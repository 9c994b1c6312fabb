"""The estimators: scikit-learn's own checks, and what those do not cover."""

import os
import pickle
import signal
import subprocess
import sys
import tempfile
import threading
import unittest
import warnings

try:
    import numpy as np
    import pandas as pd
    import scipy.sparse
    import sklearn
    from sklearn.base import clone
    from sklearn.calibration import CalibratedClassifierCV
    from sklearn.compose import ColumnTransformer
    from sklearn.ensemble import StackingClassifier, StackingRegressor
    from sklearn.exceptions import DataConversionWarning, NotFittedError
    from sklearn.inspection import partial_dependence, permutation_importance
    from sklearn.linear_model import LinearRegression, LogisticRegression
    from sklearn.model_selection import GridSearchCV, cross_val_score
    from sklearn.pipeline import make_pipeline
    from sklearn.preprocessing import OneHotEncoder, StandardScaler
    from sklearn.utils.estimator_checks import check_estimator
except ImportError as error:
    raise unittest.SkipTest(str(error))

import sylvora
from sylvora import _class_weights, _ndcg
from sylvora.callbacks import Callback, KeepOnInterrupt

ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
REGRESSORS = (
    sylvora.SylvoraRegressor,
    sylvora.SylvoraForestRegressor,
    sylvora.SylvoraTreeRegressor,
)
CLASSIFIERS = (
    sylvora.SylvoraClassifier,
    sylvora.SylvoraForestClassifier,
    sylvora.SylvoraTreeClassifier,
)
RNG = np.random.RandomState(5)
X = RNG.normal(size=(240, 4))
Y = X[:, 0] * 2 + np.sin(3 * X[:, 1]) + RNG.normal(size=240) / 5
TWO = np.where(Y > 0.3, "yes", "no")
THREE = np.array(["b", "c", "a"])[np.digitize(Y, [-1, 1])]
ODDS = dict(n_estimators=12, max_depth=3, learning_rate=0.3)


def read_data(name):
    """Returns labels and columns of a file of data/, the columns of the ids 1, 2, ..."""
    with open(os.path.join(ROOT, "data", name)) as file:
        lines = [line.split() for line in file]
    rows = [dict(map(float, item.split(":")) for item in line[1:]) for line in lines]
    width = int(max(max(row) for row in rows))
    values = [[row.get(column, np.nan) for column in range(1, width + 1)] for row in rows]
    return np.array([float(line[0]) for line in lines]), np.array(values)


def fit(cls, features=X, labels=None, **params):
    few = {"n_estimators": 12} if "Tree" not in cls.__name__ else {}
    if labels is None:
        labels = THREE if cls in CLASSIFIERS else Y
    return cls(**{**few, **params}).fit(features, labels)


def log_loss_objective(y, scores):
    gradient = y - sylvora.expit(scores)
    return gradient, np.abs(gradient) * (1 - np.abs(gradient))


class CommonChecks(unittest.TestCase):
    def test_every_check_of_scikit_learn_passes(self):
        for cls in REGRESSORS + CLASSIFIERS:
            checks = list(check_estimator(cls(), generate_only=True))
            self.assertGreater(len(checks), 35)
            for estimator, check in checks:
                with self.subTest(cls.__name__, check=str(check)), warnings.catch_warnings():
                    warnings.simplefilter("ignore")
                    check(estimator)
            tags = sklearn.utils._tags._safe_tags(cls())
            self.assertFalse(tags["_xfail_checks"] or tags["no_validation"] or tags["poor_score"])


class CommandTest(unittest.TestCase):
    def train(self, lines):
        """Returns the model file that the command makes; its path is in SYLVORA_COMMAND."""
        command = os.environ.get("SYLVORA_COMMAND")
        if command is None:
            self.skipTest("SYLVORA_COMMAND is not set")
        with tempfile.TemporaryDirectory() as folder:
            config = os.path.join(folder, "c.cfg")
            with open(config, "w") as file:
                file.write("\n".join(lines) + "\nfileModel = %s/model\n" % folder)
            subprocess.run([command, config], cwd=ROOT, check=True, capture_output=True)
            with open(os.path.join(folder, "model"), "rb") as file:
                return file.read()

    def test_default_estimators_are_the_commands_models(self):
        labels, values = read_data("wdbc.train.txt")
        types = {"Regressor": "modelType = GBDT", "Classifier": "modelType = GBDT"}
        for kind in ("Forest", "Tree"):
            for task, text in (("Regressor", "REG"), ("Classifier", "CLS")):
                model = {"Forest": "RandomForest", "Tree": "CART"}[kind]
                types[kind + task] = "modelType = %s\nfRegCls = %s" % (model, text)
        types["Classifier"] += "\nlossFunc = LogLoss"
        with tempfile.TemporaryDirectory() as folder:
            zero_one = os.path.join(folder, "map")
            with open(zero_one, "w") as file:
                file.write("-1 0\n1 1\n")
            for name, text in types.items():
                lines = [text, "fileTrain = data/wdbc.train.txt"]
                if name.endswith("Classifier"):
                    lines.append("labelTran = " + zero_one)
                with self.subTest(name):
                    estimator = getattr(sylvora, "Sylvora" + name)().fit(values, labels)
                    text = estimator.model_.to_bytes(digits=6, description=False)
                    self.assertEqual(text, self.train(lines))


class ClassifierTest(unittest.TestCase):
    def test_labels_of_any_kind_and_scores_of_two_classes(self):
        larger = TWO == "yes"
        for loss in ("log_loss", "logistic", "exponential", "squared_hinge"):
            first = fit(sylvora.SylvoraClassifier, labels=TWO, loss=loss)
            for labels in (larger, np.where(larger, 7, -2), pd.Series(TWO, dtype=object)):
                model = fit(sylvora.SylvoraClassifier, labels=labels, loss=loss)
                self.assertEqual(model.model_.classes, [str(label) for label in model.classes_])
                self.assertEqual(model.classes_.dtype, np.unique(labels).dtype)
                np.testing.assert_array_equal(
                    model.decision_function(X), first.decision_function(X)
                )
            scores = first.decision_function(X)
            self.assertEqual(scores.shape, (240,))
            np.testing.assert_array_equal(first.predict(X), np.where(scores > 0, "yes", "no"))
            self.assertEqual(hasattr(first, "predict_proba"), loss != "squared_hinge")
            if loss == "squared_hinge":
                continue
            soft = np.log1p(np.exp(scores)), np.log1p(np.exp(-scores))
            expected = {
                "log_loss": 1 / (1 + np.exp(-scores)),
                "exponential": 1 / (1 + np.exp(-2 * scores)),
                "logistic": soft[0] / (soft[0] + soft[1]),
            }[loss]
            np.testing.assert_allclose(first.predict_proba(X)[:, 1], expected, rtol=1e-12)
            np.testing.assert_allclose(first.predict_proba(X).sum(axis=1), 1, rtol=1e-15)

    def test_more_classes_are_one_against_the_rest_for_any_number_of_threads(self):
        texts = None
        for n_jobs in (1, 2, 3, 8, -1):
            model = fit(sylvora.SylvoraClassifier, n_jobs=n_jobs)
            texts = texts or [one.to_bytes() for one in model.model_]
            self.assertEqual([one.to_bytes() for one in model.model_], texts)
        scores, shares = model.decision_function(X), model.predict_proba(X)
        for k, label in enumerate("abc"):
            single = fit(sylvora.SylvoraClassifier, labels=THREE == label)
            np.testing.assert_array_equal(single.decision_function(X), scores[:, k])
        np.testing.assert_allclose(shares.sum(axis=1), 1)
        expected = 1 / (1 + np.exp(-scores))
        np.testing.assert_allclose(shares, expected / expected.sum(axis=1, keepdims=True))
        np.testing.assert_array_equal(model.predict(X), np.array(list("abc"))[scores.argmax(1)])
        self.assertEqual(model.apply(X).shape, (240, sum(one.n_trees for one in model.model_)))
        for stage in model.staged_predict_proba(X):
            pass
        np.testing.assert_array_equal(stage, shares)
        far = np.full((3, 2), -1000.0)
        np.testing.assert_array_equal(model._probabilities(far), np.full((2, 3), 1 / 3))

    def test_an_error_of_one_class_ends_all(self):
        bad = {"held": (X, THREE)}
        for n_jobs in (1, 3):
            model = sylvora.SylvoraClassifier(n_jobs=n_jobs, eval_metric="nonsense")
            with self.assertRaisesRegex(ValueError, "nonsense"):
                model.fit(X, THREE, eval_set=bad)
        for labels, text in ((["a", "d"], "held.*class 'd' in row 1"), (["a", "c"], "held.*'b'")):
            with self.assertRaisesRegex(ValueError, text):
                sylvora.SylvoraClassifier().fit(X, THREE, eval_set={"held": (X[:2], labels)})
        model = sylvora.SylvoraClassifier(eval_metric="logloss", **ODDS)
        model.fit(X, THREE, eval_set={"held": (X[:2], ["a", "c"])})

    def test_votes(self):
        for cls in CLASSIFIERS[1:]:
            model = fit(cls, labels=THREE)
            shares = model.predict_proba(X)
            np.testing.assert_allclose(shares.sum(axis=1), 1)
            counts = shares.max(axis=1, keepdims=True) == shares
            sure = counts.sum(axis=1) == 1
            np.testing.assert_array_equal(
                model.predict(X)[sure], model.classes_[shares.argmax(axis=1)][sure]
            )
            self.assertTrue((model.predict(X) == THREE).mean() > 0.7)
            self.assertAlmostEqual(model.feature_importances_.sum(), 1)
            self.assertEqual(pickle.loads(pickle.dumps(model)).model_.classes, ["a", "b", "c"])
            self.assertLess(model.feature_importances_[2:].max(), 0.3)
            self.assertEqual(fit(cls, labels=np.full(240, "x")).predict(X)[0], "x")


class WeightTest(unittest.TestCase):
    def test_weights_of_classes(self):
        codes = np.array([0] * 6 + [1] * 3 + [2])
        for given, expected in (
            ({"a": 2, "c": 5}, [2, 1, 5]),
            ({"b": 7.0}, [1, 7, 1]),
            ("balanced", [1, 2, 6]),
        ):
            weights = _class_weights.combine(given, list("abc"), codes, None)
            np.testing.assert_array_equal(weights, np.array(expected)[codes])
        for given, error, text in (
            ({"a": 2.5, "b": 1}, ValueError, "'a'. must be a whole number above 0, got 2.5"),
            ({"a": 1, "d": 1}, ValueError, "'d', which is not in y"),
            ({"a": 0}, ValueError, "above 0"),
            ({"a": "1"}, TypeError, "must be a number"),
            ({"a": 2**31}, ValueError, "2\\*\\*31"),
            ([1, 2, 3], TypeError, "class_weight must be"),
        ):
            with self.assertRaisesRegex(error, text):
                _class_weights.combine(given, list("abc"), codes, None)

    def test_balanced_weights_of_many_rows_are_the_nearest_whole_ones(self):
        codes = np.repeat([0, 1], [60_013, 59_999])
        weights = _class_weights.combine("balanced", [0, 1], codes, None)
        self.assertLessEqual(weights.sum(dtype=np.int64), 2**31 - 1)
        totals = np.bincount(codes, weights=weights)
        self.assertLess(abs(totals[0] / totals[1] - 1), 1e-4)

    def test_class_weights_multiply_sample_weights(self):
        one = sylvora.SylvoraClassifier(**ODDS)
        two = sylvora.SylvoraClassifier(**ODDS)
        sample_weight = np.arange(240) % 4
        one.fit(X, TWO, sample_weight=sample_weight, class_weight={"yes": 3})
        two.fit(X, TWO, sample_weight=sample_weight * np.where(TWO == "yes", 3, 1))
        np.testing.assert_array_equal(one.decision_function(X), two.decision_function(X))
        plain = fit(type(one), labels=TWO, **ODDS)
        self.assertFalse((one.predict_proba(X) == plain.predict_proba(X)).any())

    def test_weighted_fits_depend_neither_on_the_order_of_rows_nor_on_those_of_weight_0(self):
        features = np.round(X)  # many ties
        features[::7, 1] = np.nan
        weights = np.arange(240) % 4
        shuffled = RNG.permutation(240)
        other = np.where(weights[:, None] > 0, features, 99)
        tables = (
            features[shuffled],
            scipy.sparse.csr_matrix(features)[shuffled],
            scipy.sparse.csc_matrix(features)[shuffled],
            pd.DataFrame(features).iloc[shuffled],
            pd.DataFrame(features).astype("Float64").iloc[shuffled],
            sylvora.Dataset(features[::-1]).subset(239 - shuffled),
            other[shuffled].astype(np.float32),
        )
        for cls in REGRESSORS + CLASSIFIERS:
            labels = TWO if cls in CLASSIFIERS else np.round(Y)
            expected = cls().fit(features, labels, sample_weight=weights).model_.to_bytes()
            for table in tables:
                model = cls().fit(table, labels[shuffled], sample_weight=weights[shuffled])
                self.assertEqual(model.model_.to_bytes(), expected)
            ones = cls().fit(features, labels, sample_weight=np.ones(240)).model_.to_bytes()
            self.assertEqual(cls().fit(features, labels).model_.to_bytes(), ones)

    def test_votes_repeat_rows(self):
        weights = np.arange(240) % 3
        rows = np.repeat(np.lexsort(X.T[::-1]), weights[np.lexsort(X.T[::-1])])
        for cls in CLASSIFIERS[1:]:
            weighted = cls().fit(X, THREE, sample_weight=weights)
            repeated = cls().fit(X[rows], THREE[rows])
            self.assertEqual(weighted.model_.to_bytes(), repeated.model_.to_bytes())
            with self.assertRaisesRegex(ValueError, "smaller weights"):
                cls().fit(X, THREE, sample_weight=np.full(240, 2**24))

    def test_classes_of_weight_0_and_weights_that_are_not_whole(self):
        for cls in CLASSIFIERS:
            model = cls().fit(X, THREE, sample_weight=np.where(THREE == "b", 0, 1))
            self.assertEqual(model.classes_.tolist(), ["a", "c"])
            self.assertEqual(model.predict_proba(X).shape, (240, 2))
        for cls in REGRESSORS + CLASSIFIERS:
            with self.assertRaisesRegex(ValueError, "whole numbers"):
                cls().fit(X, TWO if cls in CLASSIFIERS else Y, sample_weight=np.full(240, 0.5))


class TrainingTest(unittest.TestCase):
    def test_early_stopping_and_what_was_recorded(self):
        model = sylvora.SylvoraRegressor(
            learning_rate=0.5, early_stopping_rounds=5, eval_metric=["mae", "rmse"]
        )
        model.fit(X[:160], Y[:160], eval_set={"held": (X[160:], Y[160:])})
        values = model.evals_result_["held"]["mae"]
        self.assertEqual(len(values), model.best_iteration_ + 5)
        self.assertEqual(model.best_score_, min(values))
        self.assertEqual(model.model_.n_trees, model.best_iteration_)
        error = np.abs(model.predict(X[160:]) - Y[160:]).mean()
        self.assertAlmostEqual(error, model.best_score_, places=12)
        stages = list(model.staged_predict(X))
        self.assertEqual(len(stages), model.best_iteration_)
        np.testing.assert_array_equal(stages[-1], model.predict(X))
        # The same set from a list, for each class on its own.
        classes = sylvora.SylvoraClassifier(learning_rate=0.9, early_stopping_rounds=2, n_jobs=3)
        classes.fit(X[:160], THREE[:160], eval_set=[(X[160:], THREE[160:])])
        for single, best, record in zip(
            classes.model_, classes.best_iteration_, classes.evals_result_
        ):
            self.assertEqual(single.n_rounds, best)
            self.assertEqual(len(record["eval_0"]["logloss"]), best + 2)
        stages = list(classes.staged_predict(X))
        self.assertEqual(len(stages), max(classes.best_iteration_))
        np.testing.assert_array_equal(stages[-1], classes.predict(X))
        plain = fit(sylvora.SylvoraRegressor)
        self.assertEqual((plain.best_iteration_, plain.evals_result_), (None, {}))

    def test_objectives(self):
        plain = sylvora.SylvoraRegressor(**ODDS).fit(X, Y)
        own = sylvora.SylvoraRegressor(objective=lambda y, scores: y - scores, **ODDS).fit(X, Y)
        np.testing.assert_array_equal(own.predict(X), plain.predict(X))
        sets = {"held": (X, THREE)}
        seen = set()

        def objective(y, scores):
            seen.update(y.tolist())
            return log_loss_objective(y, scores)

        model = sylvora.SylvoraClassifier(objective=objective, n_jobs=2, **ODDS)
        model.fit(X, THREE, eval_set=sets)
        self.assertEqual(seen, {0.0, 1.0})
        self.assertEqual(list(model.evals_result_[2]["held"]), ["auc", "accuracy"])
        self.assertFalse(hasattr(model, "predict_proba"))
        self.assertGreater(model.score(X, THREE), 0.9)
        starts = sylvora.log_odds((TWO == "yes").astype(float))
        model = sylvora.SylvoraClassifier(objective=objective, base_score=starts, **ODDS)
        log_loss = sylvora.SylvoraClassifier(**ODDS).fit(X, TWO)
        np.testing.assert_array_equal(
            model.fit(X, TWO).decision_function(X), log_loss.decision_function(X)
        )

    def test_a_fit_that_fails_leaves_the_estimator_as_it_was(self):
        class Failing(Callback):
            def after_round(self, round):
                raise KeyError("round 1")

        frame = pd.DataFrame(X, columns=list("pqrs"))
        for cls, labels in ((sylvora.SylvoraRegressor, Y), (sylvora.SylvoraClassifier, THREE)):
            model = cls(callbacks=[Failing()])
            with self.assertRaisesRegex(KeyError, "round 1"):
                model.fit(X, labels)
            self.assertEqual([name for name in vars(model) if name.endswith("_")], [])
            with self.assertRaises(NotFittedError):
                model.predict(X)
            model.set_params(callbacks=None, **ODDS).fit(frame, labels)
            before = dict(vars(model))
            model.set_params(callbacks=[Failing()])
            with self.assertRaises(KeyError):
                model.fit(X[:, :2], labels)
            self.assertEqual(list(model.feature_names_in_), list("pqrs"))
            self.assertIs(model.model_, before["model_"])
            model.set_params(callbacks=None).fit(X[:, :2], labels)
            self.assertFalse(hasattr(model, "feature_names_in_"))

    def test_ctrl_c(self):
        class Press(Callback):
            def after_round(self, round):
                if round.round == 3:
                    os.kill(os.getpid(), signal.SIGINT)

        model = sylvora.SylvoraRegressor(callbacks=[Press()])
        with self.assertRaises(KeyboardInterrupt):
            model.fit(X, Y)
        self.assertFalse(hasattr(model, "model_"))
        model.set_params(callbacks=[KeepOnInterrupt(), Press()]).fit(X, Y)
        self.assertIn(model.model_.n_trees, (3, 4))
        # Trainings of several classes in threads end, too, instead of running out.
        slow = sylvora.SylvoraClassifier(n_estimators=10**6, n_jobs=2)
        timer = threading.Timer(0.5, os.kill, (os.getpid(), signal.SIGINT))
        timer.start()
        with self.assertRaises(KeyboardInterrupt):
            slow.fit(X, THREE)
        self.assertFalse(hasattr(slow, "model_"))

    def test_a_data_set_may_be_coded_beforehand(self):
        data = sylvora.Dataset(np.where(X > 1, -999, X), missing=-999, feature_names=list("pqrs"))
        holed = np.where(X > 1, np.nan, X)
        for cls in REGRESSORS + CLASSIFIERS:
            model = fit(cls, data)
            np.testing.assert_array_equal(model.predict(holed), fit(cls, holed).predict(holed))
            np.testing.assert_array_equal(
                model.predict(np.where(X > 1, -999, X)), model.predict(holed)
            )
            self.assertEqual(list(model.feature_names_in_), list("pqrs"))

    def test_wrong_parameters_are_named(self):
        for name, value, text in (
            ("loss", "square", "loss must be one of 'squared_error'.*got 'square'"),
            ("n_estimators", 0, "n_estimators must be at least 1, got 0"),
            ("n_estimators", 2.5, "n_estimators must be an integer, got 2.5"),
            ("max_depth", None, "max_depth must be .*None"),
            ("min_samples_split", 1, "min_samples_split.* 2"),
            ("subsample", 1.5, "subsample must be .*1.5"),
            ("max_features", "sqrt", "max_features must be .*'sqrt'"),
            ("quantile", 1.0, "quantile"),
            ("missing", np.inf, "missing must"),
            ("n_jobs", 0, "n_jobs must be from 1"),
            ("random_state", -1, "random_state"),
            ("random_state", "7", "random_state"),
            ("objective", "square", "objective must be a function"),
            ("base_score", 0.5, "base_score needs an objective"),
            ("callbacks", 3, "callbacks must be"),
            ("eval_metric", 3, "eval_metric must be names or functions, got 3"),
            ("early_stopping_rounds", 3, "early_stopping_rounds needs .*eval_set"),
        ):
            with self.subTest(name, value=value):
                with self.assertRaisesRegex((ValueError, TypeError), text):
                    sylvora.SylvoraRegressor(**{name: value}).fit(X, Y)
        with self.assertRaisesRegex(ValueError, "only one class, 'x'"):
            sylvora.SylvoraClassifier().fit(X, ["x"] * 240)
        with self.assertRaisesRegex(ValueError, "y has 3 values, but X has 240 rows"):
            sylvora.SylvoraRegressor().fit(X, [1, 2, 3])
        with self.assertWarns(DataConversionWarning):
            sylvora.SylvoraTreeRegressor().fit(X, Y[:, None])

    def test_random_state(self):
        def text(random_state):
            return fit(sylvora.SylvoraRegressor, random_state=random_state).model_.to_bytes()

        self.assertEqual(text(None), text(1))
        self.assertEqual(text(np.random.RandomState(3)), text(np.random.RandomState(3)))
        self.assertEqual(len({text(1), text(2), text(np.random.default_rng(3))}), 3)


class NameTest(unittest.TestCase):
    def test_columns_are_matched_by_name(self):
        frame = pd.DataFrame(X, columns=list("pqrs"))
        for cls in REGRESSORS + CLASSIFIERS:
            model = fit(cls, frame)
            self.assertEqual(model.feature_names_in_.dtype, object)
            expected = model.predict(X)
            np.testing.assert_array_equal(model.predict(frame[list("srqp")]), expected)
            for bad in (frame.rename(columns={"q": "z"}), frame[list("pqr")]):
                with self.assertRaisesRegex(ValueError, '"q"|"s"'):
                    model.predict(bad)


class RankerTest(unittest.TestCase):
    def test_ranker(self):
        grades = np.digitize(Y, [-1, 0.5, 2]).astype(float)
        group = [24] * 10
        qid = np.repeat(np.arange(10), 24)
        held = {"held": (X, grades, group)}
        model = sylvora.SylvoraRanker(n_estimators=20).fit(X, grades, group=group, eval_set=held)
        again = sylvora.SylvoraRanker(n_estimators=20).fit(X, grades, qid=qid)
        np.testing.assert_array_equal(model.predict(X), again.predict(X))
        score = model.score(X, grades, qid=qid)
        self.assertAlmostEqual(score, model.evals_result_["held"]["ndcg@10"][-1], places=12)
        self.assertGreater(score, 0.9)
        first = next(iter(model.staged_predict(X)))  # few distinct scores, so many ties
        self.assertAlmostEqual(
            _ndcg.mean_ndcg(grades, first, qid, 10),
            model.evals_result_["held"]["ndcg@10"][0],
            places=12,
        )
        for loss in ("cross_entropy", "squared_hinge"):
            hinge = sylvora.SylvoraRanker(loss=loss, subsample_unit="query", n_estimators=5)
            self.assertEqual(hinge.fit(X, grades, group=group).apply(X).shape, (240, 5))
        for wrong in ({}, {"group": group, "qid": qid}, {"group": [240, 1]}):
            with self.assertRaises(ValueError):
                sylvora.SylvoraRanker().fit(X, grades, **wrong)
        with self.assertRaisesRegex(ValueError, "queries|query|group"):
            sylvora.SylvoraRanker().fit(X, grades, group=group, eval_set={"held": (X, grades)})
        copy = clone(model)
        self.assertEqual(copy.get_params(), model.get_params())
        self.assertFalse(hasattr(copy, "model_"))
        restored = pickle.loads(pickle.dumps(model))
        np.testing.assert_array_equal(restored.predict(X), model.predict(X))


class ToolTest(unittest.TestCase):
    def test_search_validation_and_inspection(self):
        grid = {"sylvoraregressor__max_depth": [2, 3], "sylvoraregressor__subsample": [0.5, 1.0]}
        pipeline = make_pipeline(StandardScaler(), sylvora.SylvoraRegressor(**ODDS))
        results = []
        for backend in ("loky", "threading"):
            import joblib

            with joblib.parallel_backend(backend, n_jobs=2):
                search = GridSearchCV(pipeline, grid, cv=3, n_jobs=2).fit(X, Y)
            results.append(search.cv_results_["mean_test_score"])
            self.assertGreater(search.score(X, Y), 0.8)
        np.testing.assert_array_equal(results[0], results[1])
        model = sylvora.SylvoraClassifier(**ODDS)
        self.assertGreater(cross_val_score(model, X, THREE, cv=3).mean(), 0.7)
        model = sylvora.SylvoraRegressor(**ODDS).fit(X, Y)
        ranks = permutation_importance(model, X, Y, n_repeats=2, random_state=0).importances_mean
        self.assertEqual(ranks.argmax(), model.feature_importances_.argmax())
        curve = partial_dependence(model, X, [0])["average"][0]
        self.assertGreater(curve[-1], curve[0] + 1)

    def test_meta_estimators(self):
        calibrated = CalibratedClassifierCV(sylvora.SylvoraClassifier(**ODDS), cv=3).fit(X, THREE)
        self.assertGreater(calibrated.score(X, THREE), 0.8)
        hinge = sylvora.SylvoraClassifier(loss="squared_hinge", **ODDS)
        probabilities = CalibratedClassifierCV(hinge, cv=3).fit(X, TWO).predict_proba(X)
        self.assertEqual(probabilities.shape, (240, 2))
        forest = sylvora.SylvoraForestRegressor(n_estimators=10)
        stack = StackingRegressor(
            [("boost", sylvora.SylvoraRegressor(**ODDS)), ("forest", forest)], LinearRegression()
        )
        self.assertGreater(stack.fit(X, Y).score(X, Y), 0.8)
        tree = sylvora.SylvoraTreeClassifier()
        stack = StackingClassifier(
            [("boost", sylvora.SylvoraClassifier(**ODDS)), ("tree", tree)], LogisticRegression()
        )
        self.assertGreater(stack.fit(X, TWO).score(X, TWO), 0.8)

    def test_column_transformer_with_names(self):
        frame = pd.DataFrame(X, columns=list("pqrs")).assign(kind=np.where(X[:, 0] > 0, "u", "v"))
        encoder = OneHotEncoder(sparse_output=False)
        transformer = ColumnTransformer([("one", encoder, ["kind"])], remainder="passthrough")
        transformer.set_output(transform="pandas")
        pipeline = make_pipeline(transformer, sylvora.SylvoraRegressor(**ODDS)).fit(frame, Y)
        self.assertIn("one__kind_u", pipeline[-1].feature_names_in_)
        self.assertGreater(pipeline.score(frame, Y), 0.8)

    def test_threads_and_fork(self):
        expected = fit(sylvora.SylvoraClassifier, n_jobs=2)
        answers = [None] * 4

        def train(i):
            answers[i] = fit(sylvora.SylvoraClassifier, n_jobs=1 + i % 2).predict_proba(X)

        threads = [threading.Thread(target=train, args=(i,)) for i in range(4)]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join()
        for answer in answers:
            np.testing.assert_array_equal(answer, expected.predict_proba(X))
        child = os.fork()
        if child == 0:
            status = 1
            try:
                same = fit(sylvora.SylvoraClassifier, n_jobs=2).predict_proba(X)
                status = int(not (same == expected.predict_proba(X)).all())
            finally:
                os._exit(status)
        self.assertEqual(os.waitpid(child, 0)[1], 0)


if __name__ == "__main__":
    unittest.main(argv=sys.argv)
