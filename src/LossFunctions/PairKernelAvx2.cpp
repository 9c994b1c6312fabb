// The kernel of the forces of pairs for processors with AVX2.
#include <cstdint>
#include <utility>

#include "../god/CorrectRounding.h"
#include "PairKernels.h"

namespace sylvora {
namespace {

constexpr int kLanes = 4;
#include "PairMasks.inl"

#include "PairKernel.inl"

}  // namespace

const PairKernel kPairAvx2 = {"avx2", AddAll<CrossEntropy>, AddAll<HingeSquare>};

}  // namespace sylvora
