// The kernels of ScanKernels.h for every x86-64 processor: two bins at a time.
#include <emmintrin.h>

#include "ScanKernels.h"

namespace sylvora {
namespace engine {
namespace {

constexpr int kLanes = 2;

typedef __m128d Doubles;

struct Words {
    __m128i sums, packed;
};

inline Doubles Set(double x) {
    return _mm_set1_pd(x);
}
inline Doubles Max(Doubles x, Doubles y) {
    return _mm_max_pd(x, y);
}
inline Doubles Min(Doubles x, Doubles y) {
    return _mm_min_pd(x, y);
}
inline Doubles Abs(Doubles x) {
    return _mm_andnot_pd(_mm_set1_pd(-0.0), x);
}
inline Doubles IfPositive(Doubles x, Doubles yes, Doubles no) {
    const Doubles fPositive = _mm_cmpgt_pd(x, _mm_setzero_pd());
    return _mm_or_pd(_mm_and_pd(fPositive, yes), _mm_andnot_pd(fPositive, no));
}
inline unsigned AtLeast(Doubles x, Doubles y) {
    return static_cast<unsigned>(_mm_movemask_pd(_mm_cmpge_pd(x, y)));
}
inline void Store(double* to, Doubles x) {
    _mm_storeu_pd(to, x);
}

inline Words Load(const Cell* cells) {
    const __m128i a = _mm_load_si128(reinterpret_cast<const __m128i*>(cells));
    const __m128i b = _mm_load_si128(reinterpret_cast<const __m128i*>(cells + 1));
    return {_mm_unpacklo_epi64(a, b), _mm_unpackhi_epi64(a, b)};
}
inline Words Minus(const Words& a, const Words& b) {
    return {_mm_sub_epi64(a.sums, b.sums), _mm_sub_epi64(a.packed, b.packed)};
}
inline Doubles ToDoubles(__m128i words) {
    return _mm_setr_pd(static_cast<double>(_mm_cvtsi128_si64(words)),
                       static_cast<double>(_mm_cvtsi128_si64(_mm_unpackhi_epi64(words, words))));
}
inline Doubles SumOf(const Words& words) {
    return ToDoubles(words.sums);
}
inline Doubles WeightOf(const Words& words, int weightBits) {
    const __m128i weights = _mm_set1_epi64x((int64_t{1} << weightBits) - 1);
    return ToDoubles(_mm_and_si128(words.packed, weights));
}
inline Doubles AbsOf(const Words& words, int weightBits) {
    return ToDoubles(_mm_srl_epi64(words.packed, _mm_cvtsi32_si128(weightBits)));
}

#include "ScanKernels.inl"

}  // namespace

const ScanKernels kScanKernelsBaseline = {Best, Reachable, Bounds, MayReach};

}  // namespace engine
}  // namespace sylvora
