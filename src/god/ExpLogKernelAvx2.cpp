// The kernel of exp and log for processors with AVX2.
#include <cstdint>

#include "ExpLogKernels.h"
#include "ExpLogTables.h"

namespace sylvora {
namespace {

constexpr int kLanes = 4;
#include "ExpLogKernels.inl"

}  // namespace

const ExpLogKernel kExpLogAvx2 = {"avx2", Map<FastExp>, Map<FastLog>, SplitExp};

}  // namespace sylvora
