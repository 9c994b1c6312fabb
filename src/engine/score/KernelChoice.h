// The block kernels, one per instruction set, and which of them to use.
#ifndef SYLVORA_ENGINE_SCORE_KERNELCHOICE_H
#define SYLVORA_ENGINE_SCORE_KERNELCHOICE_H

#include "BlockKernel.h"

namespace sylvora {
namespace engine {

// Each is the only name of an object that is compiled for its instruction set (CMakeLists.txt):
// nothing else may be called from there, or code for the wrong processor could spread.
extern const BlockKernel kBaselineKernel;
extern const BlockKernel kAvx2Kernel;
extern const BlockKernel kAvx512Kernel;

// The kernel called `name`, or null where there is none or this processor cannot run it.
const BlockKernel* FindKernel(const char* name);

// The one that the environment names (SYLVORA_KERNEL), or else the fastest that this processor can
// run. A name that cannot be followed is reported and ignored.
const BlockKernel& ChooseKernel();

}  // namespace engine
}  // namespace sylvora

#endif  // SYLVORA_ENGINE_SCORE_KERNELCHOICE_H
