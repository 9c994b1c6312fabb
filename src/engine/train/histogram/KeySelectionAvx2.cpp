// Key selection for processors with AVX2.
#include <immintrin.h>

#include "KeySelection.h"

namespace sylvora {
namespace engine {
namespace {

#include "KeySelection.inl"

// By mask of eight: the positions of the set bits, one per byte, ascending.
struct SetBits {
    uint8_t positionV[256][8] = {};

    constexpr SetBits() {
        for (int mask = 0; mask < 256; ++mask) {
            int num = 0;
            for (uint8_t bit = 0; bit < 8; ++bit) {
                if ((mask >> bit & 1) != 0) positionV[mask][num++] = bit;
            }
        }
    }
};
constexpr SetBits kSetBits;

// Tests 32 codes at a time: the low four bits select a byte of the table, bit 7 which half of the
// table, and the other three bits of the code a bit of the byte.
inline unsigned TestCodes(__m256i codes, __m256i lowHalf, __m256i highHalf) {
    const __m256i kSelect = _mm256_set1_epi8(static_cast<char>(0x8f));  // a byte with bit 7 gives 0
    const __m256i kBits = _mm256_set1_epi64x(static_cast<long long>(0x8040201008040201u));
    const __m256i flipped = _mm256_xor_si256(codes, _mm256_set1_epi8(static_cast<char>(0x80)));
    const __m256i byte =
        _mm256_or_si256(_mm256_shuffle_epi8(lowHalf, _mm256_and_si256(codes, kSelect)),
                        _mm256_shuffle_epi8(highHalf, _mm256_and_si256(flipped, kSelect)));
    const __m256i at = _mm256_and_si256(_mm256_srli_epi16(codes, 4), _mm256_set1_epi8(7));
    const __m256i bit = _mm256_shuffle_epi8(kBits, at);
    return static_cast<unsigned>(
        _mm256_movemask_epi8(_mm256_cmpeq_epi8(_mm256_and_si256(byte, bit), bit)));
}

// Appends the rows and codes of a mask, eight at a time.
inline int Append(unsigned mask, const int* rowV, const uint8_t* codeV, int num,
                  SelectedRows& selected) {
    for (; mask != 0; mask >>= 8, rowV += 8, codeV += 8) {
        const __m128i positions =
            _mm_loadl_epi64(reinterpret_cast<const __m128i*>(kSetBits.positionV[mask & 0xff]));
        const __m256i rows = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(rowV));
        const __m128i codes = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(codeV));
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(selected.rowV + num),
                            _mm256_permutevar8x32_epi32(rows, _mm256_cvtepu8_epi32(positions)));
        _mm_storel_epi64(reinterpret_cast<__m128i*>(selected.code8V + num),
                         _mm_shuffle_epi8(codes, positions));
        num += __builtin_popcount(mask & 0xff);
    }
    return num;
}

void SelectRows(const CandidateCodes& candidates, const uint8_t* codeV, const int* rowV, int count,
                SelectedRows& selected) {
    const __m128i* const bits = reinterpret_cast<const __m128i*>(candidates.bitsV);
    const __m256i lowHalf = _mm256_broadcastsi128_si256(_mm_loadu_si128(bits));
    const __m256i highHalf = _mm256_broadcastsi128_si256(_mm_loadu_si128(bits + 1));
    uint8_t buffer[SelectedRows::kMost];
    const uint8_t* const codes = CodesOf(codeV, rowV, count, buffer);
    int num = 0;
    int i = 0;
    for (; i + 32 <= count; i += 32) {
        const __m256i block = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(codes + i));
        num = Append(TestCodes(block, lowHalf, highHalf), rowV + i, codes + i, num, selected);
    }
    for (; i < count; ++i) {
        selected.rowV[num] = rowV[i];
        selected.code8V[num] = codes[i];
        num += candidates.fCandidateV[codes[i]];
    }
    selected.num = num;
}

int SelectKeys(const CandidateMarks& candidates, const SelectedRows& selected,
               const uint32_t* rankV, uint64_t* keyV) {
    return SelectKeysFrom(0, candidates, selected, rankV, keyV, 0);
}

}  // namespace

const KeySelection kKeySelectionAvx2 = {SelectRows, SelectKeys};

}  // namespace engine
}  // namespace sylvora
