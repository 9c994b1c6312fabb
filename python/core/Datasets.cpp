// The Python class Dataset.
#include "Datasets.h"

#include "Buffers.h"
#include "Tables.h"

namespace sylvora::python {

DatasetState::~DatasetState() {
    sylvora_dataset_free(data);
}

namespace {

PyObject* New(PyTypeObject* type, PyObject* arguments, PyObject* keywords) {
    PyObject* table = nullptr;
    if (keywords != nullptr && PyDict_Size(keywords) > 0) {
        PyErr_SetString(PyExc_TypeError, "Dataset() takes no keyword arguments");
        return nullptr;
    }
    if (!PyArg_ParseTuple(arguments, "O!:Dataset", types.table, &table)) return nullptr;
    auto state = std::make_unique<DatasetState>();
    state->table = NewReference(table);
    const sylvora_block& block = StateOf<TableState>(table).block;
    int status = 0;
    {
        const LockRelease unlocked;
        status = sylvora_dataset_new(&block, &state->data);
    }
    if (status != 0) return RaiseLibraryError(PyExc_ValueError);
    return Wrap(type, std::move(state));
}

PyObject* Subset(PyObject* self, PyObject* rows) {
    Buffer buffer;
    if (!buffer.TakeArray(rows, "rows", SYLVORA_INT32)) return nullptr;
    const DatasetState& whole = StateOf<DatasetState>(self);
    auto state = std::make_unique<DatasetState>();
    state->table = NewReference(whole.table.get());
    state->communicator = whole.communicator;
    int status = 0;
    {
        const LockRelease unlocked;
        status =
            sylvora_dataset_subset(whole.data, buffer.As<int32_t>(), buffer.Size(0), &state->data);
    }
    if (status != 0) return RaiseLibraryError(PyExc_ValueError);
    return Wrap(types.dataset, std::move(state));
}

PyObject* Column(PyObject* self, PyObject* arguments) {
    const DatasetState& state = StateOf<DatasetState>(self);
    Py_ssize_t column = 0;
    PyObject* array = nullptr;
    Buffer out;
    if (!PyArg_ParseTuple(arguments, "nO:column", &column, &array) ||
        !out.TakeOutput(array, "out", sylvora_dataset_rows(state.data))) {
        return nullptr;
    }
    int status = 0;
    if (state.communicator != nullptr) state.communicator->fEnding = IsEnding();
    {
        const LockRelease unlocked;
        status = sylvora_dataset_column(state.data, column, out.As<double>());
    }
    if (status == 0) Py_RETURN_NONE;
    if (state.communicator != nullptr && state.communicator->error.Raise()) return nullptr;
    return RaiseLibraryError(PyExc_IndexError);
}

PyObject* Gather(PyObject* /*type*/, PyObject* arguments) {
    PyObject* object = nullptr;
    PyObject* table = nullptr;
    if (!PyArg_ParseTuple(arguments, "OO!:gather", &object, types.table, &table)) return nullptr;
    auto state = std::make_unique<DatasetState>();
    state->communicator = std::make_shared<CommunicatorState>();
    CommunicatorState& communicator = *state->communicator;
    communicator.object = NewReference(object);
    communicator.fEnding = IsEnding();
    sylvora_communicator functions = SYLVORA_COMMUNICATOR;
    if (!communicator.Describe(functions)) return nullptr;
    const sylvora_block& share = StateOf<TableState>(table).block;
    int status = 0;
    {
        const LockRelease unlocked;
        status =
            sylvora_dataset_gather(&functions, &share, nullptr, nullptr, nullptr, &state->data);
    }
    if (status == 0) return Wrap(types.dataset, std::move(state));
    if (communicator.error.Raise()) return nullptr;
    return RaiseLibraryError(PyExc_ValueError);
}

PyObject* NumRows(PyObject* self, void* /*closure*/) {
    return PyLong_FromLongLong(sylvora_dataset_rows(StateOf<DatasetState>(self).data));
}

PyObject* NumColumns(PyObject* self, void* /*closure*/) {
    return PyLong_FromLongLong(sylvora_dataset_columns(StateOf<DatasetState>(self).data));
}

PyMethodDef methods[] = {
    {"gather", Guarded<Gather>, METH_VARARGS | METH_CLASS,
     "gather($type, communicator, table, /)\n--\n\nThe rows of all ranks, each of which calls."},
    {"subset", Guarded<Subset>, METH_O,
     "subset($self, rows, /)\n--\n\nThe rows of these numbers, int32, in this order."},
    {"column", Guarded<Column>, METH_VARARGS,
     "column($self, column, out, /)\n--\n\n"
     "Copies a column into out, float64 (n,); a missing value is -2147483648."},
    {nullptr, nullptr, 0, nullptr},
};

PyGetSetDef attributes[] = {
    {"num_rows", NumRows, nullptr, nullptr, nullptr},
    {"num_columns", NumColumns, nullptr, nullptr, nullptr},
    {nullptr, nullptr, nullptr, nullptr, nullptr},
};

}  // namespace

bool AddDataset(PyObject* module) {
    static char documentation[] =
        "Dataset(table, /)\n--\n\n"
        "A table that is coded once, by the first training that uses it. Thread-safe.";
    static PyType_Slot slots[] = {
        {Py_tp_doc, documentation},
        {Py_tp_new, SlotOf(GuardedNew<New>)},
        {Py_tp_dealloc, SlotOf(Dealloc<DatasetState>)},
        {Py_tp_methods, methods},
        {Py_tp_getset, attributes},
        {0, nullptr},
    };
    static PyType_Spec description = {"sylvora._core.Dataset",
                                      static_cast<int>(sizeof(Object<DatasetState>)), 0,
                                      Py_TPFLAGS_DEFAULT, slots};
    types.dataset = AddType(module, "Dataset", description);
    return types.dataset != nullptr;
}

}  // namespace sylvora::python
