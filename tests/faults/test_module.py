"""Makes each allocation of the module `sylvora` fail in turn, and each of the interpreter's, if it
supports that. Runs under Python 2.7 and 3.8 and later. The module in PYTHONPATH must be built with
faults/FailingCalls.cpp.
"""
import ctypes
import os
import tempfile
import unittest

import sylvora
from models import expected_scores, model_text

try:
    import _testcapi
except ImportError:
    _testcapi = None

MODEL = (0, [(0.1, [(1, 0.25, -1.5, 0.5)]), (1.0, [0.125])])
ROW = [3.0, 0.5, -1.0]


class OwnMemory(object):
    """Allocations of the module."""
    hook = ctypes.PyDLL(sylvora.__file__)

    def start(self, first, for_good):
        self.hook.FailAllocations(first, for_good)

    def stop(self):
        return bool(self.hook.FailAllocations(-1, 0))


class InterpreterMemory(object):
    """Allocations of the interpreter. It does not report whether one failed, so the first 40 are
    tried: more than a call makes."""

    def start(self, first, for_good):
        self.first = first
        _testcapi.set_nomemory(first, 0 if for_good else first + 1)

    def stop(self):
        _testcapi.remove_mem_hooks()
        return self.first < 40


class MemoryTest(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.mkdtemp()
        self.path = os.path.join(self.folder, 'model.txt')
        with open(self.path, 'w') as file:
            file.write(model_text(MODEL, 3))
        self.addCleanup(os.rmdir, self.folder)
        self.addCleanup(os.remove, self.path)

    def sweep(self, memory, function, errors):
        """Makes each allocation fail in turn; returns the function's result when none failed."""
        for for_good in (False, True):
            first, failed, refused = 0, True, 0
            while failed:
                result = None
                memory.start(first, for_good)
                try:
                    result = function()
                except errors as error:
                    caught = error
                    failed = memory.stop()
                    self.assertTrue(failed, caught)
                    refused += 1
                else:
                    failed = memory.stop()
                    if failed:
                        self.discard(result)
                first += 1
            self.assertGreater(refused, 0)
            print('%s: %d failed calls, %d refused' % (type(memory).__name__, first - 1, refused))
        return result

    def discard(self, result):
        if isinstance(result, list):
            self.assertEqual(result, expected_scores(MODEL, ROW))
        elif result is not None:
            sylvora.ReleaseModel(result)

    def check(self, memory):
        errors = (sylvora.error, MemoryError)
        handle = self.sweep(memory, lambda: sylvora.LoadModel(self.path), errors)
        # A nested call during the conversion finds the handle's buffer in use; it allocates one.
        nested = type('Item', (), {'__float__': lambda _: sylvora.OnlineTesting(handle, ROW)[0] * 0 + 3})
        row = [nested()] + ROW[1:]
        result = self.sweep(memory, lambda: sylvora.OnlineTesting(handle, row), errors)
        self.assertEqual(result, expected_scores(MODEL, ROW))
        self.assertIsNone(sylvora.ReleaseModel(handle))

    def test_of_the_module(self):
        self.check(OwnMemory())

    @unittest.skipIf(_testcapi is None, 'the interpreter has no such hook')
    def test_of_the_interpreter(self):
        self.check(InterpreterMemory())


if __name__ == '__main__':
    unittest.main()
