#include "Support.h"

#include <cstring>

#include "Functions.h"
#include "sylvora_c.h"

namespace sylvora::python {

Exceptions exceptions;
Types types;

bool AddExceptions(PyObject* module) {
    exceptions.error = AddError(module);
    if (exceptions.error == nullptr) return false;
    const Reference_t bases(PyTuple_Pack(2, exceptions.error, PyExc_ValueError));
    if (bases == nullptr) return false;
    const auto add = [&](const char* name, const char* fullName, const char* documentation) {
        PyObject* const exception =
            PyErr_NewExceptionWithDoc(fullName, documentation, bases.get(), nullptr);
        // The module never dies, so the reference may stay.
        const bool fAdded =
            exception != nullptr && PyObject_SetAttrString(module, name, exception) == 0;
        return fAdded ? exception : nullptr;
    };
    exceptions.model = add("ModelError", "sylvora.ModelError",
                           "A text or a file that is no model, or a damaged one.");
    exceptions.training =
        add("TrainingError", "sylvora.TrainingError", "A training that was refused or failed.");
    return exceptions.model != nullptr && exceptions.training != nullptr;
}

std::nullptr_t RaiseLibraryError(PyObject* kind) {
    if (sylvora_out_of_memory() != 0) {
        PyErr_NoMemory();
    } else {
        const Reference_t text(TextOf(sylvora_error()));
        if (text != nullptr) PyErr_SetObject(kind, text.get());
    }
    return nullptr;
}

std::nullptr_t RaiseFileError(PyObject* kind, PyObject* file) {
    if (sylvora_out_of_memory() != 0) {
        PyErr_NoMemory();
        return nullptr;
    }
    const Reference_t text(TextOf(sylvora_error()));
    const Reference_t name(PyUnicode_DecodeFSDefault(PyBytes_AsString(file)));
    if (text != nullptr && name != nullptr) {
        PyErr_Format(kind, "%U: %U", name.get(), text.get());
    }
    return nullptr;
}

PyTypeObject* AddType(PyObject* module, const char* name, PyType_Spec& spec) {
    PyObject* const type = PyType_FromSpec(&spec);
    const bool fAdded = type != nullptr && PyObject_SetAttrString(module, name, type) == 0;
    return fAdded ? reinterpret_cast<PyTypeObject*>(type) : nullptr;
}

PyObject* TextOf(const char* text) {
    return PyUnicode_DecodeUTF8(text, static_cast<Py_ssize_t>(std::strlen(text)),
                                "surrogateescape");
}

const char* Utf8Of(PyObject* text, const char* what) {
    if (!PyUnicode_Check(text)) {
        const Reference_t type(
            PyObject_GetAttrString(reinterpret_cast<PyObject*>(Py_TYPE(text)), "__name__"));
        if (type != nullptr) {
            PyErr_Format(PyExc_TypeError, "%s must be a str, not %U", what, type.get());
        }
        return nullptr;
    }
    Py_ssize_t size = 0;
    const char* const utf8 = PyUnicode_AsUTF8AndSize(text, &size);
    if (utf8 != nullptr && std::strlen(utf8) != static_cast<size_t>(size)) {
        PyErr_Format(PyExc_ValueError, "%s contains a null character", what);
        return nullptr;
    }
    return utf8;
}

}  // namespace sylvora::python
