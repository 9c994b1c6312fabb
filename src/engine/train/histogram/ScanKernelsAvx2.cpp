// The kernels of ScanKernels.h for processors with AVX2: four bins at a time.
#include <immintrin.h>

#include "ScanKernels.h"

namespace sylvora {
namespace engine {
namespace {

constexpr int kLanes = 4;

typedef __m256d Doubles;

struct Words {
    __m256i sums, packed;
};

inline Doubles Set(double x) {
    return _mm256_set1_pd(x);
}
inline Doubles Max(Doubles x, Doubles y) {
    return _mm256_max_pd(x, y);
}
inline Doubles Min(Doubles x, Doubles y) {
    return _mm256_min_pd(x, y);
}
inline Doubles Abs(Doubles x) {
    return _mm256_andnot_pd(_mm256_set1_pd(-0.0), x);
}
inline Doubles IfPositive(Doubles x, Doubles yes, Doubles no) {
    return _mm256_blendv_pd(no, yes, _mm256_cmp_pd(x, _mm256_setzero_pd(), _CMP_GT_OQ));
}
inline unsigned AtLeast(Doubles x, Doubles y) {
    return static_cast<unsigned>(_mm256_movemask_pd(_mm256_cmp_pd(x, y, _CMP_GE_OQ)));
}
inline void Store(double* to, Doubles x) {
    _mm256_storeu_pd(to, x);
}

inline Words Load(const Cell* cells) {
    const __m256i a = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(cells));
    const __m256i b = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(cells + 2));
    // The halves come in the order 0 2 1 3.
    return {_mm256_permute4x64_epi64(_mm256_unpacklo_epi64(a, b), 0xd8),
            _mm256_permute4x64_epi64(_mm256_unpackhi_epi64(a, b), 0xd8)};
}
inline Words Minus(const Words& a, const Words& b) {
    return {_mm256_sub_epi64(a.sums, b.sums), _mm256_sub_epi64(a.packed, b.packed)};
}

// AVX2 has no such conversion. The high 16 bits of a word are added to the fraction of a large
// double, and the low 48 bits to that of 2^52, both without loss. The last addition rounds.
inline Doubles ToDoubles(__m256i words) {
    const __m256i zero = _mm256_setzero_si256();
    const Doubles highOrigin = _mm256_set1_pd(0x3p67);
    const Doubles lowOrigin = _mm256_set1_pd(0x1p52);
    const __m256i highBits = _mm256_blend_epi16(_mm256_srai_epi32(words, 16), zero, 0x33);
    const __m256i high = _mm256_add_epi64(highBits, _mm256_castpd_si256(highOrigin));
    const __m256i low = _mm256_blend_epi16(words, _mm256_castpd_si256(lowOrigin), 0x88);
    const Doubles highPart = _mm256_castsi256_pd(high) - (highOrigin + lowOrigin);
    return highPart + _mm256_castsi256_pd(low);
}
inline Doubles SumOf(const Words& words) {
    return ToDoubles(words.sums);
}
inline Doubles WeightOf(const Words& words, int weightBits) {
    const __m256i weights = _mm256_set1_epi64x((int64_t{1} << weightBits) - 1);
    return ToDoubles(_mm256_and_si256(words.packed, weights));
}
inline Doubles AbsOf(const Words& words, int weightBits) {
    return ToDoubles(_mm256_srl_epi64(words.packed, _mm_cvtsi32_si128(weightBits)));
}

#include "ScanKernels.inl"

}  // namespace

const ScanKernels kScanKernelsAvx2 = {Best, Reachable, Bounds, MayReach};

}  // namespace engine
}  // namespace sylvora
