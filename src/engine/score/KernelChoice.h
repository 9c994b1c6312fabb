// The kernels, one pair per instruction set, and the choice among them.
#ifndef SYLVORA_ENGINE_SCORE_KERNELCHOICE_H
#define SYLVORA_ENGINE_SCORE_KERNELCHOICE_H

#include "BlockKernel.h"

namespace sylvora {
namespace engine {

// One per instruction set; see god/InstructionSets.h.
extern const BlockKernel kBaselineKernel;
extern const BlockKernel kAvx2Kernel;
extern const BlockKernel kAvx512Kernel;

// Returns the kernel called `name`; null if there is none or this processor cannot run it. Kernels
// are static objects, never freed. Safe to call from any thread.
const BlockKernel* FindKernel(const char* name);

// Returns the kernel that SYLVORA_KERNEL names, or else the fastest that this processor can run.
// Warns about a name that is unknown or cannot run here, and ignores it.
const BlockKernel& ChooseKernel();

}  // namespace engine
}  // namespace sylvora

#endif  // SYLVORA_ENGINE_SCORE_KERNELCHOICE_H
