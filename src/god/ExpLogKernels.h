// The kernels of ExpEach and LogEach, one per instruction set. All give the same bits.
#ifndef SYLVORA_GOD_EXPLOGKERNELS_H
#define SYLVORA_GOD_EXPLOGKERNELS_H

#include <cstddef>

#include "InstructionSets.h"

namespace sylvora {

// The functions set resultV[i] to the correctly rounded result, or to NaN if they cannot decide it
// or the argument is special. They return true if some result may be undecided.
struct ExpLogKernel {
    const char* name;
    bool (*exp)(const double* xV, double* resultV, size_t count);
    bool (*log)(const double* xV, double* resultV, size_t count);
    void (*splitExp)(const double* xV, double* headV, double* restV, size_t count);
};

extern const ExpLogKernel kExpLogBaseline;
extern const ExpLogKernel kExpLogAvx2;
extern const ExpLogKernel kExpLogAvx512;

constexpr KernelsOfSets<const ExpLogKernel> kExpLogKernels = {
    {&kExpLogBaseline, &kExpLogAvx2, &kExpLogAvx512}};

// Sets headV[i] and restV[i] to two parts of e^x, head * (1 + rest), with a relative error of at
// most 2^-67.3, for |xV[i]| <= 700. A head has 26 significant bits, so that the product of two
// heads is exact; |rest| <= 2^-26. Other arguments give any values. The arrays must not overlap.
void SplitExpEach(const double* xV, double* headV, double* restV, size_t count);

}  // namespace sylvora

#endif  // SYLVORA_GOD_EXPLOGKERNELS_H
