// The same values in every layout that a borrowed block may have.
#ifndef SYLVORA_TESTS_DIFFERENTIAL_LAYOUTS_H
#define SYLVORA_TESTS_DIFFERENTIAL_LAYOUTS_H

#include <cmath>
#include <cstddef>
#include <cstring>
#include <vector>

#include "DataBlock.h"
#include "Libdef.h"

namespace hostile {

// Owns a copy of `rows` in one layout. Missing values (sylvora::kMissingValue) become NaN, or 0 in
// a bitmap of present values whose other values are garbage.
class Layout {
  public:
    enum Kind {
        kRowMajor,
        kColumnMajor,
        kPadded,
        kReversed,
        kFloats,
        kColumns,
        kRows,
        kSparseColumns
    };
    static constexpr int kNumKinds = kSparseColumns + 1;

    Layout(const VecVecDle& rows, Kind wanted)
        : kind(wanted), numRows(rows.size()), numColumns(rows[0].size()) {
        block.numRows = static_cast<std::int64_t>(numRows);
        block.numColumns = static_cast<std::int64_t>(numColumns);
        if (kind == kRows || kind == kSparseColumns) {
            MakeSparse(rows);
        } else if (kind == kColumns) {
            MakeColumns(rows);
        } else {
            MakeDense(rows);
        }
    }
    Layout(const Layout&) = delete;
    Layout& operator=(const Layout&) = delete;

    const sylvora::DataBlock& Block() const { return block; }

  private:
    static double Stored(double value) {
        return value == sylvora::kMissingValue ? std::nan("") : value;
    }

    // Padded: unaligned, with a gap behind every row and value. Reversed: negative strides.
    void MakeDense(const VecVecDle& rows) {
        const bool fFloats = kind == kFloats;
        const std::ptrdiff_t size = fFloats ? sizeof(float) : sizeof(double);
        const std::ptrdiff_t cell = kind == kPadded ? size + 3 : size;
        const std::ptrdiff_t height = static_cast<std::ptrdiff_t>(numRows);
        const std::ptrdiff_t width = static_cast<std::ptrdiff_t>(numColumns);
        block.type = fFloats ? sylvora::ValueType::kFloat32 : sylvora::ValueType::kFloat64;
        block.rowStride = kind == kColumnMajor ? cell : width * cell + (kind == kPadded ? 5 : 0);
        block.columnStride = kind == kColumnMajor ? height * cell : cell;
        byteV.resize(static_cast<size_t>(height * width * cell + 5 * height + 1));
        char* first = byteV.data() + (kind == kPadded ? 1 : 0);
        if (kind == kReversed) {
            first += (height * width - 1) * cell;
            block.rowStride = -block.rowStride;
            block.columnStride = -block.columnStride;
        }
        block.values = first;
        for (std::ptrdiff_t r = 0; r < height; ++r) {
            for (std::ptrdiff_t c = 0; c < width; ++c) {
                const double value = Stored(rows[static_cast<size_t>(r)][static_cast<size_t>(c)]);
                const float narrow = static_cast<float>(value);
                char* const at = first + r * block.rowStride + c * block.columnStride;
                if (fFloats)
                    std::memcpy(at, &narrow, sizeof narrow);
                else
                    std::memcpy(at, &value, sizeof value);
            }
        }
    }

    void MakeColumns(const VecVecDle& rows) {
        constexpr size_t kOffset = 3;  // bits
        block.layout = sylvora::DataBlock::Layout::kColumns;
        valueVV.resize(numColumns);
        validVV.assign(numColumns, std::vector<std::uint8_t>((numRows + kOffset) / 8 + 1, 0));
        for (size_t c = 0; c < numColumns; ++c) {
            for (size_t r = 0; r < numRows; ++r) {
                const bool fMissing = rows[r][c] == sylvora::kMissingValue;
                valueVV[c].push_back(fMissing ? 77.0 : rows[r][c]);
                const size_t bit = r + kOffset;
                if (!fMissing) validVV[c][bit / 8] |= static_cast<std::uint8_t>(1u << bit % 8);
            }
            sylvora::DataColumn column;
            column.values = valueVV[c].data();
            column.validity = validVV[c].data();
            column.validityOffset = kOffset;
            columnV.push_back(column);
        }
        block.columns = columnV.data();
    }

    // Positive zeros are left out.
    void MakeSparse(const VecVecDle& rows) {
        const bool fByRow = kind == kRows;
        block.layout = fByRow ? sylvora::DataBlock::Layout::kSparseRows
                              : sylvora::DataBlock::Layout::kSparseColumns;
        valueVV.resize(1);
        beginV.push_back(0);
        for (size_t line = 0; line < (fByRow ? numRows : numColumns); ++line) {
            for (size_t place = 0; place < (fByRow ? numColumns : numRows); ++place) {
                const double value = fByRow ? rows[line][place] : rows[place][line];
                if (value == 0.0 && !std::signbit(value)) continue;
                valueVV[0].push_back(Stored(value));
                indexV.push_back(static_cast<std::int32_t>(place));
            }
            beginV.push_back(static_cast<std::int64_t>(indexV.size()));
        }
        block.stored.values = valueVV[0].data();
        block.begins = beginV.data();
        block.fLongBegins = true;
        block.indices = indexV.data();
    }

    const Kind kind;
    const size_t numRows, numColumns;
    sylvora::DataBlock block;
    std::vector<char> byteV;
    std::vector<VecDle> valueVV;
    std::vector<std::vector<std::uint8_t>> validVV;
    std::vector<sylvora::DataColumn> columnV;
    std::vector<std::int64_t> beginV;
    std::vector<std::int32_t> indexV;
};

}  // namespace hostile

#endif  // SYLVORA_TESTS_DIFFERENTIAL_LAYOUTS_H
