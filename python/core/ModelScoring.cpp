// Scoring with the Python class Model, and the functions of losses.
#include <algorithm>
#include <array>
#include <cmath>
#include <vector>

#include "Buffers.h"
#include "Models.h"
#include "Tables.h"

namespace sylvora::python {
namespace {

constexpr size_t kSmallRow = 256;

// Memory for a row of doubles: on the stack unless it is long.
class RowMemory {
  public:
    explicit RowMemory(size_t size) {
        if (size > kSmallRow) longV.resize(size);
    }
    double* Get() { return longV.empty() ? small.data() : longV.data(); }

  private:
    std::array<double, kSmallRow> small;  // not initialised
    std::vector<double> longV;
};

bool CheckWidth(int64_t numValues, int64_t numColumns) {
    if (numValues == numColumns) return true;
    PyErr_Format(PyExc_ValueError, "The row has %lld values, the model needs %lld",
                 static_cast<long long>(numValues), static_cast<long long>(numColumns));
    return false;
}

// Says which item could not be converted, except if its own code raised something else.
void RaiseItemError(Py_ssize_t i, PyObject* item) {
    const bool fType = PyErr_ExceptionMatches(PyExc_TypeError) != 0;
    if (!fType && PyErr_ExceptionMatches(PyExc_OverflowError) == 0) return;
    PyErr_Clear();
    const Reference_t type(
        PyObject_GetAttrString(reinterpret_cast<PyObject*>(Py_TYPE(item)), "__name__"));
    if (type == nullptr) return;
    if (fType) {
        PyErr_Format(PyExc_TypeError, "Item %zd of the row is a %U, not a number", i, type.get());
    } else {
        PyErr_Format(PyExc_ValueError, "Item %zd of the row is beyond the range of a float", i);
    }
}

// Converts an item that is not simply a float, which can run Python code.
bool ConvertItem(PyObject* lent, Py_ssize_t i, double& value) {
    if (lent == Py_None) {
        value = std::numeric_limits<double>::quiet_NaN();
        return true;
    }
    const Reference_t item = NewReference(lent);
    value = PyFloat_AsDouble(item.get());
    if (value != -1.0 || PyErr_Occurred() == nullptr) return true;
    RaiseItemError(i, item.get());
    return false;
}

// Copies the items of a list or a tuple. A conversion may change a list: its length is checked
// again after each.
template <Py_ssize_t (*kSize)(PyObject*), PyObject* (*kItem)(PyObject*, Py_ssize_t)>
bool CopyItems(PyObject* row, int64_t numColumns, double* values) {
    if (!CheckWidth(kSize(row), numColumns)) return false;
    for (Py_ssize_t i = 0; i < numColumns; ++i) {
        PyObject* const item = kItem(row, i);
        if (PyFloat_CheckExact(item)) {
            values[i] = PyFloat_AsDouble(item);
        } else if (!ConvertItem(item, i, values[i]) || !CheckWidth(kSize(row), numColumns)) {
            return false;
        }
    }
    return true;
}

bool CheckNoNan(const double* values, int64_t numColumns) {
    for (int64_t c = 0; c < numColumns; ++c) {
        if (!std::isnan(values[c])) continue;
        PyErr_Format(PyExc_ValueError,
                     "row: column %lld is missing, but the model was trained with missing=None",
                     static_cast<long long>(c));
        return false;
    }
    return true;
}

PyObject* ScoreValues(ModelState& state, double* values) {
    const int64_t numColumns = state.facts.num_columns;
    if (!state.fNanMissing && !CheckNoNan(values, numColumns)) return nullptr;
    if (!std::isnan(state.missing)) {
        std::replace(values, values + numColumns, state.missing,
                     std::numeric_limits<double>::quiet_NaN());
    }
    double score = 0.0;
    if (sylvora_model_score_row(state.model, values, numColumns, &score) != 0) {
        return RaiseLibraryError(PyExc_ValueError);
    }
    return PyFloat_FromDouble(score);
}

// Scores a buffer: in place if it has contiguous doubles and none of them is to be replaced.
PyObject* ScoreBuffer(ModelState& state, PyObject* row) {
    Buffer buffer;
    const int64_t numColumns = state.facts.num_columns;
    if (!buffer.Take(row, "The row", 1) || !CheckWidth(buffer.Size(0), numColumns)) {
        return nullptr;
    }
    if (buffer.Type() == SYLVORA_FLOAT64 && buffer.IsContiguous() && std::isnan(state.missing)) {
        return ScoreValues(state, buffer.As<double>());
    }
    RowMemory memory(static_cast<size_t>(numColumns));
    double* const values = memory.Get();
    const char* item = buffer.As<const char>();
    for (int64_t i = 0; i < numColumns; ++i, item += buffer.Stride(0)) {
        values[i] = ValueAt(item, buffer.Type());
    }
    return ScoreValues(state, values);
}

// Borrows an array for results with these dimensions; numColumns 0: one dimension.
bool TakeOutput(Buffer& buffer, PyObject* out, sylvora_type wanted, int64_t numRows,
                int64_t numColumns) {
    const int numDimensions = numColumns > 0 ? 2 : 1;
    if (!buffer.Take(out, "out", numDimensions) || !buffer.CheckLength("out", numRows)) {
        return false;
    }
    if (buffer.Type() != wanted) {
        PyErr_Format(PyExc_TypeError, "out: the items must be %s",
                     wanted == SYLVORA_INT32 ? "int32" : "float64");
        return false;
    }
    if (numDimensions == 2 && buffer.Size(1) != numColumns) {
        PyErr_Format(PyExc_ValueError, "out: the array has %lld columns, expected %lld",
                     static_cast<long long>(buffer.Size(1)), static_cast<long long>(numColumns));
        return false;
    }
    return buffer.CheckOutput("out");
}

bool CheckThreads(int threads) {
    if (threads >= 0) return true;
    PyErr_Format(PyExc_ValueError, "threads is %d, expected 0 (all processors) or more", threads);
    return false;
}

// Calls score(block, out data) without the lock; returns None.
template <typename Score>
PyObject* ScoreBlock(ModelState& state, PyObject* table, const Buffer& out, const Score& score) {
    const sylvora_block& block = StateOf<TableState>(table).block;
    const int status = ModelUse(state).Run([&] { return score(block, out.Data()); });
    if (status != 0) return RaiseLibraryError(PyExc_ValueError);
    Py_RETURN_NONE;
}

// The arguments table, out and threads, with the array for results.
struct ScoringArguments {
    PyObject* table = nullptr;
    PyObject* array = nullptr;
    int threads = 0;
    Buffer out;

    // Checks the arguments once they are parsed, and borrows the array.
    bool Take(sylvora_type wanted, int64_t numColumns) {
        const int64_t numRows = StateOf<TableState>(table).block.num_rows;
        return CheckThreads(threads) && TakeOutput(out, array, wanted, numRows, numColumns);
    }
    bool Parse(PyObject* arguments, sylvora_type wanted, int64_t numColumns) {
        return PyArg_ParseTuple(arguments, "O!Oi", types.table, &table, &array, &threads) != 0 &&
               Take(wanted, numColumns);
    }
};

}  // namespace

PyObject* ModelScore(PyObject* self, PyObject* row) {
    ModelState& state = StateOf<ModelState>(self);
    const int64_t numColumns = state.facts.num_columns;
    const bool fList = PyList_Check(row);
    if (!fList && !PyTuple_Check(row)) {
        if (PyObject_CheckBuffer(row)) return ScoreBuffer(state, row);
        PyErr_SetString(PyExc_TypeError,
                        "A row must be a list, a tuple or an array with one dimension; of a pandas "
                        "row pass row.to_numpy()");
        return nullptr;
    }
    RowMemory memory(static_cast<size_t>(numColumns));
    double* const values = memory.Get();
    const bool fCopied = fList ? CopyItems<PyList_Size, PyList_GetItem>(row, numColumns, values)
                               : CopyItems<PyTuple_Size, PyTuple_GetItem>(row, numColumns, values);
    return fCopied ? ScoreValues(state, values) : nullptr;
}

PyObject* ModelScoreTable(PyObject* self, PyObject* arguments) {
    ModelState& state = StateOf<ModelState>(self);
    ScoringArguments given;
    if (!given.Parse(arguments, SYLVORA_FLOAT64, 0)) return nullptr;
    return ScoreBlock(state, given.table, given.out, [&](const sylvora_block& block, void* out) {
        return sylvora_model_score(state.model, &block, static_cast<double*>(out), given.threads);
    });
}

PyObject* ModelAddGroups(PyObject* self, PyObject* arguments) {
    ModelState& state = StateOf<ModelState>(self);
    ScoringArguments given;
    long long first = 0;
    long long end = 0;
    if (!PyArg_ParseTuple(arguments, "O!LLOi:add_groups", types.table, &given.table, &first, &end,
                          &given.array, &given.threads) ||
        !given.Take(SYLVORA_FLOAT64, 0)) {
        return nullptr;
    }
    return ScoreBlock(state, given.table, given.out, [&](const sylvora_block& block, void* out) {
        return sylvora_model_add_groups(state.model, &block, first, end, static_cast<double*>(out),
                                        given.threads);
    });
}

PyObject* ModelLeaves(PyObject* self, PyObject* arguments) {
    ModelState& state = StateOf<ModelState>(self);
    ScoringArguments given;
    if (!given.Parse(arguments, SYLVORA_INT32, state.facts.num_trees)) return nullptr;
    return ScoreBlock(state, given.table, given.out, [&](const sylvora_block& block, void* out) {
        return sylvora_model_leaves(state.model, &block, static_cast<int32_t*>(out), given.threads);
    });
}

PyObject* ModelVotes(PyObject* self, PyObject* arguments) {
    ModelState& state = StateOf<ModelState>(self);
    ScoringArguments given;
    if (state.facts.num_classes == 0) {
        PyErr_SetString(PyExc_ValueError, "The model is a regression: its trees have no votes");
        return nullptr;
    }
    if (!given.Parse(arguments, SYLVORA_FLOAT64, state.facts.num_classes)) return nullptr;
    return ScoreBlock(state, given.table, given.out, [&](const sylvora_block& block, void* out) {
        return sylvora_model_votes(state.model, &block, static_cast<double*>(out), given.threads);
    });
}

}  // namespace sylvora::python
