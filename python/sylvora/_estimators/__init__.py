"""Estimators with scikit-learn's interface; the only modules that import it."""
