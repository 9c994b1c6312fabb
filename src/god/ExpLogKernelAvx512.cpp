// The kernel of exp and log for processors with AVX-512 F and DQ.
#include <cstdint>

#include "ExpLogKernels.h"
#include "ExpLogTables.h"

namespace sylvora {
namespace {

constexpr int kLanes = 8;
#include "ExpLogKernels.inl"

}  // namespace

const ExpLogKernel kExpLogAvx512 = {"avx512", Map<FastExp>, Map<FastLog>, SplitExp};

}  // namespace sylvora
