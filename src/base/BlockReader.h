// Reads the values of a borrowed block as doubles.
#ifndef SYLVORA_BASE_BLOCKREADER_H
#define SYLVORA_BASE_BLOCKREADER_H

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "../DataBlock.h"

namespace sylvora {

// Why a block cannot be read, as a part of a sentence: null pointers, negative sizes, more rows or
// columns than an int can number, overlapping cells, or sparse indices that are out of range or do
// not ascend. Empty if it can be read. Takes time in proportion to the entries of a sparse matrix,
// otherwise to the number of columns.
std::string FaultOf(const DataBlock& block);

// Immutable and thread-safe. Copies the description, not the values. The block must have no fault.
class BlockReader {
  public:
    explicit BlockReader(const DataBlock& data);

    int NumRows() const { return static_cast<int>(block.numRows); }
    int NumColumns() const { return static_cast<int>(block.numColumns); }

    // One value; kMissingValue if it is missing.
    double At(int row, int column) const;
    // Writes the first `numColumns` columns of the rows [begin, end) to `values`, row by row.
    void ReadRows(int begin, int end, int numColumns, double* values) const;
    // Calls visit(row, value) for the rows [begin, end) of a column, in ascending order.
    template <typename Visit>
    void ForColumn(int column, int begin, int end, const Visit& visit) const {
        if (block.layout == DataBlock::Layout::kSparseRows) {
            for (int row = begin; row < end; ++row) visit(row, At(row, column));
        } else if (block.layout == DataBlock::Layout::kSparseColumns) {
            ForSparseColumn(column, begin, end, visit);
        } else {
            ForStoredColumn(columnV[static_cast<size_t>(column)], begin, end, visit);
        }
    }
    // The first value, row by row, that the block's rules refuse, as a part of a sentence; empty if
    // there is none.
    std::string RefusedValue() const;

  private:
    template <typename Value>
    struct Tag {
        typedef Value Type;
    };
    // Calls action(Tag<T>()) with the C++ type of `type`.
    template <typename Action>
    static auto WithType(ValueType type, const Action& action) {
        switch (type) {
            case ValueType::kFloat32:
                return action(Tag<float>());
            case ValueType::kInt64:
                return action(Tag<std::int64_t>());
            case ValueType::kInt32:
                return action(Tag<std::int32_t>());
            case ValueType::kInt16:
                return action(Tag<std::int16_t>());
            case ValueType::kInt8:
                return action(Tag<std::int8_t>());
            case ValueType::kUInt64:
                return action(Tag<std::uint64_t>());
            case ValueType::kUInt32:
                return action(Tag<std::uint32_t>());
            case ValueType::kUInt16:
                return action(Tag<std::uint16_t>());
            case ValueType::kUInt8:
                return action(Tag<std::uint8_t>());
            case ValueType::kFloat64:
                break;
        }
        return action(Tag<double>());
    }
    // Reads an element that need not be aligned.
    template <typename Value>
    static double Load(const char* at) {
        Value value;
        std::memcpy(&value, at, sizeof value);
        return static_cast<double>(value);
    }
    static std::int64_t LoadIndex(const void* indices, bool fLong, std::int64_t i) {
        std::int64_t wide = 0;
        std::int32_t narrow = 0;
        if (fLong) {
            std::memcpy(&wide, static_cast<const char*>(indices) + i * 8, sizeof wide);
            return wide;
        }
        std::memcpy(&narrow, static_cast<const char*>(indices) + i * 4, sizeof narrow);
        return narrow;
    }
    friend std::string FaultOf(const DataBlock& block);

    std::int64_t Begin(int line) const { return LoadIndex(block.begins, block.fLongBegins, line); }
    int Index(std::int64_t entry) const {
        return static_cast<int>(LoadIndex(block.indices, block.fLongIndices, entry));
    }
    double Stored(std::int64_t entry) const;
    double SparseAt(int line, int place) const;
    bool IsSparse() const { return columnV.empty(); }

    static bool IsPresent(const DataColumn& column, int row) {
        const std::int64_t bit = column.validityOffset + row;
        return column.validity == nullptr || ((column.validity[bit / 8] >> bit % 8) & 1) != 0;
    }
    double Clean(double value) const {
        const bool fMissing = std::isnan(value) ? block.fNanMissing : value == block.missing;
        return fMissing ? kMissingValue : value;
    }

    template <typename Visit>
    void ForStoredColumn(const DataColumn& column, int begin, int end, const Visit& visit) const {
        WithType(column.type, [&](auto tag) {
            typedef typename decltype(tag)::Type Value;
            const char* const values = static_cast<const char*>(column.values);
            for (int row = begin; row < end; ++row) {
                visit(row, IsPresent(column, row) ? Clean(Load<Value>(values + row * column.stride))
                                                  : kMissingValue);
            }
        });
    }
    template <typename Visit>
    void ForSparseColumn(int column, int begin, int end, const Visit& visit) const {
        const double absent = Clean(0.0);
        const std::int64_t endEntry = Begin(column + 1);
        std::int64_t entry = EntryFrom(column, begin);
        for (int row = begin; row < end; ++row) {
            const bool fStored = entry < endEntry && Index(entry) == row;
            visit(row, fStored ? Stored(entry) : absent);
            entry += fStored;
        }
    }
    // The first entry of a compressed row or column whose index is at least `place`.
    std::int64_t EntryFrom(int line, int place) const;

    DataBlock block;
    std::vector<DataColumn> columnV;  // empty for sparse layouts; strides are never 0
};

}  // namespace sylvora

#endif  // SYLVORA_BASE_BLOCKREADER_H
