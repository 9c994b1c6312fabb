"""The estimators: what a fit takes, records and refuses, and what ends it."""

import os
import signal
import threading
import unittest

from estimator_cases import CLASSIFIERS, ODDS, REGRESSORS, THREE, TWO, X, Y, fit

import numpy as np
import pandas as pd
import sylvora
from sklearn.exceptions import DataConversionWarning, NotFittedError
from sylvora.callbacks import Callback


def log_loss_objective(y, scores):
    gradient = y - sylvora.expit(scores)
    return gradient, np.abs(gradient) * (1 - np.abs(gradient))


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
        """Trainings of several classes in threads end, too, instead of running out."""
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
            ("max_depth", None, "max_depth must be .*None"),
            ("max_features", "sqrt", "max_features must be .*'sqrt'"),
            ("missing", np.inf, "missing must"),
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
