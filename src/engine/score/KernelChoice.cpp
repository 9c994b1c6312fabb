// The choice of a kernel; see KernelChoice.h.
#include "KernelChoice.h"

#include "base/Switch.h"
#include "god/InstructionSets.h"
#include "god/Report.h"

namespace sylvora {
namespace engine {
namespace {

constexpr KernelsOfSets<const BlockKernel> kKernels = {
    {&kBaselineKernel, &kAvx2Kernel, &kAvx512Kernel}};

}  // namespace

const BlockKernel* FindKernel(const char* name) {
    return kKernels.Find(name);
}

const BlockKernel& ChooseKernel() {
    const char* forced = ForcedKernel();
    const BlockKernel& kernel = kKernels.Choose(forced);
    if (forced != nullptr && kKernels.Find(forced) == nullptr) {
        Warn("WARNING: SYLVORA_KERNEL=", forced, ": no such kernel runs here, using ", kernel.name,
             "!\n");
    }
    return kernel;
}

}  // namespace engine
}  // namespace sylvora
