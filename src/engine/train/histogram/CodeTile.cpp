// Transposition of codes; see CodeTile.h.
#include "CodeTile.h"

#include <emmintrin.h>

#include <algorithm>

namespace sylvora {
namespace engine {
namespace {

constexpr int kAhead = 48;  // rows whose codes are prefetched

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

template <typename Code>
CodeTile<Code>::CodeTile(const RowCodes<Code>& codes, int blockRows)
    : rows(codes),
      tileStride(static_cast<size_t>(blockRows) + 32),
      tileV(codes.stride * tileStride) {}

template <typename Code>
void CodeTile<Code>::Load(const int* rowV, int count) {
    if (rows.stride == 0) return;
    const Code* eightV[8];
    // The last group repeats the last row; its codes are read, but its cells are zero.
    for (int i = 0; i < count; i += 8) {
        for (int j = 0; j < 8; ++j) {
            const int ahead = i + j + kAhead;
            if (ahead < count) __builtin_prefetch(rows.Row(rowV[ahead]));
            eightV[j] = rows.Row(rowV[std::min(i + j, count - 1)]);
        }
        TransposeEight(eightV, rows.stride, tileV.data() + i, tileStride);
    }
}

template class CodeTile<uint8_t>;
template class CodeTile<uint16_t>;

}  // namespace engine
}  // namespace sylvora
