// What this processor can run; see InstructionSets.h.
#include "InstructionSets.h"

namespace sylvora {

bool CanRun(InstructionSet set) {
    if (set == InstructionSet::kAvx512) {
        return __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512bw") &&
               __builtin_cpu_supports("avx512dq") && __builtin_cpu_supports("avx512vl");
    }
    return set == InstructionSet::kBaseline || __builtin_cpu_supports("avx2");
}

}  // namespace sylvora
