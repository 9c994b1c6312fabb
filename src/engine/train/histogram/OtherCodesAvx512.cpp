// The search for other codes on processors with AVX-512 F; see OtherCodes.h.
#include <immintrin.h>

#if defined(__GNUC__) && !defined(__clang__)
// GCC 12 warns about intrinsics in its own header.
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#endif

#include "OtherCodes.h"

namespace sylvora {
namespace engine {

// Sixteen codes at a time, each in the high half of a word whose low half is its place: that is the
// layout of OtherCode. A compress in a register and a plain store are faster than a store that
// compresses.
int FindOtherCodesAvx512(const uint16_t* codes, int count, int shift, uint16_t frequent,
                         OtherCode* others) {
    const __m128i shiftBy = _mm_cvtsi32_si128(shift);
    const __m512i skipped = _mm512_set1_epi32(frequent);
    const __m512i sixteen = _mm512_set1_epi32(16);
    __m512i place = _mm512_setr_epi32(0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15);
    int num = 0;
    const auto take = [&](__m256i some, __mmask16 valid) {
        const __m512i bin = _mm512_srl_epi32(_mm512_cvtepu16_epi32(some), shiftBy);
        const __mmask16 fOther = _mm512_mask_cmpneq_epi32_mask(valid, bin, skipped);
        const __m512i other = _mm512_or_si512(place, _mm512_slli_epi32(bin, 16));
        _mm512_storeu_si512(others + num, _mm512_maskz_compress_epi32(fOther, other));
        num += __builtin_popcount(fOther);
        place = _mm512_add_epi32(place, sixteen);
    };
    int i = 0;
    for (; i + 16 <= count; i += 16) {
        take(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(codes + i)), 0xffff);
    }
    if (i == count) return num;
    // The last codes are copied, as no more may be read.
    alignas(32) uint16_t lastV[16] = {};
    for (int k = 0; i + k < count; ++k) lastV[k] = codes[i + k];
    take(_mm256_load_si256(reinterpret_cast<const __m256i*>(lastV)),
         static_cast<__mmask16>((1 << (count - i)) - 1));
    return num;
}

}  // namespace engine
}  // namespace sylvora
