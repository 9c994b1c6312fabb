// Table.column: the values of one column.
#include <algorithm>
#include <cmath>
#include <limits>

#include "Tables.h"

namespace sylvora::python {
namespace {

constexpr double kNan = std::numeric_limits<double>::quiet_NaN();

int64_t BytesOf(sylvora_type type) {
    switch (type) {
        case SYLVORA_FLOAT64:
        case SYLVORA_INT64:
        case SYLVORA_UINT64:
            return 8;
        case SYLVORA_FLOAT32:
        case SYLVORA_INT32:
        case SYLVORA_UINT32:
            return 4;
        case SYLVORA_INT16:
        case SYLVORA_UINT16:
            return 2;
        case SYLVORA_INT8:
        case SYLVORA_UINT8:
            break;
    }
    return 1;
}

double ItemAt(const void* values, int64_t offset, sylvora_type type) {
    return ValueAt(static_cast<const char*>(values) + offset, type);
}

int64_t IndexAt(const void* indices, int32_t fLong, int64_t i) {
    if (fLong != 0) return static_cast<const int64_t*>(indices)[i];
    return static_cast<const int32_t*>(indices)[i];
}

void ReadColumn(const sylvora_column& column, int64_t numRows, double* out) {
    const auto type = static_cast<sylvora_type>(column.type);
    const int64_t stride = column.stride != 0 ? column.stride : BytesOf(type);
    for (int64_t r = 0; r < numRows; ++r) {
        const int64_t bit = column.validity_offset + r;
        const bool fValid =
            column.validity == nullptr || (column.validity[bit / 8] >> (bit % 8) & 1) != 0;
        out[r] = fValid ? ItemAt(column.values, r * stride, type) : kNan;
    }
}

// Begins and indices that are out of range are skipped here; a data set refuses them.
void ReadSparse(const sylvora_block& block, int64_t column, double* out) {
    const auto type = static_cast<sylvora_type>(block.type);
    const int64_t bytes = BytesOf(type);
    const bool fByRows = block.layout == SYLVORA_SPARSE_ROWS;
    const int64_t last =
        IndexAt(block.begins, block.long_begins, fByRows ? block.num_rows : block.num_columns);
    const auto begin = [&](int64_t line) {
        return std::clamp<int64_t>(IndexAt(block.begins, block.long_begins, line), 0, last);
    };
    std::fill(out, out + block.num_rows, 0.0);
    for (int64_t r = 0; fByRows && r < block.num_rows; ++r) {
        for (int64_t k = begin(r); k < begin(r + 1); ++k) {
            const int64_t index = IndexAt(block.indices, block.long_indices, k);
            if (index == column) out[r] = ItemAt(block.values, k * bytes, type);
            if (index >= column) break;
        }
    }
    if (fByRows) return;
    for (int64_t k = begin(column); k < begin(column + 1); ++k) {
        const int64_t row = IndexAt(block.indices, block.long_indices, k);
        if (row >= 0 && row < block.num_rows) out[row] = ItemAt(block.values, k * bytes, type);
    }
}

void Read(const sylvora_block& block, int64_t column, double* out) {
    if (block.layout == SYLVORA_COLUMNS) {
        ReadColumn(block.columns[column], block.num_rows, out);
    } else if (block.layout == SYLVORA_DENSE) {
        const auto type = static_cast<sylvora_type>(block.type);
        for (int64_t r = 0; r < block.num_rows; ++r) {
            out[r] =
                ItemAt(block.values, r * block.row_stride + column * block.column_stride, type);
        }
    } else {
        ReadSparse(block, column, out);
    }
    if (block.has_missing != 0) std::replace(out, out + block.num_rows, block.missing, kNan);
}

}  // namespace

PyObject* TableColumn(PyObject* self, PyObject* arguments) {
    const sylvora_block& block = StateOf<TableState>(self).block;
    Py_ssize_t column = 0;
    PyObject* object = nullptr;
    if (!PyArg_ParseTuple(arguments, "nO:column", &column, &object)) return nullptr;
    if (column < 0 || column >= block.num_columns) {
        PyErr_Format(PyExc_IndexError, "There is no column %zd", column);
        return nullptr;
    }
    Buffer out;
    if (!out.TakeArray(object, "out", SYLVORA_FLOAT64) || !out.CheckOutput("out") ||
        !out.CheckLength("out", block.num_rows)) {
        return nullptr;
    }
    Read(block, column, out.As<double>());
    Py_RETURN_NONE;
}

}  // namespace sylvora::python
