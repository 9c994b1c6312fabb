// The Python class Model: its content and its description.
#include "Models.h"

#include <cmath>
#include <string>
#include <vector>

#include "Buffers.h"

namespace sylvora::python {

ModelState::~ModelState() {
    sylvora_model_free(model);
}

bool ModelState::Refresh() {
    facts.size = sizeof facts;
    if (sylvora_model_facts_of(model, &facts) != 0) {
        RaiseLibraryError(exceptions.model);
        return false;
    }
    // "nan", a number, "nan" and a number, or nothing: then NaN was refused, unless there is no
    // description, which always has settings.
    missing = std::numeric_limits<double>::quiet_NaN();
    const char* const text = sylvora_model_describe(model, "missing", 0);
    fNanMissing = text != nullptr || sylvora_model_describe(model, "setting", 0) == nullptr;
    if (text == nullptr) return true;
    const std::string rule = text;
    const size_t blank = rule.rfind(' ');
    const char* const number = rule.c_str() + (blank == std::string::npos ? 0 : blank + 1);
    missing = PyOS_string_to_double(number, nullptr, nullptr);
    if (missing == -1.0 && PyErr_Occurred() != nullptr) {
        PyErr_Clear();
        missing = std::numeric_limits<double>::quiet_NaN();
    }
    return true;
}

bool ModelState::CheckExclusive() const {
    if (numUses == 0) return true;
    PyErr_SetString(PyExc_RuntimeError, "The model cannot be changed while another thread uses it");
    return false;
}

PyObject* WrapModel(PyObject* type, sylvora_model* model) {
    std::unique_ptr<ModelState> state(new (std::nothrow) ModelState);
    if (state == nullptr) {
        sylvora_model_free(model);
        return PyErr_NoMemory();
    }
    state->model = model;
    if (!state->Refresh()) return nullptr;
    return Wrap(reinterpret_cast<PyTypeObject*>(type), std::move(state));
}

bool CheckModelClass(PyObject* type) {
    if (PyType_Check(type) &&
        PyType_IsSubtype(reinterpret_cast<PyTypeObject*>(type), types.model) != 0) {
        return true;
    }
    PyErr_SetString(PyExc_TypeError, "The class of the model must be Model or a subclass of it");
    return false;
}

namespace {

PyObject* NoNew(PyTypeObject* /*type*/, PyObject* /*arguments*/, PyObject* /*keywords*/) {
    PyErr_SetString(PyExc_TypeError, "A Model is made by training, by reading or by parsing");
    return nullptr;
}

PyObject* Cut(PyObject* self, PyObject* argument) {
    ModelState& state = StateOf<ModelState>(self);
    const long long numGroups = PyLong_AsLongLong(argument);
    if (numGroups == -1 && PyErr_Occurred() != nullptr) return nullptr;
    if (!state.CheckExclusive()) return nullptr;
    if (sylvora_model_cut(state.model, numGroups) != 0) return RaiseLibraryError(PyExc_ValueError);
    if (!state.Refresh()) return nullptr;
    Py_RETURN_NONE;
}

PyObject* Tree(PyObject* self, PyObject* argument) {
    const sylvora_model* const model = StateOf<ModelState>(self).model;
    const long long tree = PyLong_AsLongLong(argument);
    if (tree == -1 && PyErr_Occurred() != nullptr) return nullptr;
    int64_t numNodes = 0;
    int64_t group = 0;
    double shrink = 0.0;
    std::vector<sylvora_node> nodeV;
    for (int call = 0; call < 2; ++call) {  // the first one finds the number of nodes
        if (sylvora_model_tree(model, tree, nodeV.data(), numNodes, &numNodes, &group, &shrink) !=
            0) {
            return RaiseLibraryError(PyExc_IndexError);
        }
        nodeV.resize(static_cast<size_t>(numNodes));
    }
    static_assert(sizeof(sylvora_node) == 32, "two doubles and four 32-bit integers");
    Reference_t bytes(
        PyBytes_FromStringAndSize(reinterpret_cast<const char*>(nodeV.data()),
                                  static_cast<Py_ssize_t>(nodeV.size() * sizeof(sylvora_node))));
    if (bytes == nullptr) return nullptr;
    return Py_BuildValue("NLd", bytes.release(), static_cast<long long>(group), shrink);
}

PyObject* Describe(PyObject* self, PyObject* argument) {
    const char* const key = Utf8Of(argument, "The key");
    Reference_t list(PyList_New(0));
    if (key == nullptr || list == nullptr) return nullptr;
    const sylvora_model* const model = StateOf<ModelState>(self).model;
    for (int64_t i = 0;; ++i) {
        const char* const text = sylvora_model_describe(model, key, i);
        if (text == nullptr) return list.release();
        const Reference_t item(TextOf(text));
        if (item == nullptr || PyList_Append(list.get(), item.get()) != 0) return nullptr;
    }
}

PyObject* SetDescription(PyObject* self, PyObject* arguments) {
    const char* key = nullptr;
    PyObject* sequence = nullptr;
    if (!PyArg_ParseTuple(arguments, "sO:set_description", &key, &sequence)) return nullptr;
    if (PyUnicode_Check(sequence)) {
        PyErr_SetString(PyExc_TypeError, "The texts must be a sequence of str, not one str");
        return nullptr;
    }
    const Reference_t texts(PySequence_Tuple(sequence));
    if (texts == nullptr) return nullptr;
    std::vector<const char*> textV;
    for (Py_ssize_t i = 0; i < PyTuple_Size(texts.get()); ++i) {
        textV.push_back(Utf8Of(PyTuple_GetItem(texts.get(), i), "A text of a description"));
        if (textV.back() == nullptr) return nullptr;
    }
    ModelState& state = StateOf<ModelState>(self);
    if (!state.CheckExclusive()) return nullptr;
    if (sylvora_model_set_description(state.model, key, textV.data(),
                                      static_cast<int64_t>(textV.size())) != 0) {
        return RaiseLibraryError(PyExc_ValueError);
    }
    if (!state.Refresh()) return nullptr;
    Py_RETURN_NONE;
}

template <int64_t sylvora_model_facts::*kFact>
PyObject* Number(PyObject* self, void* /*closure*/) {
    return PyLong_FromLongLong(StateOf<ModelState>(self).facts.*kFact);
}

template <const char* sylvora_model_facts::*kFact>
PyObject* Name(PyObject* self, void* /*closure*/) {
    return TextOf(StateOf<ModelState>(self).facts.*kFact);
}

PyMethodDef methods[] = {
    {"read", Guarded<ModelRead>, METH_VARARGS | METH_CLASS,
     "read($type, path, described, /)\n--\n\nReads a model file."},
    {"parse", Guarded<ModelParse>, METH_VARARGS | METH_CLASS,
     "parse($type, text, described, /)\n--\n\nReads a model from bytes."},
    {"write", Guarded<ModelWrite>, METH_VARARGS,
     "write($self, path, digits, described, /)\n--\n\nWrites a model file, as a whole."},
    {"text", Guarded<ModelText>, METH_VARARGS,
     "text($self, digits, described, /)\n--\n\nThe content of the model's file."},
    {"score", Guarded<ModelScore>, METH_O,
     "score($self, row, /)\n--\n\n"
     "The score of one row: a list, a tuple or a buffer of numbers, one per column of the model.\n"
     "None and NaN are missing, and so is the number that `missing` is; with missing=None they\n"
     "raise ValueError. Infinite values are scored as they are; predict refuses them."},
    {"score_table", Guarded<ModelScoreTable>, METH_VARARGS,
     "score_table($self, table, out, threads, /)\n--\n\nScores all rows into out, float64 (n,)."},
    {"add_groups", Guarded<ModelAddGroups>, METH_VARARGS,
     "add_groups($self, table, first, end, out, threads, /)\n--\n\n"
     "Adds the outputs of the groups [first, end) to out, float64 (n,)."},
    {"leaves", Guarded<ModelLeaves>, METH_VARARGS,
     "leaves($self, table, out, threads, /)\n--\n\n"
     "The leaf of each row in each tree into out, int32 (n, trees)."},
    {"votes", Guarded<ModelVotes>, METH_VARARGS,
     "votes($self, table, out, threads, /)\n--\n\n"
     "The share of the trees that vote for each class into out, float64 (n, classes)."},
    {"cut", Guarded<Cut>, METH_O,
     "cut($self, num_groups, /)\n--\n\nKeeps the first num_groups groups."},
    {"tree", Guarded<Tree>, METH_O,
     "tree($self, tree, /)\n--\n\nThe nodes of a tree as bytes, its group and its shrink."},
    {"describe", Guarded<Describe>, METH_O,
     "describe($self, key, /)\n--\n\nThe texts of a key of the description."},
    {"set_description", Guarded<SetDescription>, METH_VARARGS,
     "set_description($self, key, texts, /)\n--\n\nReplaces the texts of a key."},
    {nullptr, nullptr, 0, nullptr},
};

PyGetSetDef attributes[] = {
    {"num_columns", Number<&sylvora_model_facts::num_columns>, nullptr, nullptr, nullptr},
    {"num_classes", Number<&sylvora_model_facts::num_classes>, nullptr, "0: regression", nullptr},
    {"num_groups", Number<&sylvora_model_facts::num_groups>, nullptr, nullptr, nullptr},
    {"num_trees", Number<&sylvora_model_facts::num_trees>, nullptr, nullptr, nullptr},
    {"type", Name<&sylvora_model_facts::type>, nullptr, nullptr, nullptr},
    {"loss", Name<&sylvora_model_facts::loss>, nullptr, nullptr, nullptr},
    {nullptr, nullptr, nullptr, nullptr, nullptr},
};

}  // namespace

bool AddModel(PyObject* module) {
    static char documentation[] =
        "A model. Scoring is thread-safe; cut and set_description fail while it is used.";
    static PyType_Slot slots[] = {
        {Py_tp_doc, documentation},
        {Py_tp_new, SlotOf(NoNew)},
        {Py_tp_dealloc, SlotOf(Dealloc<ModelState>)},
        {Py_tp_methods, methods},
        {Py_tp_getset, attributes},
        {0, nullptr},
    };
    static PyType_Spec description = {"sylvora._core.Model",
                                      static_cast<int>(sizeof(Object<ModelState>)), 0,
                                      Py_TPFLAGS_DEFAULT | Py_TPFLAGS_BASETYPE, slots};
    types.model = AddType(module, "Model", description);
    return types.model != nullptr;
}

}  // namespace sylvora::python
