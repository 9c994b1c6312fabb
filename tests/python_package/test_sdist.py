"""The source distribution, and what the build backend says when it cannot build."""
import os
import subprocess
import sys
import tarfile
import tempfile
import unittest
import zipfile
from pathlib import Path
from unittest import mock

from support import BACKEND, BUILD, ROOT, backend, run, target_wheel

import sylvora_build

# Compiled as fast as possible: what counts is that everything is there.
QUICK = ("-DCMAKE_CXX_FLAGS_RELEASE=-O0", "-DSYLVORA_PRECOMPILE=ON")


class SourceDistributionTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        scratch = tempfile.TemporaryDirectory()
        cls.addClassCleanup(scratch.cleanup)
        cls.folder = Path(scratch.name)
        cls.archive = backend("sdist", cls.folder / "first")
        with tarfile.open(cls.archive) as archive:
            cls.members = archive.getmembers()
            archive.extractall(cls.folder)
        cls.unpacked = cls.folder / sylvora_build.base_name()

    def test_contents(self):
        names = [member.name for member in self.members]
        self.assertEqual(names, sorted(names))
        self.assertEqual({(member.uid, member.gid, member.uname, member.mtime)
                          for member in self.members}, {(0, 0, "", 315532800)})
        if (ROOT / ".git").exists():
            tracked = run("git", "-c", "safe.directory=*", "-C", ROOT, "ls-files").split("\n")[:-1]
            expected = [f"{self.unpacked.name}/{name}" for name in tracked + ["PKG-INFO"]
                        if name == "PKG-INFO" or (ROOT / name).exists()]
            self.assertEqual(names, sorted(expected))

    def test_an_unpacked_one_gives_the_same(self):
        (self.unpacked / "build").mkdir()
        (self.unpacked / "build" / "product.cpp").touch()
        (self.unpacked / "python" / "sylvora" / "_core.abi3.so").touch()
        again = backend("sdist", self.folder / "second", root=self.unpacked)
        self.assertEqual(again.read_bytes(), self.archive.read_bytes())
        (self.unpacked / "python" / "sylvora" / "_core.abi3.so").unlink()

    def test_an_unpacked_one_gives_the_wheel(self):
        path = backend("wheel", self.folder / "wheel", *QUICK, root=self.unpacked)
        with zipfile.ZipFile(path) as ours, zipfile.ZipFile(target_wheel()) as theirs:
            self.assertEqual(ours.namelist(), theirs.namelist())
            for name in ours.namelist():
                if not name.endswith((".so", "RECORD")):
                    self.assertEqual(ours.read(name), theirs.read(name), name)
            ours.extractall(self.folder / "wheel")
        output = run(sys.executable, "-c", "import sylvora; print(sylvora.__file__)",
                     cwd=self.folder / "wheel")
        self.assertEqual(output.strip(), str(self.folder / "wheel" / "sylvora" / "__init__.py"))


class FaultsTest(unittest.TestCase):
    """Every failure ends with one line that says what to do, and writes nothing."""

    def failure(self, *settings, **variables):
        environment = dict(os.environ, PYTHONPATH=str(BACKEND), PYTHONDONTWRITEBYTECODE="1")
        environment.update(variables)
        with tempfile.TemporaryDirectory() as folder:
            done = subprocess.run([sys.executable, "-m", "sylvora_build", "wheel", folder, *settings],
                                  env=environment, text=True, capture_output=True)
            self.assertEqual((done.returncode, os.listdir(folder)), (1, []))
        return done.stderr

    def test_faults(self):
        reuse = f"build-folder={BUILD}"
        for settings, variables, words in (
                ((), {"PATH": "/nowhere"},
                 ("CMake 3.25", "Ninja or make", "apt-get install cmake ninja-build g++")),
                ((), {"CXX": "no-such-compiler -O2"}, ("no-such-compiler", "apt-get install g++")),
                (("define=X",), {}, ("'define'", "-DNAME")),
                ((f"build-folder={ROOT / 'src'}",), {}, ("/src has no module for Python 3",)),
                ((reuse, "-DX=1"), {}, ("-DX=1 has no effect",)),
                ((reuse,), {"SOURCE_DATE_EPOCH": "soon"}, ("SOURCE_DATE_EPOCH=soon",))):
            with self.subTest(settings=settings, variables=variables):
                message = self.failure(*settings, **variables)
                self.assertRegex(message, r"\AERROR: [^\n]*\n\Z")
                for word in words:
                    self.assertIn(word, message)

    def test_cmakes_own_messages_come_first(self):
        message = self.failure("-DSYLVORA_PYTHONS=/bin/false")
        self.assertIn("SYLVORA_PYTHONS: /bin/false does not run", message)
        self.assertRegex(message.splitlines()[-1], "^ERROR: cannot build sylvora: .*: cmake -S ")

    def test_interpreters_that_it_cannot_build_for(self):
        from sylvora_build import _cmake, _metadata
        with mock.patch("sysconfig.get_paths", return_value={"include": "/no/headers"}):
            self.assertEqual(_cmake.missing_tools(),
                             [("/no/headers/Python.h of this interpreter", "python3-dev")])
        for attribute, value, word in (("get_config_var", 1, "global lock"),
                                       ("get_platform", "linux-aarch64", "linux-aarch64")):
            with mock.patch(f"sysconfig.{attribute}", return_value=value):
                with self.assertRaisesRegex(SystemExit, f"^ERROR: .*{word}"):
                    _metadata.wheel_tag()
