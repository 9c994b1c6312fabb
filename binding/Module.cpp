// The Python extension module `sylvora` in its older form, one file with three functions, for
// CPython 2.7 and 3.8. Later versions have the package in python/.
#include "Functions.h"
#include "Libdef.h"

#if PY_MAJOR_VERSION >= 3

extern "C" SYLVORA_API PyObject* PyInit_sylvora() {
    static PyModuleDef definition = {
        PyModuleDef_HEAD_INIT, "sylvora", nullptr, -1, HandleFunctions(), {}, {}, {}, {}};
    PyObject* const module = PyModule_Create(&definition);
    if (module == nullptr || AddError(module) != nullptr) return module;
    Py_DECREF(module);
    return nullptr;
}

#else

extern "C" SYLVORA_API void initsylvora() {
    PyObject* module =
        Py_InitModule4("sylvora", HandleFunctions(), nullptr, nullptr, PYTHON_API_VERSION);
    if (module != nullptr) AddError(module);
}

#endif
