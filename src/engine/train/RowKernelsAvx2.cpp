// The kernels of RowKernels.h for processors with AVX2: eight rows at a time, compressed by a
// permutation from a table.
#include <immintrin.h>

#include "RowKernels.h"

namespace sylvora {
namespace engine {
namespace {

constexpr int kLanes = 8;

// By mask: the lanes in the mask, in ascending order.
struct Permutations {
    alignas(8) uint8_t laneVV[1 << kLanes][kLanes] = {};

    constexpr Permutations() {
        for (int mask = 0; mask < 1 << kLanes; ++mask) {
            int num = 0;
            for (int lane = 0; lane < kLanes; ++lane) {
                if ((mask >> lane & 1) != 0) laneVV[mask][num++] = static_cast<uint8_t>(lane);
            }
        }
    }
};

constexpr Permutations kPermutations;

// Moves the lanes in the mask to the front.
inline __m256i Compress(__m256i values, unsigned mask) {
    const __m128i lanes =
        _mm_loadl_epi64(reinterpret_cast<const __m128i*>(kPermutations.laneVV[mask]));
    return _mm256_permutevar8x32_epi32(values, _mm256_cvtepu8_epi32(lanes));
}

// By lane: whether its mark equals `wanted`. Reads eight marks.
inline unsigned MarksAt(const uint8_t* markV, __m128i wanted) {
    const __m128i marks = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(markV));
    return static_cast<unsigned>(_mm_movemask_epi8(_mm_cmpeq_epi8(marks, wanted))) & 0xffu;
}

inline void Store(int* to, __m256i values) {
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(to), values);
}

int Split(const int* rowV, const uint8_t* markV, int count, int* leftV, int* rightV) {
    const __m128i one = _mm_set1_epi8(1);
    int numLeft = 0;
    int i = 0;
    for (; i + kLanes <= count; i += kLanes) {
        const unsigned left = MarksAt(markV + i, one);
        const __m256i rows = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(rowV + i));
        Store(leftV + numLeft, Compress(rows, left));
        Store(rightV + i - numLeft, Compress(rows, left ^ 0xffu));
        numLeft += __builtin_popcount(left);
    }
    for (; i < count; ++i) {
        leftV[numLeft] = rightV[i - numLeft] = rowV[i];
        numLeft += markV[i];
    }
    return numLeft;
}

int List(const uint8_t* markV, uint8_t wanted, int first, int count, int* positionV) {
    const __m256i lanes = _mm256_setr_epi32(0, 1, 2, 3, 4, 5, 6, 7);
    const __m128i wantedV = _mm_set1_epi8(static_cast<char>(wanted));
    int num = 0;
    int i = 0;
    for (; i + kLanes <= count; i += kLanes) {
        const unsigned marked = MarksAt(markV + i, wantedV);
        const __m256i positions = _mm256_add_epi32(lanes, _mm256_set1_epi32(first + i));
        Store(positionV + num, Compress(positions, marked));
        num += __builtin_popcount(marked);
    }
    for (; i < count; ++i) {
        positionV[num] = first + i;
        num += markV[i] == wanted;
    }
    return num;
}

uint64_t MarkAtLeast(const uint64_t* keyV, uint64_t least) {
    constexpr int kKeys = 4;
    const __m256i bound = _mm256_set1_epi64x(static_cast<long long>(least));
    uint64_t below = 0;
    for (int i = 0; i < 64; i += kKeys) {
        const __m256i keys = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(keyV + i));
        const int mask = _mm256_movemask_pd(_mm256_castsi256_pd(_mm256_cmpgt_epi64(bound, keys)));
        below |= static_cast<uint64_t>(static_cast<unsigned>(mask)) << i;
    }
    return ~below;
}

// The place of a key is the number of keys below it. Counts for 16 keys at a time. The highest bit
// is flipped, because the comparison is one of signed numbers.
void SortFew(uint64_t* keyV, int count, uint64_t* sortedV) {
    constexpr int kKeys = 4;
    constexpr int kRegisters = 4;
    constexpr uint64_t kSign = uint64_t{1} << 63;
    // Padding, larger than any key.
    for (int k = count; k % (kKeys * kRegisters) != 0; ++k) keyV[k] = ~uint64_t{0};
    const __m256i sign = _mm256_set1_epi64x(static_cast<long long>(kSign));
    for (int i = 0; i < count; i += kKeys * kRegisters) {
        __m256i keys[kRegisters], places[kRegisters];
        for (int r = 0; r < kRegisters; ++r) {
            const __m256i loaded =
                _mm256_loadu_si256(reinterpret_cast<const __m256i*>(keyV + i + r * kKeys));
            keys[r] = _mm256_xor_si256(loaded, sign);
            places[r] = _mm256_setzero_si256();
        }
        for (int k = 0; k < count; ++k) {
            const __m256i key = _mm256_set1_epi64x(static_cast<long long>(keyV[k] ^ kSign));
            for (int r = 0; r < kRegisters; ++r) {
                places[r] = _mm256_sub_epi64(places[r], _mm256_cmpgt_epi64(keys[r], key));
            }
        }
        alignas(32) uint64_t placeV[kKeys * kRegisters];
        for (int r = 0; r < kRegisters; ++r) {
            _mm256_store_si256(reinterpret_cast<__m256i*>(placeV + r * kKeys), places[r]);
        }
        const int num = count - i < kKeys * kRegisters ? count - i : kKeys * kRegisters;
        for (int k = 0; k < num; ++k) sortedV[placeV[k]] = keyV[i + k];
    }
}

}  // namespace

const RowKernels kRowKernelsAvx2 = {Split, List, MarkAtLeast, SortFew, 64};

}  // namespace engine
}  // namespace sylvora
