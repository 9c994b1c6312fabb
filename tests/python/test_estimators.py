"""The estimators: scikit-learn's own checks and tools, names of columns, and ranking."""

import os
import pickle
import tempfile
import threading
import unittest
import warnings

from estimator_cases import CLASSIFIERS, ODDS, REGRESSORS, THREE, TWO, X, Y, fit

import joblib
import numpy as np
import pandas as pd
import sklearn
import sylvora
from bundled import read, run_command
from sklearn.base import clone
from sklearn.calibration import CalibratedClassifierCV
from sklearn.compose import ColumnTransformer
from sklearn.ensemble import StackingClassifier, StackingRegressor
from sklearn.inspection import partial_dependence, permutation_importance
from sklearn.linear_model import LinearRegression, LogisticRegression
from sklearn.model_selection import GridSearchCV, cross_val_score
from sklearn.pipeline import make_pipeline
from sklearn.preprocessing import OneHotEncoder, StandardScaler
from sklearn.utils.estimator_checks import check_estimator
from sylvora._estimators import ndcg as _ndcg


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
        """Returns the model file that the command makes."""
        with tempfile.TemporaryDirectory() as folder:
            config = os.path.join(folder, "c.cfg")
            with open(config, "w") as file:
                file.write("\n".join(lines) + "\nfileModel = %s/model\n" % folder)
            run_command(config)
            with open(os.path.join(folder, "model"), "rb") as file:
                return file.read()

    def test_default_estimators_are_the_commands_models(self):
        values, labels, _ = read("wdbc")
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
