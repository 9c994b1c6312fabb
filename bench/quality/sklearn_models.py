"""scikit-learn's models: sklearn_models.py JOBS, see peer_jobs.py."""

from sklearn import ensemble, tree

import peer_jobs


def score(model, seed, classes, train, test):
    settings = dict(model)
    kind = settings.pop("kind")
    estimator = getattr(ensemble, kind, None) or getattr(tree, kind)
    fitted = estimator(random_state=seed, **settings).fit(train.x, train.labels(classes))
    if kind == "GradientBoostingClassifier":
        return fitted.decision_function(test.x)
    return fitted.predict(test.x)


if __name__ == "__main__":
    peer_jobs.run(score)
