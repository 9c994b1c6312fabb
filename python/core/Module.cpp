// The extension module `sylvora._core`: the package's view of the C interface, in the raw C API of
// CPython 3.9 and later (from 3.11 on its stable subset). _core.pyi describes it.
#include <Python.h>

#include "Functions.h"
#include "Libdef.h"

extern "C" SYLVORA_API PyObject* PyInit__core() {
    static PyModuleDef definition = {
        PyModuleDef_HEAD_INIT, "sylvora._core", nullptr, -1, HandleFunctions(), {}, {}, {}, {}};
    PyObject* const module = PyModule_Create(&definition);
    if (module == nullptr || AddError(module) != nullptr) return module;
    Py_DECREF(module);
    return nullptr;
}
