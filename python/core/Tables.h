// The state of the Python class Table.
#ifndef SYLVORA_PYTHON_CORE_TABLES_H
#define SYLVORA_PYTHON_CORE_TABLES_H

#include <cstdint>
#include <deque>
#include <memory>
#include <utility>
#include <vector>

#include "Arrow.h"
#include "Buffers.h"
#include "Support.h"
#include "sylvora_c.h"

namespace sylvora::python {

// A block of the library and what keeps its memory. Immutable once it is made.
struct TableState {
    sylvora_block block = SYLVORA_BLOCK;
    std::vector<sylvora_column> columnV;
    std::deque<Buffer> bufferV;
    std::vector<ArrowOwner<ArrowArray>> arrayV;
    std::deque<std::vector<uint8_t>> copyV;  // what is not borrowed
    Reference_t names;                       // a list of str, or null
    Reference_t base;                        // the Table that owns all this in its place, or null

    // Borrows an array. Returns it, or null with an exception set.
    const Buffer* Take(PyObject* object, const char* what, int numDimensions);
    // Sets the size. Returns false, with an exception set, beyond what the library can number.
    bool SetSize(int64_t numRows, int64_t numColumns);
    // Sets what else is missing, None or a number, and whether NaN is refused.
    bool SetMissing(PyObject* missing, int refuseNan);
};

// What the constructors have in common: makes a state, lets fill(state) set all but the missing
// value, and returns the object.
template <typename Fill>
PyObject* MakeTable(PyObject* type, PyObject* missing, int refuseNan, const Fill& fill) {
    auto state = std::make_unique<TableState>();
    if (!state->SetMissing(missing, refuseNan) || !fill(*state)) return nullptr;
    return Wrap(reinterpret_cast<PyTypeObject*>(type), std::move(state));
}

// Table.from_arrow.
PyObject* TableFromArrow(PyObject* type, PyObject* arguments);

}  // namespace sylvora::python

#endif  // SYLVORA_PYTHON_CORE_TABLES_H
