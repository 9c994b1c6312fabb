// The search for other codes on every x86-64 processor; see OtherCodes.h.
#include "OtherCodes.h"

#include <emmintrin.h>

namespace sylvora {
namespace engine {
namespace {

// Bit i: whether codes[i], shifted, is `frequent`, for eight codes.
inline unsigned FrequentOf8(const uint16_t* codes, __m128i shiftBy, __m128i frequent) {
    const __m128i some = _mm_loadu_si128(reinterpret_cast<const __m128i*>(codes));
    const __m128i fSame = _mm_cmpeq_epi16(_mm_srl_epi16(some, shiftBy), frequent);
    return static_cast<unsigned>(_mm_movemask_epi8(_mm_packs_epi16(fSame, _mm_setzero_si128())));
}

}  // namespace

// Marks the other codes in a word of bits, 32 codes at a time, then goes from bit to bit: no branch
// depends on a single code, which cannot be predicted.
int FindOtherCodesBaseline(const uint16_t* codes, int count, int shift, uint16_t frequent,
                           OtherCode* others) {
    const __m128i shiftBy = _mm_cvtsi32_si128(shift);
    const __m128i skipped = _mm_set1_epi16(static_cast<int16_t>(frequent));
    int num = 0;
    int i = 0;
    for (; i + 32 <= count; i += 32) {
        uint32_t same = 0;
        for (int k = 0; k < 32; k += 8) same |= FrequentOf8(codes + i + k, shiftBy, skipped) << k;
        for (uint32_t rest = ~same; rest != 0; rest &= rest - 1) {
            const int place = i + __builtin_ctz(rest);
            others[num++] = {static_cast<uint16_t>(place),
                             static_cast<uint16_t>(codes[place] >> shift)};
        }
    }
    for (; i < count; ++i) {
        const uint16_t bin = static_cast<uint16_t>(codes[i] >> shift);
        others[num] = {static_cast<uint16_t>(i), bin};
        num += bin != frequent;
    }
    return num;
}

}  // namespace engine
}  // namespace sylvora
