// Filling histograms; see Histogram.h.
#include "Histogram.h"

#include <emmintrin.h>

#include <algorithm>
#include <cstring>

namespace sylvora {
namespace engine {
namespace {

constexpr int kBlockRows = 8192;
// Bounds the memory of a tile; see ChooseBlockRows.
constexpr size_t kMostTileCodes = size_t{1} << 26;
constexpr int kPadRows = 8;          // zero cells after a block: 8-bit codes per word
constexpr size_t kTogether = 2;      // columns added side by side
constexpr int kMostOddCells = 1024;  // more would not fit the L1 cache
constexpr int kAhead = 48;           // rows whose codes are prefetched

// The rows per block, a multiple of eight: at most all rows, and fewer if rows are very wide.
int ChooseBlockRows(const BinnedColumns& data) {
    constexpr size_t kFewRows = 64;
    const size_t width = std::max(data.NarrowRows().stride + data.WideRows().stride, size_t{1});
    const size_t mostRows = std::max(kMostTileCodes / width / 8 * 8, kFewRows);
    const int numRows = (std::min(data.NumRows(), kBlockRows) + 7) / 8 * 8;
    return static_cast<int>(std::min(static_cast<size_t>(numRows), mostRows));
}

// Whether the row numbers ascend by one.
bool IsRun(const int* rowV, int count) {
    for (int i = 1; i < count; ++i) {
        if (rowV[i] != rowV[0] + i) return false;
    }
    return true;
}

// Adds both words of a cell with one instruction. Cells are aligned to 16 bytes.
inline void AddCell(Cell* target, __m128i cell) {
    __m128i* at = reinterpret_cast<__m128i*>(target);
    _mm_store_si128(at, _mm_add_epi64(_mm_load_si128(at), cell));
}

// One column of a tile, and its cells. Rows at odd positions of the block may go to a second set of
// cells: for a frequent value, successive additions to one cell would wait for each other.
template <typename Code>
struct TileColumn {
    const Code* codes;
    Cell* cells;
    Cell* oddCells;
    int shift;
};

// Loads as many codes as fit a word, and shifts each to the coarse bin.
template <typename Code>
inline uint64_t CodesAt(const TileColumn<Code>& column, int row) {
    constexpr uint64_t kEachOne = ~uint64_t{0} / static_cast<Code>(~Code{0});
    uint64_t codes;
    std::memcpy(&codes, column.codes + row, sizeof codes);
    const uint64_t mask = static_cast<Code>(~Code{0}) >> column.shift;
    return (codes >> column.shift) & kEachOne * mask;
}

template <typename Code>
inline Code NextCode(uint64_t& codes) {
    const Code code = static_cast<Code>(codes);
    codes >>= 8 * sizeof(Code);
    return code;
}

// Adds the cells of the block's rows to kColumns columns side by side. Reads codes past the last
// row up to a whole word; the cells there are zero.
template <size_t kColumns, typename Code>
void AddTogether(const Cell* cells, int count, const TileColumn<Code>* columns) {
    constexpr int kWordRows = sizeof(uint64_t) / sizeof(Code);
    TileColumn<Code> columnV[kColumns];
    std::copy_n(columns, kColumns, columnV);
    // Each pass of the outer loop takes one word of codes per column.
    for (int i = 0; i < count; i += kWordRows) {
        uint64_t codesV[kColumns];
        for (size_t j = 0; j < kColumns; ++j) codesV[j] = CodesAt(columnV[j], i);
        for (int k = i; k < i + kWordRows; k += 2) {
            const __m128i even = _mm_load_si128(reinterpret_cast<const __m128i*>(cells + k));
            const __m128i odd = _mm_load_si128(reinterpret_cast<const __m128i*>(cells + k + 1));
            for (size_t j = 0; j < kColumns; ++j) {
                AddCell(columnV[j].cells + NextCode<Code>(codesV[j]), even);
            }
            for (size_t j = 0; j < kColumns; ++j) {
                AddCell(columnV[j].oddCells + NextCode<Code>(codesV[j]), odd);
            }
        }
    }
}

// Transposes eight rows of eight 16-bit codes.
void Transpose8x8(const uint16_t* const* rows, size_t from, uint16_t* tile, size_t tileStride) {
    __m128i r[8], s[8];
    // Three rounds of interleaving: of rows 4 apart, then 2, then 1.
    for (int i = 0; i < 8; ++i) {
        r[i] = _mm_loadu_si128(reinterpret_cast<const __m128i*>(rows[i] + from));
    }
    for (int i = 0; i < 4; ++i) {
        s[i] = _mm_unpacklo_epi16(r[i], r[i + 4]);
        s[i + 4] = _mm_unpackhi_epi16(r[i], r[i + 4]);
    }
    for (int i = 0; i < 8; i += 4) {
        r[i] = _mm_unpacklo_epi16(s[i], s[i + 2]);
        r[i + 1] = _mm_unpackhi_epi16(s[i], s[i + 2]);
        r[i + 2] = _mm_unpacklo_epi16(s[i + 1], s[i + 3]);
        r[i + 3] = _mm_unpackhi_epi16(s[i + 1], s[i + 3]);
    }
    for (int i = 0; i < 8; i += 4) {
        for (int half = 0; half < 2; ++half) {
            const __m128i a = r[i + half];
            const __m128i b = r[i + half + 2];
            const size_t column = from + static_cast<size_t>(i + 2 * half);
            const auto store = [&](size_t c, __m128i codes) {
                _mm_storeu_si128(reinterpret_cast<__m128i*>(tile + c * tileStride), codes);
            };
            store(column, _mm_unpacklo_epi16(a, b));
            store(column + 1, _mm_unpackhi_epi16(a, b));
        }
    }
}

// Transposes eight rows of sixteen 8-bit codes.
void Transpose8x16(const uint8_t* const* rows, size_t from, uint8_t* tile, size_t tileStride) {
    __m128i r[8], s[8];
    for (int i = 0; i < 8; ++i) {
        r[i] = _mm_loadu_si128(reinterpret_cast<const __m128i*>(rows[i] + from));
    }
    for (int i = 0; i < 4; ++i) {
        s[2 * i] = _mm_unpacklo_epi8(r[i], r[i + 4]);
        s[2 * i + 1] = _mm_unpackhi_epi8(r[i], r[i + 4]);
    }
    // s[2i] and s[2i+1] hold columns 0..7 and 8..15 of rows i and i + 4, interleaved.
    for (int half = 0; half < 2; ++half) {
        const __m128i lo0 = _mm_unpacklo_epi8(s[half], s[half + 4]);
        const __m128i hi0 = _mm_unpackhi_epi8(s[half], s[half + 4]);
        const __m128i lo1 = _mm_unpacklo_epi8(s[half + 2], s[half + 6]);
        const __m128i hi1 = _mm_unpackhi_epi8(s[half + 2], s[half + 6]);
        const __m128i quads[4] = {_mm_unpacklo_epi8(lo0, lo1), _mm_unpackhi_epi8(lo0, lo1),
                                  _mm_unpacklo_epi8(hi0, hi1), _mm_unpackhi_epi8(hi0, hi1)};
        for (size_t p = 0; p < 4; ++p) {
            const size_t column = from + static_cast<size_t>(half) * 8 + 2 * p;
            _mm_storel_epi64(reinterpret_cast<__m128i*>(tile + column * tileStride), quads[p]);
            _mm_storel_epi64(reinterpret_cast<__m128i*>(tile + (column + 1) * tileStride),
                             _mm_unpackhi_epi64(quads[p], quads[p]));
        }
    }
}

// Transposes eight whole rows, with their padding.
void TransposeEight(const uint16_t* const* rows, size_t stride, uint16_t* tile, size_t tileStride) {
    for (size_t from = 0; from < stride; from += 8) Transpose8x8(rows, from, tile, tileStride);
}

void TransposeEight(const uint8_t* const* rows, size_t stride, uint8_t* tile, size_t tileStride) {
    for (size_t from = 0; from < stride; from += 16) Transpose8x16(rows, from, tile, tileStride);
}

}  // namespace

// Tiles hold a whole block of every column, with a gap between columns.
HistogramFiller::HistogramFiller(const BinnedColumns& columns)
    : data(columns),
      blockRows(ChooseBlockRows(data)),
      tileStride(static_cast<size_t>(blockRows) + 32),
      cellV(static_cast<size_t>(blockRows + kPadRows)),
      oddV(kTogether * kMostOddCells),
      narrowTile(data.NarrowRows().stride * tileStride),
      wideTile(data.WideRows().stride * tileStride) {}

template <typename Code>
void HistogramFiller::Transpose(const RowCodes<Code>& codes, const int* rowV, int count,
                                Code* tile) {
    if (codes.stride == 0) return;
    const Code* rows[8];
    // The last group repeats the last row; its codes are read, but its cells are zero.
    for (int i = 0; i < count; i += 8) {
        for (int j = 0; j < 8; ++j) {
            const int ahead = i + j + kAhead;
            if (ahead < count) __builtin_prefetch(codes.Row(rowV[ahead]));
            rows[j] = codes.Row(rowV[std::min(i + j, count - 1)]);
        }
        TransposeEight(rows, codes.stride, tile + i, tileStride);
    }
}

// Converts the block's gradients to cells; reads them in order where the set has its own.
void HistogramFiller::LoadCells(const RowSet& rows, int begin, int count, const FixedPoint& fixed) {
    if (rows.ownGradV == nullptr) {
        return rows.CellsOf(rows.rowV + begin, count, fixed, cellV.data());
    }
    fixed.ToCells(rows.ownGradV + begin,
                  rows.weightV != nullptr ? rows.ownWeightV + begin : nullptr, count, cellV.data());
}

// The filler's buffers hold one block, so memory does not grow with the node.
void HistogramFiller::Add(const RowSet& rows, const FixedPoint& fixed,
                          const std::vector<int>& columns, Histogram& histogram) {
    for (int begin = 0; begin < rows.count; begin += blockRows) {
        const int count = std::min(blockRows, rows.count - begin);
        LoadCells(rows, begin, count, fixed);
        AddBlock(rows.rowV + begin, count, columns, histogram);
    }
}

// If the rows are consecutive, the columns' 8-bit codes are already contiguous and need no
// transposing.
void HistogramFiller::AddBlock(const int* rowV, int count, const std::vector<int>& columns,
                               Histogram& histogram) {
    std::fill_n(cellV.begin() + count, kPadRows, Cell());
    std::vector<int> narrowV, wideV;
    for (const int id : columns) (data.At(id).fNarrow ? narrowV : wideV).push_back(id);
    const auto fromTile = [this](const auto& tile) {
        return [&](const Column& c) {
            return tile.data() + static_cast<size_t>(c.codeIndex) * tileStride;
        };
    };
    if (IsRun(rowV, count) && rowV[0] + count <= data.NumRows() - kPadRows) {
        const auto fromCode8 = [&](const Column& c) { return c.code8V.data() + rowV[0]; };
        AddColumns<uint8_t>(count, narrowV, fromCode8, histogram);
    } else {
        Transpose(data.NarrowRows(), rowV, count, narrowTile.data());
        AddColumns<uint8_t>(count, narrowV, fromTile(narrowTile), histogram);
    }
    Transpose(data.WideRows(), rowV, count, wideTile.data());
    AddColumns<uint16_t>(count, wideV, fromTile(wideTile), histogram);
}

// Adds the block to columns whose codes codesOf(column) returns.
template <typename Code, typename CodesOf>
void HistogramFiller::AddColumns(int count, const std::vector<int>& columns, const CodesOf& codesOf,
                                 Histogram& histogram) {
    // An odd column at the end is added alone.
    for (size_t j = 0; j < columns.size(); j += kTogether) {
        const size_t num = std::min(kTogether, columns.size() - j);
        TileColumn<Code> columnV[kTogether];
        for (size_t k = 0; k < num; ++k) {
            const Column& column = data.At(columns[j + k]);
            Cell* cells = histogram.Of(column);
            const bool fOdd = histogram.NumBins(column) <= kMostOddCells;
            columnV[k] = {codesOf(column), cells, fOdd ? oddV.data() + k * kMostOddCells : cells,
                          column.fExact ? 0 : histogram.shift};
        }
        if (num == kTogether) {
            AddTogether<kTogether>(cellV.data(), count, columnV);
        } else {
            AddTogether<1>(cellV.data(), count, columnV);
        }
        // Merges the second cells into the histogram, and leaves them zero for the next columns.
        for (size_t k = 0; k < num; ++k) {
            if (columnV[k].oddCells == columnV[k].cells) continue;
            for (int bin = 0; bin < histogram.NumBins(data.At(columns[j + k])); ++bin) {
                columnV[k].cells[bin] += columnV[k].oddCells[bin];
                columnV[k].oddCells[bin] = Cell();
            }
        }
    }
}

}  // namespace engine
}  // namespace sylvora
