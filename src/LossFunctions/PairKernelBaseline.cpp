// The kernel of the forces of pairs for every x86-64 processor.
#include <cstdint>
#include <utility>

#include "../god/CorrectRounding.h"
#include "PairKernels.h"

namespace sylvora {
namespace {

constexpr int kLanes = 2;
#include "PairMasks.inl"

#include "PairKernel.inl"

}  // namespace

const PairKernel kPairBaseline = {"baseline", AddAll<CrossEntropy>, AddAll<HingeSquare>};

}  // namespace sylvora
