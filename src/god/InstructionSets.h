// The instruction sets that kernels are compiled for, and the choice among the kernels of a kind.
//
// A kernel for AVX2 or AVX-512 is the only external symbol of an object that is compiled for its
// instruction set (CMakeLists.txt). Such an object must define nothing else that is shared: the
// linker could pick its copy of an inline function for the whole program, which would then fail on
// older processors.
#ifndef SYLVORA_GOD_INSTRUCTIONSETS_H
#define SYLVORA_GOD_INSTRUCTIONSETS_H

#include <cstring>

namespace sylvora {

// From slowest to fastest. kAvx512 has the parts F, BW, DQ and VL.
enum class InstructionSet { kBaseline, kAvx2, kAvx512 };

constexpr InstructionSet kInstructionSets[] = {InstructionSet::kBaseline, InstructionSet::kAvx2,
                                               InstructionSet::kAvx512};
constexpr const char* kInstructionSetNames[] = {"baseline", "avx2", "avx512"};

// Whether this processor has the instruction set. Safe to call from any thread.
bool CanRun(InstructionSet set);

// The kernels of one kind, which all give the same results: one per instruction set, in the order
// above. Kernels are static objects or functions.
template <typename Kernel>
struct KernelsOfSets {
    Kernel* kernelV[3];

    // The kernel called `name`; null if there is none or this processor cannot run it.
    Kernel* Find(const char* name) const {
        for (const InstructionSet set : kInstructionSets) {
            const int s = static_cast<int>(set);
            if (std::strcmp(kInstructionSetNames[s], name) == 0 && CanRun(set)) return kernelV[s];
        }
        return nullptr;
    }
    // The kernel called `name`, or else, and if `name` is null, the fastest that runs here.
    Kernel& Choose(const char* name) const {
        Kernel* best = name != nullptr ? Find(name) : nullptr;
        if (best != nullptr) return *best;
        for (const InstructionSet set : kInstructionSets) {
            if (CanRun(set)) best = kernelV[static_cast<int>(set)];
        }
        return *best;
    }
};

}  // namespace sylvora

#endif  // SYLVORA_GOD_INSTRUCTIONSETS_H
