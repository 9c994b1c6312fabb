// Checks and reads borrowed blocks; see BlockReader.h.
#include "BlockReader.h"

#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <limits>

#include "../god/Report.h"

namespace sylvora {
namespace {

typedef DataBlock::Layout Layout;

constexpr std::int64_t kMostRows = INT_MAX - 8;

std::int64_t SizeOf(ValueType type) {
    switch (type) {
        case ValueType::kFloat64:
        case ValueType::kInt64:
        case ValueType::kUInt64:
            return 8;
        case ValueType::kFloat32:
        case ValueType::kInt32:
        case ValueType::kUInt32:
            return 4;
        case ValueType::kInt16:
        case ValueType::kUInt16:
            return 2;
        case ValueType::kInt8:
        case ValueType::kUInt8:
            return 1;
    }
    return 0;
}

// The bytes from the first of `count` elements to the end of the last one; -1 if they are more than
// an address space has.
std::int64_t Span(std::int64_t stride, std::int64_t count, std::int64_t inner) {
    if (stride == INT64_MIN) return -1;
    std::int64_t span = 0;
    if (__builtin_mul_overflow(std::abs(stride), std::max(count, std::int64_t{1}) - 1, &span) ||
        __builtin_add_overflow(span, inner, &span)) {
        return -1;
    }
    return span;
}

// Cells are disjoint if either the columns of a row lie closer together than the rows, or the other
// way round.
std::string FaultOfDense(const DataBlock& block) {
    const std::int64_t size = SizeOf(block.type);
    if (size == 0) return "has values of an unknown type";
    const std::int64_t row = Span(block.columnStride, block.numColumns, size);
    const std::int64_t column = Span(block.rowStride, block.numRows, size);
    const std::int64_t all = Span(block.rowStride, block.numRows, row);
    if (row < 0 || column < 0 || all < 0) return "has strides beyond any memory";
    const bool fOneRow = block.numRows <= 1;
    const bool fOneColumn = block.numColumns <= 1;
    const auto isClear = [](std::int64_t stride, bool fSingle, std::int64_t within) {
        return fSingle || std::abs(stride) >= within;
    };
    const bool fRowMajor =
        isClear(block.columnStride, fOneColumn, size) && isClear(block.rowStride, fOneRow, row);
    const bool fColumnMajor =
        isClear(block.rowStride, fOneRow, size) && isClear(block.columnStride, fOneColumn, column);
    if (fRowMajor || fColumnMajor) return "";
    return Text("has overlapping cells: strides of ", block.rowStride, " and ", block.columnStride,
                " bytes for ", block.numRows, " rows and ", block.numColumns, " columns of ", size,
                " bytes a value");
}

std::string FaultOfColumns(const DataBlock& block) {
    if (block.columns == nullptr) return "has no columns: the pointer is null";
    for (std::int64_t c = 0; c < block.numColumns; ++c) {
        const DataColumn& column = block.columns[c];
        const std::int64_t size = SizeOf(column.type);
        if (column.values == nullptr) return Text("has no values in column ", c, ": null pointer");
        if (size == 0) return Text("has values of an unknown type in column ", c);
        if (column.validityOffset < 0 || column.validityOffset > INT64_MAX - kMostRows) {
            return Text("has a validity offset of ", column.validityOffset, " in column ", c);
        }
        const std::int64_t stride = column.stride != 0 ? column.stride : size;
        if (Span(stride, block.numRows, size) < 0 || std::abs(stride) < size) {
            return Text("has a stride of ", stride, " bytes in column ", c, ", for values of ",
                        size, " bytes");
        }
    }
    return "";
}

}  // namespace

std::string FaultOf(const DataBlock& block) {
    if (block.numRows < 0 || block.numColumns < 0) return "has a negative size";
    if (block.numRows > kMostRows || block.numColumns > kMostRows) {
        return Text("has ", block.numRows, " rows and ", block.numColumns, " columns, more than ",
                    kMostRows);
    }
    if (block.numRows == 0 || block.numColumns == 0) return "";
    if (block.layout == Layout::kColumns) return FaultOfColumns(block);
    if (block.layout == Layout::kDense) {
        return block.values == nullptr ? "has no values: the pointer is null" : FaultOfDense(block);
    }
    const bool fByRow = block.layout == Layout::kSparseRows;
    if (!fByRow && block.layout != Layout::kSparseColumns) return "has an unknown layout";
    if (SizeOf(block.stored.type) == 0) return "has values of an unknown type";
    if (block.begins == nullptr) return "has no begins: the pointer is null";
    const char* const line = fByRow ? "row " : "column ";
    const std::int64_t numLines = fByRow ? block.numRows : block.numColumns;
    const std::int64_t numPlaces = fByRow ? block.numColumns : block.numRows;
    const auto begin = [&](std::int64_t i) {
        return BlockReader::LoadIndex(block.begins, block.fLongBegins, i);
    };
    if (begin(0) < 0) return "has a negative begin of its first entries";
    for (std::int64_t i = 0; i < numLines; ++i) {
        if (begin(i + 1) < begin(i)) return Text("has descending begins at ", line, i);
    }
    if (begin(numLines) == begin(0)) return "";
    if (block.indices == nullptr || block.stored.values == nullptr) {
        return "has no entries: a pointer is null";
    }
    for (std::int64_t i = 0; i < numLines; ++i) {
        std::int64_t previous = -1;
        for (std::int64_t entry = begin(i); entry < begin(i + 1); ++entry) {
            const std::int64_t at =
                BlockReader::LoadIndex(block.indices, block.fLongIndices, entry);
            if (at > previous && at < numPlaces) {
                previous = at;
                continue;
            }
            return Text("has index ", at, " in ", line, i,
                        at < 0 || at >= numPlaces
                            ? ", which does not exist"
                            : ", out of order: indices must ascend, without repetition");
        }
    }
    return "";
}

// Dense columns get a description each, so that dense blocks and columns are read alike.
BlockReader::BlockReader(const DataBlock& data) : block(data) {
    const size_t numColumns = static_cast<size_t>(data.numColumns);
    if (data.layout == Layout::kColumns) columnV.assign(data.columns, data.columns + numColumns);
    for (size_t c = 0; data.layout == Layout::kDense && c < numColumns; ++c) {
        DataColumn column;
        column.values = static_cast<const char*>(data.values) +
                        static_cast<std::ptrdiff_t>(c) * data.columnStride;
        column.type = data.type;
        column.stride = data.rowStride;
        columnV.push_back(column);
    }
    for (DataColumn& column : columnV) {
        if (column.stride == 0) column.stride = static_cast<std::ptrdiff_t>(SizeOf(column.type));
    }
}

double BlockReader::At(int row, int column) const {
    if (IsSparse()) {
        return block.layout == Layout::kSparseRows ? SparseAt(row, column) : SparseAt(column, row);
    }
    const DataColumn& from = columnV[static_cast<size_t>(column)];
    if (!IsPresent(from, row)) return kMissingValue;
    const char* const at = static_cast<const char*>(from.values) + row * from.stride;
    if (from.type == ValueType::kFloat64) return Clean(Load<double>(at));
    return Clean(
        WithType(from.type, [at](auto tag) { return Load<typename decltype(tag)::Type>(at); }));
}

double BlockReader::Stored(std::int64_t entry) const {
    const char* const values = static_cast<const char*>(block.stored.values);
    return Clean(WithType(block.stored.type, [&](auto tag) {
        typedef typename decltype(tag)::Type Value;
        return Load<Value>(values + entry * static_cast<std::int64_t>(sizeof(Value)));
    }));
}

std::int64_t BlockReader::EntryFrom(int line, int place) const {
    std::int64_t low = Begin(line);
    std::int64_t high = Begin(line + 1);
    // Invariant: entries before `low` have a lower index, those from `high` on do not.
    while (low < high) {
        const std::int64_t middle = low + (high - low) / 2;
        if (Index(middle) < place) {
            low = middle + 1;
        } else {
            high = middle;
        }
    }
    return low;
}

double BlockReader::SparseAt(int line, int place) const {
    const std::int64_t entry = EntryFrom(line, place);
    const bool fStored = entry < Begin(line + 1) && Index(entry) == place;
    return fStored ? Stored(entry) : Clean(0.0);
}

void BlockReader::ReadRows(int begin, int end, int numColumns, double* values) const {
    const size_t width = static_cast<size_t>(numColumns);
    if (block.layout == Layout::kSparseRows) {
        std::fill_n(values, static_cast<size_t>(end - begin) * width, Clean(0.0));
        for (int row = begin; row < end; ++row, values += width) {
            for (std::int64_t entry = Begin(row); entry < Begin(row + 1); ++entry) {
                if (Index(entry) >= numColumns) break;
                values[Index(entry)] = Stored(entry);
            }
        }
        return;
    }
    for (int column = 0; column < numColumns; ++column) {
        ForColumn(column, begin, end, [&](int row, double value) {
            values[static_cast<size_t>(row - begin) * width + static_cast<size_t>(column)] = value;
        });
    }
}

namespace {

// Whether one of the values of a run is infinite or, with `fNan`, NaN. The loop has no branches, so
// that the compiler vectorises it. `Bits` is as wide as Value.
template <typename Value, typename Bits>
bool HasNonFinite(const unsigned char* values, int64_t count, bool fNan) {
    constexpr int kSignificandBits = std::numeric_limits<Value>::digits - 1;
    constexpr Bits kNoSign = std::numeric_limits<Bits>::max() >> 1;
    constexpr Bits kInfinity = kNoSign & (std::numeric_limits<Bits>::max() << kSignificandBits);
    const Bits ignored = fNan ? kNoSign & ~kInfinity : 0;  // a NaN then looks like an infinity
    Bits found = 0;
    for (int64_t i = 0; i < count; ++i) {
        Bits bits;
        std::memcpy(&bits, values + i * static_cast<int64_t>(sizeof(Bits)), sizeof bits);
        found |= static_cast<Bits>((bits & kNoSign & ~ignored) == kInfinity);
    }
    return found != 0;
}

// Whether a dense block of floats or doubles, in rows or columns without gaps between their values,
// may have a value that is refused. True for all other blocks.
bool MayHaveRefused(const DataBlock& block) {
    const bool fFloats = block.type == ValueType::kFloat32;
    if (block.layout != DataBlock::Layout::kDense ||
        (!fFloats && block.type != ValueType::kFloat64)) {
        return true;
    }
    const int64_t size = fFloats ? 4 : 8;
    const bool fRows = block.columnStride == size;
    if (!fRows && block.rowStride != size) return true;
    const int64_t numRuns = fRows ? block.numRows : block.numColumns;
    const int64_t length = fRows ? block.numColumns : block.numRows;
    const auto* run = static_cast<const unsigned char*>(block.values);
    for (int64_t i = 0; i < numRuns; ++i, run += fRows ? block.rowStride : block.columnStride) {
        const bool fFound = fFloats
                                ? HasNonFinite<float, uint32_t>(run, length, !block.fNanMissing)
                                : HasNonFinite<double, uint64_t>(run, length, !block.fNanMissing);
        if (fFound) return true;
    }
    return false;
}

}  // namespace

std::string BlockReader::RefusedValue() const {
    if (block.fNanMissing && !block.fInfiniteRefused) return "";
    if (!MayHaveRefused(block)) return "";
    int firstRow = INT_MAX, firstColumn = 0;
    for (int column = 0; column < NumColumns(); ++column) {
        ForColumn(column, 0, std::min(NumRows(), firstRow), [&](int row, double value) {
            const bool fRefused =
                std::isnan(value) || (block.fInfiniteRefused && std::isinf(value));
            if (!fRefused || row >= firstRow) return;
            firstRow = row;
            firstColumn = column;
        });
    }
    if (firstRow == INT_MAX) return "";
    return Text("has ", std::isnan(At(firstRow, firstColumn)) ? "a NaN" : "an infinite value",
                " in row ", firstRow, ", column ", firstColumn);
}

}  // namespace sylvora
