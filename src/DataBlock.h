// Feature values that belong to the caller: a description of where they are, never a copy.
#ifndef SYLVORA_DATABLOCK_H
#define SYLVORA_DATABLOCK_H

#include <cstddef>
#include <cstdint>
#include <limits>
#include <type_traits>

#include "Libdef.h"

namespace sylvora {

// The type of stored values. All are read as doubles; integers beyond 2^53 are rounded.
enum class ValueType {
    kFloat64,
    kFloat32,
    kInt64,
    kInt32,
    kInt16,
    kInt8,
    kUInt64,
    kUInt32,
    kUInt16,
    kUInt8
};

// One column of a block, or the stored values of a sparse matrix.
struct DataColumn {
    const void* values = nullptr;
    ValueType type = ValueType::kFloat64;
    std::ptrdiff_t stride = 0;  // bytes from one value to the next; 0: values are contiguous
    // One bit per row, least significant bit first, as Arrow has it: 0 is a missing value, and what
    // `values` holds there is not read. The bit of row 0 is number `validityOffset`. Null: all
    // values are present.
    const std::uint8_t* validity = nullptr;
    std::int64_t validityOffset = 0;
};

// A table of numRows x numColumns values in one of four layouts. A plain value: copy it freely.
// What it points to must stay valid and unchanged as long as anything made from the block is in
// use, except where a function says otherwise. Nothing needs to be aligned.
struct DataBlock {
    enum class Layout {
        // The value of (row, column) is at values + row * rowStride + column * columnStride.
        // Strides are in bytes and may be negative. Cells must not overlap.
        kDense,
        // columns[0, numColumns), each described by itself.
        kColumns,
        // Compressed sparse rows: row r has the values stored.values[begins[r], begins[r + 1]), of
        // the columns indices[...], which ascend within a row. An absent value is 0.
        kSparseRows,
        // Compressed sparse columns: the same with rows and columns exchanged.
        kSparseColumns
    };

    Layout layout = Layout::kDense;
    std::int64_t numRows = 0;
    std::int64_t numColumns = 0;

    // kDense.
    const void* values = nullptr;
    ValueType type = ValueType::kFloat64;
    std::ptrdiff_t rowStride = 0;
    std::ptrdiff_t columnStride = 0;

    // kColumns.
    const DataColumn* columns = nullptr;

    // kSparseRows, kSparseColumns. begins and indices are int64_t if their flag is set, otherwise
    // int32_t. Only values and type of `stored` are used.
    DataColumn stored;
    const void* begins = nullptr;
    const void* indices = nullptr;
    bool fLongBegins = false;
    bool fLongIndices = false;

    // A value equal to this one is missing, and is read as -2147483648, which is the missing value
    // of data files. NaN: only NaN is missing.
    double missing = std::numeric_limits<double>::quiet_NaN();
    // Whether NaN is missing, too. Otherwise a NaN is refused.
    bool fNanMissing = true;
    // Whether an infinite value is refused. Otherwise it can be scored, but not trained on.
    bool fInfiniteRefused = false;
};

// What a missing value is read as.
constexpr double kMissingValue = -2147483648.0;

// A dense block of doubles or floats, row by row; `stride` is in values, at least numColumns.
template <typename Value>
DataBlock RowsOf(const Value* values, std::int64_t numRows, std::int64_t numColumns,
                 std::int64_t stride) {
    static_assert(std::is_same_v<Value, double> || std::is_same_v<Value, float>);
    constexpr std::int64_t kSize = sizeof(Value);
    constexpr std::int64_t kMost = std::numeric_limits<std::int64_t>::max();
    DataBlock block;
    block.numRows = numRows;
    block.numColumns = numColumns;
    block.values = values;
    block.type = std::is_same_v<Value, double> ? ValueType::kFloat64 : ValueType::kFloat32;
    // A stride beyond all memory stays one, and is refused where the block is used.
    block.rowStride = stride > kMost / kSize || stride < -kMost / kSize ? kMost : stride * kSize;
    block.columnStride = kSize;
    return block;
}

}  // namespace sylvora

#endif  // SYLVORA_DATABLOCK_H
