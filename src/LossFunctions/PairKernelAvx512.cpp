// The kernel of the forces of pairs for processors with AVX-512 F and DQ.
#include <immintrin.h>

#include <cstdint>
#include <utility>

#include "../god/CorrectRounding.h"
#include "PairKernels.h"

namespace sylvora {
namespace {

// As in PairMasks.inl, in mask registers.
constexpr int kLanes = 8;
typedef double Reals __attribute__((vector_size(64)));
typedef __mmask8 Mask;

static inline Mask IsLess(Reals a, Reals b) {
    return _mm512_cmp_pd_mask(a, b, _CMP_LT_OQ);
}

static inline Mask IsUnequal(Reals a, Reals b) {
    return _mm512_cmp_pd_mask(a, b, _CMP_NEQ_UQ);
}

static inline Mask Either(Mask a, Mask b) {
    return _kor_mask8(a, b);
}

static inline Mask Both(Mask a, Mask b) {
    return _kand_mask8(a, b);
}

static inline bool IsAny(Mask mask) {
    return mask != 0;
}

static inline Reals Select(Mask mask, Reals a, Reals b) {
    return _mm512_mask_blend_pd(mask, b, a);
}

static inline Reals KeepOnly(Mask mask, Reals value) {
    return _mm512_maskz_mov_pd(mask, value);
}

static inline Reals FlipSign(Mask mask, Reals value) {
    return _mm512_mask_xor_pd(value, mask, value, _mm512_set1_pd(-0.0));
}

static inline Reals Absolute(Reals value) {
    return _mm512_abs_pd(value);
}

#include "PairKernel.inl"

}  // namespace

const PairKernel kPairAvx512 = {"avx512", AddAll<CrossEntropy>, AddAll<HingeSquare>};

}  // namespace sylvora
