// The choice of a kernel; see KernelChoice.h.
#include "KernelChoice.h"

#include <cstring>

#include "base/Switch.h"
#include "god/Report.h"

namespace sylvora {
namespace engine {
namespace {

// From slowest to fastest; ChooseKernel takes the last that can run.
const BlockKernel* const kKernels[] = {&kBaselineKernel, &kAvx2Kernel, &kAvx512Kernel};

bool CanRun(const BlockKernel& kernel) {
    if (&kernel == &kAvx512Kernel) {
        return __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512bw") &&
               __builtin_cpu_supports("avx512dq") && __builtin_cpu_supports("avx512vl");
    }
    return &kernel == &kBaselineKernel || __builtin_cpu_supports("avx2");
}

}  // namespace

const BlockKernel* FindKernel(const char* name) {
    for (const BlockKernel* kernel : kKernels) {
        if (std::strcmp(kernel->name, name) == 0 && CanRun(*kernel)) return kernel;
    }
    return nullptr;
}

const BlockKernel& ChooseKernel() {
    const BlockKernel* best = kKernels[0];
    for (const BlockKernel* kernel : kKernels) {
        if (CanRun(*kernel)) best = kernel;
    }
    const char* forced = ForcedKernel();
    if (forced == nullptr) return *best;
    const BlockKernel* kernel = FindKernel(forced);
    if (kernel != nullptr) return *kernel;
    Warn("WARNING: SYLVORA_KERNEL=", forced, ": no such kernel runs here, using ", best->name,
         "!\n");
    return *best;
}

}  // namespace engine
}  // namespace sylvora
