// The kernels, one pair per instruction set, and the choice among them.
#ifndef SYLVORA_ENGINE_SCORE_KERNELCHOICE_H
#define SYLVORA_ENGINE_SCORE_KERNELCHOICE_H

#include "BlockKernel.h"

namespace sylvora {
namespace engine {

// Each is the only external symbol of an object that is compiled for its instruction set
// (CMakeLists.txt). Such an object must define nothing else that is shared: the linker could pick
// its copy of an inline function for the whole program, which would then fail on older processors.
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
