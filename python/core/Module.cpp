// The extension module `sylvora._core`: the package's view of the C interface, in the raw C API of
// CPython 3.9 and later (from 3.11 on its stable subset). _core.pyi describes it.
#include <array>

#include "Functions.h"
#include "Libdef.h"
#include "Support.h"
#include "sylvora_c.h"

namespace {

using sylvora::python::LossFunctions;

PyObject* UsableProcessors(PyObject* /*module*/, PyObject* /*nothing*/) {
    return PyLong_FromLong(sylvora_usable_processors());
}

// The functions of handles and of losses, and of this file, ended by an empty entry.
PyMethodDef* AllFunctions() {
    static std::array<PyMethodDef, 9> functionV = {};  // the last one stays empty
    size_t size = 0;
    for (PyMethodDef* list : {HandleFunctions(), LossFunctions()}) {
        for (; list->ml_name != nullptr; ++list) functionV.at(size++) = *list;
    }
    functionV.at(size) = {"usable_processors", UsableProcessors, METH_NOARGS,
                          "usable_processors()\n--\n\nProcessors that the process may use."};
    return functionV.data();
}

bool Fill(PyObject* module) {
    using namespace sylvora::python;
    return AddExceptions(module) && AddTable(module) && AddDataset(module) && AddTraining(module) &&
           AddModel(module) &&
           PyModule_AddStringConstant(module, "__version__", sylvora_version()) == 0;
}

}  // namespace

// NOLINTNEXTLINE(bugprone-reserved-identifier): the interpreter prescribes the name.
extern "C" SYLVORA_API PyObject* PyInit__core() {
    static PyModuleDef definition = {
        PyModuleDef_HEAD_INIT, "sylvora._core", nullptr, -1, AllFunctions(), {}, {}, {}, {}};
    PyObject* const module = PyModule_Create(&definition);
    if (module == nullptr || Fill(module)) return module;
    Py_DECREF(module);
    return nullptr;
}
