// The choice of a kernel; see KeySelection.h.
#include "KeySelection.h"

#include <cstring>

#include "base/Switch.h"

namespace sylvora {
namespace engine {
namespace {

// From slowest to fastest.
const KeySelection* const kKernels[] = {&kKeySelectionBaseline, &kKeySelectionAvx2,
                                        &kKeySelectionAvx512};

bool CanRun(const KeySelection& kernel) {
    if (&kernel == &kKeySelectionAvx512) {
        return __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512bw") &&
               __builtin_cpu_supports("avx512dq") && __builtin_cpu_supports("avx512vl");
    }
    return &kernel == &kKeySelectionBaseline || __builtin_cpu_supports("avx2");
}

}  // namespace

const KeySelection* FindKeySelection(const char* name) {
    for (const KeySelection* kernel : kKernels) {
        if (std::strcmp(kernel->name, name) == 0 && CanRun(*kernel)) return kernel;
    }
    return nullptr;
}

// Scoring warns about an unknown name; see KernelChoice.h.
const KeySelection& ChooseKeySelection() {
    const char* const forced = ForcedKernel();
    const KeySelection* best = forced != nullptr ? FindKeySelection(forced) : nullptr;
    for (const KeySelection* kernel : kKernels) {
        if (forced == nullptr && CanRun(*kernel)) best = kernel;
    }
    return best != nullptr ? *best : kKeySelectionBaseline;
}

}  // namespace engine
}  // namespace sylvora
