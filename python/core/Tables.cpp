// The Python class Table, of buffers.
#include "Tables.h"

#include <climits>
#include <cmath>
#include <string>

namespace sylvora::python {

const Buffer* TableState::Take(PyObject* object, const char* what, int numDimensions) {
    Buffer& buffer = bufferV.emplace_back();
    return buffer.Take(object, what, numDimensions) ? &buffer : nullptr;
}

bool TableState::SetSize(int64_t numRows, int64_t numColumns) {
    block.num_rows = numRows;
    block.num_columns = numColumns;
    if (numRows < 0 || numColumns < 0) {
        PyErr_SetString(PyExc_ValueError, "A table cannot have a negative size");
        return false;
    }
    if (numRows <= INT_MAX && numColumns <= INT_MAX) return true;
    PyErr_Format(PyExc_ValueError,
                 "The table has %lld rows and %lld columns, at most %d are possible",
                 static_cast<long long>(numRows), static_cast<long long>(numColumns), INT_MAX);
    return false;
}

bool TableState::SetMissing(PyObject* missing, int refuseNan) {
    block.refuse_infinite = 1;
    block.refuse_nan = refuseNan;
    if (missing == Py_None) return true;
    block.missing = PyFloat_AsDouble(missing);
    if (block.missing == -1.0 && PyErr_Occurred() != nullptr) return false;
    block.has_missing = !std::isnan(block.missing);
    return true;
}

namespace {

PyObject* FromDense(PyObject* type, PyObject* arguments) {
    PyObject* values = nullptr;
    PyObject* missing = nullptr;
    int refuseNan = 0;
    if (!PyArg_ParseTuple(arguments, "OOp:from_dense", &values, &missing, &refuseNan)) {
        return nullptr;
    }
    return MakeTable(type, missing, refuseNan, [&](TableState& state) {
        const Buffer* const buffer = state.Take(values, "values", 2);
        if (buffer == nullptr || !state.SetSize(buffer->Size(0), buffer->Size(1))) return false;
        state.block.layout = SYLVORA_DENSE;
        state.block.type = buffer->Type();
        state.block.values = buffer->Data();
        state.block.row_stride = buffer->Stride(0);
        state.block.column_stride = buffer->Stride(1);
        return true;
    });
}

// Sets the validity of a column.
bool AddValidity(TableState& state, PyObject* bits, const char* what, sylvora_column& column) {
    Buffer& buffer = state.bufferV.emplace_back();
    if (!buffer.TakeBytes(bits, what)) return false;
    const int64_t expected = (state.block.num_rows + 7) / 8;
    if (buffer.Bytes() < expected) {
        PyErr_Format(PyExc_ValueError, "%s: there are %lld bytes of validity, expected %lld", what,
                     static_cast<long long>(buffer.Bytes()), static_cast<long long>(expected));
        return false;
    }
    column.validity = buffer.As<const uint8_t>();
    return true;
}

// Adds a column: an array, or a pair of it and its validity.
bool AddColumn(TableState& state, PyObject* item) {
    const std::string what = "column " + std::to_string(state.columnV.size());
    PyObject* values = item;
    PyObject* validity = nullptr;
    if (PyTuple_Check(item)) {
        if (PyTuple_Size(item) != 2) {
            PyErr_Format(PyExc_ValueError, "%s: a pair of values and validity is needed",
                         what.c_str());
            return false;
        }
        values = PyTuple_GetItem(item, 0);
        validity = PyTuple_GetItem(item, 1);
    }
    const Buffer* const buffer = state.Take(values, what.c_str(), 1);
    const int64_t numRows = state.block.num_rows;
    if (buffer == nullptr || !buffer->CheckLength(what.c_str(), numRows)) return false;
    sylvora_column column = {buffer->Data(), buffer->Type(), 0, nullptr, 0};
    if (numRows > 1) column.stride = buffer->Stride(0);
    if (numRows > 1 && column.stride == 0) {
        PyErr_Format(PyExc_ValueError, "%s: all items are one value in memory: copy the array",
                     what.c_str());
        return false;
    }
    const bool fAll = validity == nullptr || validity == Py_None;
    if (!fAll && !AddValidity(state, validity, what.c_str(), column)) return false;
    state.columnV.push_back(column);
    return true;
}

PyObject* FromColumns(PyObject* type, PyObject* arguments) {
    PyObject* columns = nullptr;
    PyObject* missing = nullptr;
    Py_ssize_t numRows = 0;
    int refuseNan = 0;
    if (!PyArg_ParseTuple(arguments, "OnOp:from_columns", &columns, &numRows, &missing,
                          &refuseNan)) {
        return nullptr;
    }
    return MakeTable(type, missing, refuseNan, [&](TableState& state) {
        // A tuple does not change while columns are asked for their memory.
        const Reference_t items(PySequence_Tuple(columns));
        if (items == nullptr) return false;
        const Py_ssize_t numColumns = PyTuple_Size(items.get());
        if (!state.SetSize(numRows, numColumns)) return false;
        for (Py_ssize_t c = 0; c < numColumns; ++c) {
            if (!AddColumn(state, PyTuple_GetItem(items.get(), c))) return false;
        }
        state.block.layout = SYLVORA_COLUMNS;
        state.block.columns = state.columnV.data();
        return true;
    });
}

// Borrows begins or indices; sets fLong.
const Buffer* TakeIndices(TableState& state, PyObject* object, const char* what, int32_t& fLong) {
    const Buffer* const buffer = state.Take(object, what, 1);
    if (buffer == nullptr) return nullptr;
    fLong = buffer->Type() == SYLVORA_INT64;
    if (fLong == 0 && buffer->Type() != SYLVORA_INT32) {
        PyErr_Format(PyExc_TypeError, "%s: the items must be int32 or int64", what);
        return nullptr;
    }
    if (buffer->IsContiguous()) return buffer;
    PyErr_Format(PyExc_ValueError, "%s: the array is not contiguous", what);
    return nullptr;
}

struct SparseParts {
    PyObject* values = nullptr;
    PyObject* indices = nullptr;
    PyObject* begins = nullptr;
};

// The library checks all begins and indices, but cannot know how many entries there are. The begins
// are copied: a program that changes them in spite of all warnings must not make it read elsewhere.
bool FillSparse(TableState& state, bool fByRows, const SparseParts& parts) {
    sylvora_block& block = state.block;
    block.layout = fByRows ? SYLVORA_SPARSE_ROWS : SYLVORA_SPARSE_COLUMNS;
    const Buffer* const values = state.Take(parts.values, "values", 1);
    if (values == nullptr) return false;
    const Buffer* const indices = TakeIndices(state, parts.indices, "indices", block.long_indices);
    if (indices == nullptr || !indices->CheckLength("indices", values->Size(0))) return false;
    const Buffer* const begins = TakeIndices(state, parts.begins, "begins", block.long_begins);
    const int64_t numLines = fByRows ? block.num_rows : block.num_columns;
    if (begins == nullptr || !begins->CheckLength("begins", numLines + 1)) return false;
    if (!values->IsContiguous()) {
        PyErr_SetString(PyExc_ValueError, "values: the array is not contiguous");
        return false;
    }
    const auto copied = static_cast<size_t>(numLines + 1) * (block.long_begins != 0 ? 8 : 4);
    const auto* const first = begins->As<const uint8_t>();
    state.copyV.emplace_back(first, first + copied);
    const void* const copy = state.copyV.back().data();
    const auto end =
        static_cast<int64_t>(block.long_begins != 0 ? static_cast<const int64_t*>(copy)[numLines]
                                                    : static_cast<const int32_t*>(copy)[numLines]);
    if (end > values->Size(0)) {
        PyErr_Format(PyExc_ValueError, "begins: the last one is %lld, but there are %lld values",
                     static_cast<long long>(end), static_cast<long long>(values->Size(0)));
        return false;
    }
    block.type = values->Type();
    block.values = values->Data();
    block.indices = indices->Data();
    block.begins = copy;
    return true;
}

PyObject* FromSparse(PyObject* type, PyObject* arguments) {
    Py_ssize_t numRows = 0;
    Py_ssize_t numColumns = 0;
    int byRows = 0;
    SparseParts parts;
    PyObject* missing = nullptr;
    int refuseNan = 0;
    if (!PyArg_ParseTuple(arguments, "(nn)pOOOOp:from_sparse", &numRows, &numColumns, &byRows,
                          &parts.values, &parts.indices, &parts.begins, &missing, &refuseNan)) {
        return nullptr;
    }
    return MakeTable(type, missing, refuseNan, [&](TableState& state) {
        return state.SetSize(numRows, numColumns) && FillSparse(state, byRows != 0, parts);
    });
}

// Adds column c of `from`, and its name to the list `names` if it has one.
bool AddSelected(const TableState& from, Py_ssize_t c, TableState& state) {
    if (c < 0 || c >= from.block.num_columns) {
        PyErr_Format(PyExc_IndexError, "There is no column %zd", c);
        return false;
    }
    state.columnV.push_back(from.columnV[static_cast<size_t>(c)]);
    return from.names == nullptr ||
           PyList_Append(state.names.get(), PyList_GetItem(from.names.get(), c)) == 0;
}

PyObject* Select(PyObject* self, PyObject* order) {
    const TableState& from = StateOf<TableState>(self);
    if (from.block.layout != SYLVORA_COLUMNS) {
        PyErr_SetString(PyExc_ValueError, "Columns can be selected in tables by column only");
        return nullptr;
    }
    const Reference_t items(PySequence_Tuple(order));
    if (items == nullptr) return nullptr;
    auto state = std::make_unique<TableState>();
    state->block = from.block;
    state->base = NewReference(self);
    if (from.names != nullptr) state->names.reset(PyList_New(0));
    if (from.names != nullptr && state->names == nullptr) return nullptr;
    if (!state->SetSize(from.block.num_rows, PyTuple_Size(items.get()))) return nullptr;
    for (Py_ssize_t i = 0; i < PyTuple_Size(items.get()); ++i) {
        const Py_ssize_t column =
            PyNumber_AsSsize_t(PyTuple_GetItem(items.get(), i), PyExc_IndexError);
        if (column == -1 && PyErr_Occurred() != nullptr) return nullptr;
        if (!AddSelected(from, column, *state)) return nullptr;
    }
    state->block.columns = state->columnV.data();
    return Wrap(Py_TYPE(self), std::move(state));
}

PyObject* NoNew(PyTypeObject* /*type*/, PyObject* /*arguments*/, PyObject* /*keywords*/) {
    PyErr_SetString(PyExc_TypeError,
                    "A Table is made by from_dense, from_columns, from_sparse or from_arrow");
    return nullptr;
}

PyObject* NumRows(PyObject* self, void* /*closure*/) {
    return PyLong_FromLongLong(StateOf<TableState>(self).block.num_rows);
}

PyObject* NumColumns(PyObject* self, void* /*closure*/) {
    return PyLong_FromLongLong(StateOf<TableState>(self).block.num_columns);
}

PyObject* Names(PyObject* self, void* /*closure*/) {
    PyObject* const names = StateOf<TableState>(self).names.get();
    if (names == nullptr) Py_RETURN_NONE;
    return PyList_GetSlice(names, 0, PyList_Size(names));
}

PyMethodDef methods[] = {
    {"from_dense", Guarded<FromDense>, METH_VARARGS | METH_CLASS,
     "from_dense($type, values, missing, refuse_nan, /)\n--\n\n"
     "A table of a buffer with two dimensions, in any strides."},
    {"from_columns", Guarded<FromColumns>, METH_VARARGS | METH_CLASS,
     "from_columns($type, columns, num_rows, missing, refuse_nan, /)\n--\n\n"
     "A table of one buffer per column, or pairs of a buffer and validity bits."},
    {"from_sparse", Guarded<FromSparse>, METH_VARARGS | METH_CLASS,
     "from_sparse($type, shape, by_rows, values, indices, begins, missing, refuse_nan, /)\n--\n\n"
     "A table of a CSR or, unless by_rows, a CSC matrix; an absent value is 0."},
    {"from_arrow", Guarded<TableFromArrow>, METH_VARARGS | METH_CLASS,
     "from_arrow($type, data, missing, refuse_nan, /)\n--\n\n"
     "A table of an object with __arrow_c_stream__ or __arrow_c_array__."},
    {"select", Guarded<Select>, METH_O,
     "select($self, order, /)\n--\n\nThe same rows with these columns, in this order."},
    {nullptr, nullptr, 0, nullptr},
};

PyGetSetDef attributes[] = {
    {"num_rows", NumRows, nullptr, nullptr, nullptr},
    {"num_columns", NumColumns, nullptr, nullptr, nullptr},
    {"names", Names, nullptr, "Names of the columns of an Arrow table, or None.", nullptr},
    {nullptr, nullptr, nullptr, nullptr, nullptr},
};

}  // namespace

bool AddTable(PyObject* module) {
    static char documentation[] =
        "Borrowed values: keeps references to the buffers. Immutable; do not change the values.";
    static PyType_Slot slots[] = {
        {Py_tp_doc, documentation},
        {Py_tp_new, SlotOf(NoNew)},
        {Py_tp_dealloc, SlotOf(Dealloc<TableState>)},
        {Py_tp_methods, methods},
        {Py_tp_getset, attributes},
        {0, nullptr},
    };
    static PyType_Spec description = {"sylvora._core.Table",
                                      static_cast<int>(sizeof(Object<TableState>)), 0,
                                      Py_TPFLAGS_DEFAULT, slots};
    types.table = AddType(module, "Table", description);
    return types.table != nullptr;
}

}  // namespace sylvora::python
