// The kernels of ScanKernels.h for processors with AVX-512 F and DQ: eight bins at a time.
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

#include "ScanKernels.h"

namespace sylvora {
namespace engine {
namespace {

constexpr int kLanes = 8;

typedef __m512d Doubles;

struct Words {
    __m512i sums, packed;
};

inline Doubles Set(double x) {
    return _mm512_set1_pd(x);
}
inline Doubles Max(Doubles x, Doubles y) {
    return _mm512_max_pd(x, y);
}
inline Doubles Min(Doubles x, Doubles y) {
    return _mm512_min_pd(x, y);
}
inline Doubles Abs(Doubles x) {
    return _mm512_abs_pd(x);
}
inline Doubles IfPositive(Doubles x, Doubles yes, Doubles no) {
    return _mm512_mask_blend_pd(_mm512_cmp_pd_mask(x, _mm512_setzero_pd(), _CMP_GT_OQ), no, yes);
}
inline unsigned AtLeast(Doubles x, Doubles y) {
    return _mm512_cmp_pd_mask(x, y, _CMP_GE_OQ);
}
inline void Store(double* to, Doubles x) {
    _mm512_storeu_pd(to, x);
}

inline Words Load(const Cell* cells) {
    const __m512i a = _mm512_loadu_si512(cells);
    const __m512i b = _mm512_loadu_si512(cells + 4);
    const __m512i even = _mm512_setr_epi64(0, 2, 4, 6, 8, 10, 12, 14);
    const __m512i odd = _mm512_setr_epi64(1, 3, 5, 7, 9, 11, 13, 15);
    return {_mm512_permutex2var_epi64(a, even, b), _mm512_permutex2var_epi64(a, odd, b)};
}
inline Words Minus(const Words& a, const Words& b) {
    return {_mm512_sub_epi64(a.sums, b.sums), _mm512_sub_epi64(a.packed, b.packed)};
}
inline Doubles SumOf(const Words& words) {
    return _mm512_cvtepi64_pd(words.sums);
}
inline Doubles WeightOf(const Words& words, int weightBits) {
    const __m512i weights = _mm512_set1_epi64((int64_t{1} << weightBits) - 1);
    return _mm512_cvtepi64_pd(_mm512_and_si512(words.packed, weights));
}
inline Doubles AbsOf(const Words& words, int weightBits) {
    const __m128i bits = _mm_cvtsi32_si128(weightBits);
    return _mm512_cvtepi64_pd(_mm512_srl_epi64(words.packed, bits));
}

#include "ScanKernels.inl"

}  // namespace

const ScanKernels kScanKernelsAvx512 = {Best, Reachable, Bounds, MayReach};

}  // namespace engine
}  // namespace sylvora
