"""The examples in the docstrings of the package."""
import doctest
import importlib
import pkgutil
import unittest

import sylvora

try:
    import numpy  # noqa: F401
except ImportError:
    raise unittest.SkipTest('needs NumPy')


def load_tests(loader, tests, pattern):
    for module in pkgutil.walk_packages(sylvora.__path__, 'sylvora.'):
        try:
            found = importlib.import_module(module.name)
        except ImportError as error:
            if 'sylvora' in str(error):
                raise
            continue  # needs scikit-learn
        if module.name != 'sylvora._core':
            tests.addTests(doctest.DocTestSuite(found))
    return tests


if __name__ == '__main__':
    unittest.main()
