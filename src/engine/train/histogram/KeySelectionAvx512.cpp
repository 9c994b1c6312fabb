// Key selection for processors with AVX-512 F, BW, DQ and VL.
// GCC 12 takes the undefined operands of its own intrinsics for a mistake of ours.
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wuninitialized"
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#endif
#include <immintrin.h>
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic pop
#endif

#include "KeySelection.h"

namespace sylvora {
namespace engine {
namespace {

#include "KeySelection.inl"

// The first `count` of 64 bits, or all.
inline __mmask64 FirstBits(int count) {
    return count >= 64 ? ~__mmask64{0} : (__mmask64{1} << count) - 1;
}

// Tests 64 codes at a time: the low four bits select a byte of the table, bit 7 which half of the
// table, and the other three bits of the code a bit of the byte.
inline __mmask64 TestCodes(__m512i codes, __m512i lowHalf, __m512i highHalf) {
    const __m512i kSelect = _mm512_set1_epi8(static_cast<char>(0x8f));  // a byte with bit 7 gives 0
    const __m512i kBits = _mm512_set1_epi64(static_cast<long long>(0x8040201008040201u));
    const __m512i flipped = _mm512_xor_si512(codes, _mm512_set1_epi8(static_cast<char>(0x80)));
    const __m512i byte =
        _mm512_or_si512(_mm512_shuffle_epi8(lowHalf, _mm512_and_si512(codes, kSelect)),
                        _mm512_shuffle_epi8(highHalf, _mm512_and_si512(flipped, kSelect)));
    const __m512i at = _mm512_and_si512(_mm512_srli_epi16(codes, 4), _mm512_set1_epi8(7));
    return _mm512_test_epi8_mask(byte, _mm512_shuffle_epi8(kBits, at));
}

// Appends the rows and codes of a mask, 16 at a time.
inline int Append(__mmask64 mask, __mmask64 valid, const int* rowV, const uint8_t* codeV, int num,
                  SelectedRows& selected) {
    for (; mask != 0; mask >>= 16, valid >>= 16, rowV += 16, codeV += 16) {
        const __mmask16 part = static_cast<__mmask16>(mask);
        const __mmask16 load = static_cast<__mmask16>(valid);
        const __m512i rows = _mm512_maskz_loadu_epi32(load, rowV);
        const __m512i codes = _mm512_cvtepu8_epi32(_mm_maskz_loadu_epi8(load, codeV));
        _mm512_storeu_si512(selected.rowV + num, _mm512_maskz_compress_epi32(part, rows));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(selected.code8V + num),
                         _mm512_cvtepi32_epi8(_mm512_maskz_compress_epi32(part, codes)));
        num += __builtin_popcount(part);
    }
    return num;
}

void SelectRows(const CandidateCodes& candidates, const uint8_t* codeV, const int* rowV, int count,
                SelectedRows& selected) {
    const __m128i* const bits = reinterpret_cast<const __m128i*>(candidates.bitsV);
    const __m512i lowHalf = _mm512_broadcast_i32x4(_mm_loadu_si128(bits));
    const __m512i highHalf = _mm512_broadcast_i32x4(_mm_loadu_si128(bits + 1));
    uint8_t buffer[SelectedRows::kMost];
    const uint8_t* const codes = CodesOf(codeV, rowV, count, buffer);
    int num = 0;
    for (int i = 0; i < count; i += 64) {
        const __mmask64 valid = FirstBits(count - i);
        const __mmask64 mask =
            valid & TestCodes(_mm512_maskz_loadu_epi8(valid, codes + i), lowHalf, highHalf);
        num = Append(mask, valid, rowV + i, codes + i, num, selected);
    }
    selected.num = num;
}

// Eight keys at a time. The gather reads four bytes at each mark.
int SelectKeys(const CandidateMarks& candidates, const SelectedRows& selected,
               const uint32_t* rankV, uint64_t* keyV) {
    int num = 0;
    int i = 0;
    const __m128i step = _mm_cvtsi32_si128(candidates.step);
    for (; i + 8 <= selected.num; i += 8) {
        const __m256i ranks = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(rankV + i));
        const __m256i rows =
            _mm256_loadu_si256(reinterpret_cast<const __m256i*>(selected.rowV + i));
        const __m256i marks = _mm256_i32gather_epi32(
            reinterpret_cast<const int*>(candidates.fCandidateV), _mm256_srl_epi32(ranks, step), 1);
        const __mmask8 mask = _mm256_test_epi32_mask(marks, _mm256_set1_epi32(1));
        const __m512i keys = _mm512_or_si512(_mm512_slli_epi64(_mm512_cvtepu32_epi64(ranks), 32),
                                             _mm512_cvtepu32_epi64(rows));
        _mm512_storeu_si512(keyV + num, _mm512_maskz_compress_epi64(mask, keys));
        num += __builtin_popcount(mask);
    }
    return SelectKeysFrom(i, candidates, selected, rankV, keyV, num);
}

}  // namespace

const KeySelection kKeySelectionAvx512 = {SelectRows, SelectKeys};

}  // namespace engine
}  // namespace sylvora
