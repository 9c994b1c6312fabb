// Loops over rows and keys, compiled for several instruction sets. All give the same results.
#ifndef SYLVORA_ENGINE_TRAIN_ROWKERNELS_H
#define SYLVORA_ENGINE_TRAIN_ROWKERNELS_H

#include <cstddef>
#include <cstdint>

#include "god/InstructionSets.h"

namespace sylvora {
namespace engine {

// Marks are 0 or 1. Results may be written up to kSlack entries past the last one.
struct RowKernels {
    static constexpr int kSlack = 16;

    // Copies the rows with mark 1 to leftV and the others to rightV, in order. Returns the number
    // of rows with mark 1.
    int (*split)(const int* rowV, const uint8_t* markV, int count, int* leftV, int* rightV);
    // Lists first + i for each i in [0, count) with markV[i] == wanted, in order. Returns how many
    // these are.
    int (*list)(const uint8_t* markV, uint8_t wanted, int first, int count, int* positionV);
    // Bit i of the result: whether keyV[i] >= least, for i in [0, 64). All are below 2^63.
    uint64_t (*markAtLeast)(const uint64_t* keyV, uint64_t least);
    // Sorts few distinct keys, in time that grows with the square of `count`. keyV must have room
    // for kSlack more, which are overwritten.
    void (*sortFew)(uint64_t* keyV, int count, uint64_t* sortedV);
    // The most keys for which sortFew is faster than other ways to sort.
    int fewKeys;
};

extern const RowKernels kRowKernelsBaseline;
extern const RowKernels kRowKernelsAvx2;
extern const RowKernels kRowKernelsAvx512;

constexpr KernelsOfSets<const RowKernels> kRowKernels = {
    {&kRowKernelsBaseline, &kRowKernelsAvx2, &kRowKernelsAvx512}};

// The fastest kernels that this processor can run. Safe to call from any thread.
const RowKernels& BestRowKernels();

}  // namespace engine
}  // namespace sylvora

#endif  // SYLVORA_ENGINE_TRAIN_ROWKERNELS_H
