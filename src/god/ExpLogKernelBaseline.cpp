// The kernel of exp and log for every x86-64 processor.
#include <cstdint>

#include "ExpLogKernels.h"
#include "ExpLogTables.h"

namespace sylvora {
namespace {

constexpr int kLanes = 2;
#include "ExpLogKernels.inl"

}  // namespace

const ExpLogKernel kExpLogBaseline = {"baseline", Map<FastExp>, Map<FastLog>, SplitExp};

}  // namespace sylvora
