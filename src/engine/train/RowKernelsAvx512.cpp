// The kernels of RowKernels.h for processors with AVX-512 F, BW and VL: sixteen rows at a time,
// compressed in registers.
#include <immintrin.h>

#include "RowKernels.h"

namespace sylvora {
namespace engine {
namespace {

constexpr int kLanes = 16;

// By lane: whether its mark, one of the first `count`, equals `wanted`.
inline __mmask16 MarksAt(const uint8_t* markV, int count, uint8_t wanted) {
    const __mmask16 present =
        count < kLanes ? static_cast<__mmask16>((1u << count) - 1) : static_cast<__mmask16>(~0u);
    const __m128i marks = _mm_maskz_loadu_epi8(present, markV);
    return _mm_mask_cmpeq_epi8_mask(present, marks, _mm_set1_epi8(static_cast<char>(wanted)));
}

int Split(const int* rowV, const uint8_t* markV, int count, int* leftV, int* rightV) {
    int numLeft = 0;
    for (int i = 0; i < count; i += kLanes) {
        const int num = count - i < kLanes ? count - i : kLanes;
        const __mmask16 present = static_cast<__mmask16>((1u << num) - 1);
        const __mmask16 left = MarksAt(markV + i, num, 1);
        const __m512i rows = _mm512_maskz_loadu_epi32(present, rowV + i);
        const __mmask16 right = static_cast<__mmask16>(present & ~left);
        _mm512_storeu_si512(leftV + numLeft, _mm512_maskz_compress_epi32(left, rows));
        _mm512_storeu_si512(rightV + i - numLeft, _mm512_maskz_compress_epi32(right, rows));
        numLeft += __builtin_popcount(left);
    }
    return numLeft;
}

int List(const uint8_t* markV, uint8_t wanted, int first, int count, int* positionV) {
    const __m512i lanes = _mm512_setr_epi32(0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15);
    int num = 0;
    for (int i = 0; i < count; i += kLanes) {
        const __mmask16 marked = MarksAt(markV + i, count - i, wanted);
        const __m512i positions = _mm512_add_epi32(lanes, _mm512_set1_epi32(first + i));
        _mm512_storeu_si512(positionV + num, _mm512_maskz_compress_epi32(marked, positions));
        num += __builtin_popcount(marked);
    }
    return num;
}

uint64_t MarkAtLeast(const uint64_t* keyV, uint64_t least) {
    constexpr int kKeys = 8;
    const __m512i bound = _mm512_set1_epi64(static_cast<long long>(least));
    uint64_t marks = 0;
    for (int i = 0; i < 64; i += kKeys) {
        const __mmask8 mask = _mm512_cmpge_epu64_mask(_mm512_loadu_si512(keyV + i), bound);
        marks |= static_cast<uint64_t>(mask) << i;
    }
    return marks;
}

// The place of a key is the number of keys below it. Counts for 32 keys at a time.
void SortFew(uint64_t* keyV, int count, uint64_t* sortedV) {
    constexpr int kKeys = 8;
    constexpr int kRegisters = 4;
    const __m512i one = _mm512_set1_epi64(1);
    for (int i = 0; i < count; i += kKeys * kRegisters) {
        __m512i keys[kRegisters], places[kRegisters];
        __mmask8 present[kRegisters];
        for (int r = 0; r < kRegisters; ++r) {
            const int left = count - i - r * kKeys;
            const unsigned lanes = left <= 0 ? 0u : left >= kKeys ? 0xffu : (1u << left) - 1;
            present[r] = static_cast<__mmask8>(lanes);
            keys[r] = _mm512_maskz_loadu_epi64(present[r], keyV + i + r * kKeys);
            places[r] = _mm512_setzero_si512();
        }
        for (int k = 0; k < count; ++k) {
            const __m512i key = _mm512_set1_epi64(static_cast<long long>(keyV[k]));
            for (int r = 0; r < kRegisters; ++r) {
                const __mmask8 isBelow = _mm512_cmplt_epu64_mask(key, keys[r]);
                places[r] = _mm512_mask_add_epi64(places[r], isBelow, places[r], one);
            }
        }
        for (int r = 0; r < kRegisters; ++r) {
            _mm512_mask_i64scatter_epi64(sortedV, present[r], places[r], keys[r], 8);
        }
    }
}

}  // namespace

const RowKernels kRowKernelsAvx512 = {Split, List, MarkAtLeast, SortFew, 128};

}  // namespace engine
}  // namespace sylvora
