// Loads a model file, scores rows with it, releases it. One source for the C interfaces of CPython
// 2.7 and of CPython 3.8 and later, the stable one included.
//
// The interpreter's global lock is never released here, yet other Python code can run in the middle
// of a call: wherever an item of a list is converted, and wherever a new list starts a garbage
// collection. A scoring call therefore keeps its own reference to the model and its own loan of the
// feature buffer, and runs no Python code between writing the per-tree values and reading them.
#include "Functions.h"

#include <algorithm>
#include <exception>
#include <memory>
#include <utility>

#include "Error.h"
#include "Handles.h"
#include "Model.h"
#include "TreeLearner.h"

namespace {

PyObject* SylvoraError = nullptr;

struct DropReference {
    void operator()(PyObject* object) const { Py_DECREF(object); }
};
typedef std::unique_ptr<PyObject, DropReference> Reference_t;

#if PY_MAJOR_VERSION >= 3

// Argument converter ("O&") into a Reference_t: a str or an os.PathLike becomes the bytes of a file
// name, as for open(). A bytes object is deliberately refused, as it always was.
int ConvertPath(PyObject* path, void* name) {
    PyObject* bytes = nullptr;
    if (PyBytes_Check(path) || !PyUnicode_FSConverter(path, &bytes)) return 0;
    static_cast<Reference_t*>(name)->reset(bytes);
    return 1;
}

// The path among the arguments of LoadModel; null when it is none. Valid as long as `name` is.
const char* PathOf(PyObject* args, Reference_t& name) {
    if (!PyArg_ParseTuple(args, "O&", ConvertPath, &name)) return nullptr;
    return PyBytes_AsString(name.get());
}

#else

const char* PathOf(PyObject* args, Reference_t& /*name*/) {
    const char* path = nullptr;
    return PyArg_ParseTuple(args, "s", &path) ? path : nullptr;
}

#endif

PyObject* LoadModel(PyObject* /*module*/, PyObject* args) {
    try {
        Reference_t name;
        const char* const path = PathOf(args, name);
        if (path == nullptr) return RaiseError("Can not get model path");
        Model model;
        if (!model.Init(path)) return nullptr;
        const unsigned long handle = AddHandle(std::move(model));
        PyObject* number = PyLong_FromUnsignedLong(handle);
        if (number == nullptr) RemoveHandle(handle);
        return number;
    } catch (const std::exception&) {
        return RaiseError("New model error");
    }
}

// Argument converter ("O&"). The format "k" would reduce an integer modulo 2^64, so that a wrong
// one could pass for a handle; here it is out of range. What is not an integer is refused as well.
int ConvertHandle(PyObject* number, void* model) {
    const unsigned long handle = PyLong_AsUnsignedLong(number);
    if (PyErr_Occurred()) return 0;
    auto& found = *static_cast<std::shared_ptr<Model>*>(model);
    found = FindHandle(handle);
    return found != nullptr;
}

// Copies the items of a list into `featureV`. A conversion may change the list: its length is
// checked before each item is taken, and the item held while it is converted.
bool ReadFeatures(PyObject* list, double* featureV, int dimFea) {
    for (Py_ssize_t i = 0; i < dimFea; ++i) {
        const Py_ssize_t dim = PyList_Size(list);
        if (dim != dimFea) {
            PyErr_Format(SylvoraError, "# Feature size error : expected %d, actual %zd", dimFea,
                         dim);
            return false;
        }
        PyObject* const lent = PyList_GetItem(list, i);
        Py_INCREF(lent);
        const Reference_t item(lent);
        featureV[i] = PyFloat_AsDouble(item.get());
        if (featureV[i] == -1.0 && PyErr_Occurred()) return false;
    }
    return true;
}

// The second item of a result: the mean of the trees' values where the result can be a class of a
// binary classification, the result itself otherwise. Deliberately an exact comparison, and a
// multiplication by a reciprocal that is slightly off; the bits of the mean depend on it.
double MeanOrResult(const Model& model, double result) {
    if (result != 0.0 && result != 1.0) return result;
    double sum = 0.0;
    for (int i = 0; i < model.treeNum; ++i) sum += model.treeResultBuf[i];
    return sum * (1.0 / (model.treeNum + 0.000001));
}

bool SetFloat(PyObject* list, Py_ssize_t index, double value) {
    PyObject* item = PyFloat_FromDouble(value);
    if (item == nullptr) return false;
    return PyList_SetItem(list, index, item) == 0;
}

// Scores the row and fills the new list `resultList` of treeNum + 2 items; false with the exception
// set. Runs no Python code.
bool Score(Model& model, double* featureV, PyObject* resultList) {
    std::fill_n(model.treeResultBuf, model.treeNum, -1.0);
    double result = 0.0;
    if (model.learner->OnlineTesting(featureV, result, model.learner->dimFea,
                                     model.treeResultBuf) != 0) {
        RaiseError("Online testing error");
        return false;
    }
    bool fSet =
        SetFloat(resultList, 0, result) && SetFloat(resultList, 1, MeanOrResult(model, result));
    for (int i = 0; fSet && i < model.treeNum; ++i) {
        fSet = SetFloat(resultList, Py_ssize_t{i} + 2, model.treeResultBuf[i]);
    }
    return fSet;
}

PyObject* OnlineTesting(PyObject* /*module*/, PyObject* args) {
    std::shared_ptr<Model> model;
    PyObject* list = nullptr;
    if (!PyArg_ParseTuple(args, "O&O!", ConvertHandle, &model, &PyList_Type, &list)) {
        return RaiseError("Parse argv error");
    }
    try {
        const FeatureLoan loan(*model);
        if (!ReadFeatures(list, loan.featureV, model->learner->dimFea)) return nullptr;
        Reference_t resultList(PyList_New(Py_ssize_t{model->treeNum} + 2));
        if (!resultList || !Score(*model, loan.featureV, resultList.get())) return nullptr;
        return resultList.release();
    } catch (const std::exception&) {
        return PyErr_NoMemory();
    }
}

PyObject* ReleaseModel(PyObject* /*module*/, PyObject* args) {
    std::shared_ptr<Model> model;
    if (!PyArg_ParseTuple(args, "O&", ConvertHandle, &model)) {
        return RaiseError("Parse argv error");
    }
    RemoveHandle(reinterpret_cast<unsigned long>(model.get()));
    Py_RETURN_NONE;
}

}  // namespace

PyMethodDef* HandleFunctions() {
    static PyMethodDef functions[] = {
        {"LoadModel", LoadModel, METH_VARARGS, "Load Tree Model"},
        {"OnlineTesting", OnlineTesting, METH_VARARGS, "Online Testing"},
        {"ReleaseModel", ReleaseModel, METH_VARARGS, "Release Tree Model"},
        {nullptr, nullptr, 0, nullptr},
    };
    return functions;
}

PyObject* AddError(PyObject* module) {
    static char name[] = "sylvora.error";  // the interface of Python 2 takes no constant
    SylvoraError = PyErr_NewException(name, nullptr, nullptr);
    const bool fAdded =
        SylvoraError != nullptr && PyObject_SetAttrString(module, "error", SylvoraError) == 0;
    return fAdded ? SylvoraError : nullptr;
}

std::nullptr_t RaiseError(const char* text) {
    PyErr_SetString(SylvoraError, text);
    return nullptr;
}
