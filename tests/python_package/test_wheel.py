"""The wheel of the target `wheel`: its files, what it says about itself, its bytes."""
import base64
import email
import hashlib
import os
import tempfile
import unittest
import zipfile
from pathlib import Path
from unittest import mock

from support import BUILD, ROOT, backend, run, target_wheel

from sylvora_build import base_name, dist_info_name, wheel_tag

MOST_BYTES = 1_500_000
SOURCES = ROOT / "python" / "sylvora"


class WheelTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.path = target_wheel()
        with zipfile.ZipFile(cls.path) as archive:
            cls.files = {info.filename: archive.read(info) for info in archive.infolist()}
            cls.modes = {info.filename: info.external_attr >> 16 for info in archive.infolist()}

    def detail(self, name):
        return self.files[f"{dist_info_name()}/{name}"].decode()

    def test_the_record_lists_every_file_with_its_hash(self):
        expected = []
        for name, data in self.files.items():
            digest = base64.urlsafe_b64encode(hashlib.sha256(data).digest()).rstrip(b"=").decode()
            expected.append(f"{name},sha256={digest},{len(data)}")
        expected[-1] = f"{dist_info_name()}/RECORD,,"
        self.assertEqual(self.detail("RECORD").splitlines(), expected)

    def test_the_package_is_the_sources_and_the_module(self):
        module = [name for name in self.files if name.endswith(".so")]
        self.assertEqual(module, ["sylvora/_core.abi3.so"])
        sources = {f"sylvora/{path.relative_to(SOURCES)}": path.read_bytes()
                   for path in SOURCES.rglob("*")
                   if path.suffix in (".py", ".pyi") or path.name == "py.typed"}
        packed = {name: data for name, data in self.files.items() if name.startswith("sylvora/")}
        packed.pop(module[0])
        self.assertEqual(packed, sources)
        for name, mode in self.modes.items():
            self.assertEqual(oct(mode), "0o100755" if name in module else "0o100644", name)

    def test_the_module_is_stripped_and_exports_its_start_only(self):
        with tempfile.TemporaryDirectory() as folder:
            module = Path(folder, "_core.so")
            module.write_bytes(self.files["sylvora/_core.abi3.so"])
            exported = run("nm", "-D", "--defined-only", module).split()
            self.assertEqual(exported[1:], ["T", "PyInit__core"])
            self.assertIn("no symbols", run("nm", module))

    def test_size(self):
        size = self.path.stat().st_size
        print(f"{self.path.name}: {size} bytes")
        self.assertLessEqual(size, MOST_BYTES)

    def test_name_and_tag(self):
        self.assertEqual(self.path.name, f"{base_name()}-{wheel_tag()}.whl")
        details = email.message_from_string(self.detail("WHEEL"))
        self.assertEqual((details["Root-Is-Purelib"], details["Tag"]), ("false", wheel_tag()))
        self.assertEqual(wheel_tag(), "cp311-abi3-linux_x86_64")

    def test_metadata(self):
        import tomllib
        from sylvora_build import _metadata
        text = (ROOT / "pyproject.toml").read_text()
        project = tomllib.loads(text)["project"]
        self.assertEqual(_metadata.read_project(text), project)
        metadata = email.message_from_string(self.detail("METADATA"))
        version = run(BUILD / "sylvora", "--version").split()[-1]
        self.assertEqual((metadata["Name"], metadata["Version"]), ("sylvora", version))
        self.assertEqual(metadata["Requires-Python"], project["requires-python"])
        self.assertEqual(metadata.get_all("Classifier"), project["classifiers"])
        for requirement in metadata.get_all("Requires-Dist"):
            self.assertIn("; extra == ", requirement)
        self.assertEqual(metadata.get_payload(), (ROOT / "README.md").read_text())

    def test_the_bytes_depend_on_the_contents_only(self):
        with tempfile.TemporaryDirectory() as folder:
            again = backend("wheel", folder, f"build-folder={BUILD}")
            self.assertEqual(again.read_bytes(), self.path.read_bytes())
            with mock.patch.dict(os.environ, SOURCE_DATE_EPOCH="1700000000"):
                later = backend("wheel", folder, f"build-folder={BUILD}")
            with zipfile.ZipFile(later) as archive:
                times = {info.date_time for info in archive.infolist()}
            self.assertEqual(times, {(2023, 11, 14, 22, 13, 20)})
