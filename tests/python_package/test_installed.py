"""The wheel in a fresh virtual environment without a network."""
import os
import sys
import tempfile
import textwrap
import unittest
from importlib import util
from pathlib import Path

from support import BUILD, ROOT, run, target_wheel

import sylvora_build


class InstalledTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        scratch = tempfile.TemporaryDirectory()
        cls.addClassCleanup(scratch.cleanup)
        cls.folder = Path(scratch.name)
        cls.environment = {name: value for name, value in os.environ.items()
                           if not name.startswith(("PYTHON", "PIP_"))}
        cls.environment["PIP_DISABLE_PIP_VERSION_CHECK"] = "1"
        cls.environment["PIP_NO_INDEX"] = "1"
        run(sys.executable, "-m", "venv", cls.folder / "venv")
        cls.python = cls.folder / "venv" / "bin" / "python"
        cls.pip("install", target_wheel())

    @classmethod
    def pip(cls, *arguments):
        return run(cls.python, "-m", "pip", *arguments, env=cls.environment, cwd=cls.folder)

    def script(self, text, **variables):
        return run(self.python, "-c", textwrap.dedent(text), cwd=self.folder,
                   env=dict(self.environment, **variables)).strip()

    def test_packages_fit_together(self):
        self.assertIn("No broken requirements", self.pip("check"))

    def test_import(self):
        output = self.script("""
            import sys, sylvora
            from importlib.metadata import version
            heavy = {"numpy", "sklearn", "scipy", "pandas"} & set(sys.modules)
            print(sylvora.__file__.startswith(sys.prefix), version("sylvora"), sorted(heavy))
            """)
        self.assertEqual(output, f"True {sylvora_build._metadata.version()} []")

    def test_the_functions_of_the_older_module(self):
        output = run(self.python, "-m", "unittest", "test_sylvora", cwd=ROOT / "tests" / "python",
                     env=dict(self.environment, PYTHONDONTWRITEBYTECODE="1", SYLVORA_CYCLES="50"))
        self.assertRegex(output, r"Ran \d\d tests")

    def test_training(self):
        numpy = util.find_spec("numpy")
        if not numpy:
            self.skipTest("NumPy is not installed")
        # A plain PYTHONPATH gives NumPy to the environment without its other packages.
        output = self.script("""
            import numpy, sylvora
            X = numpy.arange(400.0).reshape(100, 4) % 37
            y = X[:, 0] - 2.0 * X[:, 1]
            model = sylvora.train({"n_estimators": 20, "learning_rate": 0.3}, X, y)
            scores = model.predict(X)
            print(numpy.mean((y - scores) ** 2) < 0.2 * numpy.var(y),
                  sylvora.Model.from_bytes(model.to_bytes()).score(X[0].tolist()) == scores[0])
            """, PYTHONPATH=str(Path(numpy.origin).parents[1]))
        self.assertEqual(output, "True True")

    def test_an_editable_installation_and_its_removal(self):
        self.addCleanup(self.pip, "install", target_wheel())
        self.pip("install", "--editable", ROOT, "--config-settings", f"build-folder={BUILD}")
        self.assertEqual(Path(self.script("import sylvora; print(sylvora.__file__)")).resolve(),
                         ROOT / "python" / "sylvora" / "__init__.py")
        self.pip("uninstall", "--yes", "sylvora")
        self.assertEqual(list(self.folder.glob("venv/lib/*/site-packages/*sylvora*")), [])
