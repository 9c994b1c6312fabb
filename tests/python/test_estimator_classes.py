"""The estimators: classes, probabilities, and weights of rows and classes."""

import pickle
import unittest

from estimator_cases import CLASSIFIERS, ODDS, REGRESSORS, RNG, THREE, TWO, X, Y, fit

import numpy as np
import pandas as pd
import scipy.sparse
import sylvora
from sylvora._estimators import class_weights as _class_weights


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

    def test_labels_that_are_missing_or_of_another_kind(self):
        for missing in (None, np.nan, pd.NA, pd.NaT):
            labels = np.array(TWO, dtype=object)
            labels[7] = missing
            with self.assertRaisesRegex(ValueError, "y: the label of row 7 is missing"):
                fit(sylvora.SylvoraForestClassifier, labels=labels)
        numbers = pd.array(np.where(TWO == "no", 4, 9), dtype="Int64")
        model = fit(sylvora.SylvoraClassifier, labels=numbers)
        self.assertEqual(model.classes_.tolist(), [4, 9])
        with self.assertRaisesRegex(ValueError, "labels of the type .*U.*, those of the training"):
            model.fit(X, numbers, eval_set={"e": (X, TWO)})

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

    def test_weights_of_a_wide_sparse_matrix(self):
        wide = scipy.sparse.random(20, 5000, 0.05, "csr", random_state=1)
        weights = np.where(np.arange(20) == 3, 2, 1)
        models = [
            sylvora.SylvoraRegressor(n_estimators=2).fit(form, np.arange(20.0), weights).model_
            for form in (wide, wide.toarray())
        ]
        self.assertEqual(models[0].to_bytes(), models[1].to_bytes())

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
