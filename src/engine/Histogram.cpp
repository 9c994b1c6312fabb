// Filling histograms; see Histogram.h.
#include "Histogram.h"

#include <emmintrin.h>

#include <algorithm>

namespace sylvora {
namespace engine {
namespace {

constexpr int kBlockRows = 8192;
// Tile columns lie this far apart: not a power of two, or they would share cache sets.
constexpr size_t kTileStride = kBlockRows + 32;
constexpr int kAhead = 48;  // rows whose codes are fetched in advance

inline void AddCell(Cell* target, __m128i cell) {
    __m128i* at = reinterpret_cast<__m128i*>(target);
    _mm_store_si128(at, _mm_add_epi64(_mm_load_si128(at), cell));
}

// One column of a tile, and where its cells are.
template <typename Code>
struct TileColumn {
    const Code* codes;
    Cell* cells;
    int shift;
};

template <typename A, typename B>
void AddPair(const Cell* cells, int count, TileColumn<A> a, TileColumn<B> b) {
    for (int i = 0; i < count; ++i) {
        const __m128i cell = _mm_load_si128(reinterpret_cast<const __m128i*>(cells + i));
        AddCell(a.cells + (a.codes[i] >> a.shift), cell);
        AddCell(b.cells + (b.codes[i] >> b.shift), cell);
    }
}

template <typename A>
void AddSingle(const Cell* cells, int count, TileColumn<A> a) {
    for (int i = 0; i < count; ++i) {
        const __m128i cell = _mm_load_si128(reinterpret_cast<const __m128i*>(cells + i));
        AddCell(a.cells + (a.codes[i] >> a.shift), cell);
    }
}

template <typename Code>
void AddColumns(const Cell* cells, int count, const std::vector<TileColumn<Code>>& columnV) {
    size_t j = 0;
    for (; j + 1 < columnV.size(); j += 2) AddPair(cells, count, columnV[j], columnV[j + 1]);
    if (j < columnV.size()) AddSingle(cells, count, columnV[j]);
}

// Turns eight rows of eight 16-bit codes into eight columns of eight.
void Transpose8x8(const uint16_t* const* rows, size_t from, uint16_t* tile, size_t at) {
    __m128i r[8], s[8];
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
                _mm_storeu_si128(reinterpret_cast<__m128i*>(tile + c * kTileStride + at), codes);
            };
            store(column, _mm_unpacklo_epi16(a, b));
            store(column + 1, _mm_unpackhi_epi16(a, b));
        }
    }
}

// Eight rows of sixteen 8-bit codes into sixteen columns of eight.
void Transpose8x16(const uint8_t* const* rows, size_t from, uint8_t* tile, size_t at) {
    __m128i r[8], s[8];
    for (int i = 0; i < 8; ++i) {
        r[i] = _mm_loadu_si128(reinterpret_cast<const __m128i*>(rows[i] + from));
    }
    for (int i = 0; i < 4; ++i) {
        s[2 * i] = _mm_unpacklo_epi8(r[i], r[i + 4]);
        s[2 * i + 1] = _mm_unpackhi_epi8(r[i], r[i + 4]);
    }
    // s[2i], s[2i+1]: rows i and i + 4, columns 0..7 and 8..15.
    for (int half = 0; half < 2; ++half) {
        const __m128i lo0 = _mm_unpacklo_epi8(s[half], s[half + 4]);
        const __m128i hi0 = _mm_unpackhi_epi8(s[half], s[half + 4]);
        const __m128i lo1 = _mm_unpacklo_epi8(s[half + 2], s[half + 6]);
        const __m128i hi1 = _mm_unpackhi_epi8(s[half + 2], s[half + 6]);
        const __m128i quads[4] = {_mm_unpacklo_epi8(lo0, lo1), _mm_unpackhi_epi8(lo0, lo1),
                                  _mm_unpacklo_epi8(hi0, hi1), _mm_unpackhi_epi8(hi0, hi1)};
        for (size_t p = 0; p < 4; ++p) {
            const size_t column = from + static_cast<size_t>(half) * 8 + 2 * p;
            _mm_storel_epi64(reinterpret_cast<__m128i*>(tile + column * kTileStride + at),
                             quads[p]);
            _mm_storel_epi64(reinterpret_cast<__m128i*>(tile + (column + 1) * kTileStride + at),
                             _mm_unpackhi_epi64(quads[p], quads[p]));
        }
    }
}

void TransposeEight(const uint16_t* const* rows, size_t stride, uint16_t* tile, size_t at) {
    for (size_t from = 0; from < stride; from += 8) Transpose8x8(rows, from, tile, at);
}

void TransposeEight(const uint8_t* const* rows, size_t stride, uint8_t* tile, size_t at) {
    for (size_t from = 0; from < stride; from += 16) Transpose8x16(rows, from, tile, at);
}

}  // namespace

HistogramFiller::HistogramFiller(const Columns& columns)
    : data(columns),
      cellV(kBlockRows),
      narrowTile(data.NarrowRows().stride * kTileStride),
      wideTile(data.WideRows().stride * kTileStride) {}

template <typename Code>
void HistogramFiller::Transpose(const RowCodes<Code>& codes, const int* rowV, int count,
                                Code* tile) {
    if (codes.stride == 0) return;
    const Code* rows[8];
    for (int i = 0; i < count; i += 8) {
        for (int j = 0; j < 8; ++j) {
            const int ahead = i + j + kAhead;
            if (ahead < count) __builtin_prefetch(codes.Row(rowV[ahead]));
            rows[j] = codes.Row(rowV[std::min(i + j, count - 1)]);
        }
        TransposeEight(rows, codes.stride, tile, static_cast<size_t>(i));
    }
}

void HistogramFiller::Add(const RowSlice& rows, const FixedPoint& fixed,
                          const std::vector<int>& columns, Histogram& histogram) {
    for (int begin = 0; begin < rows.count; begin += kBlockRows) {
        const int count = std::min(kBlockRows, rows.count - begin);
        fixed.ToCells(rows.gradV + begin, rows.weightV != nullptr ? rows.weightV + begin : nullptr,
                      count, cellV.data());
        Transpose(data.NarrowRows(), rows.rowV + begin, count, narrowTile.data());
        Transpose(data.WideRows(), rows.rowV + begin, count, wideTile.data());
        AddBlock(count, columns, histogram);
    }
}

void HistogramFiller::AddBlock(int count, const std::vector<int>& columns, Histogram& histogram) {
    std::vector<TileColumn<uint8_t>> narrowV;
    std::vector<TileColumn<uint16_t>> wideV;
    for (const int id : columns) {
        const Column& column = data.At(id);
        Cell* cells = histogram.cellV.data() + column.firstCell;
        const size_t begin = static_cast<size_t>(column.place) * kTileStride;
        if (column.fNarrow) {
            narrowV.push_back({narrowTile.data() + begin, cells, 0});
        } else {
            wideV.push_back({wideTile.data() + begin, cells, column.fExact ? 0 : histogram.shift});
        }
    }
    AddColumns(cellV.data(), count, narrowV);
    AddColumns(cellV.data(), count, wideV);
}

}  // namespace engine
}  // namespace sylvora
