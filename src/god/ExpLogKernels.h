// The inner loops of ExpEach and LogEach, one per instruction set, all with the same results.
#ifndef SYLVORA_GOD_EXPLOGKERNELS_H
#define SYLVORA_GOD_EXPLOGKERNELS_H

#include <cstddef>

namespace sylvora {

// The functions set resultV[i] to the correctly rounded result, or to NaN where they cannot decide
// it or the argument is special. They return whether there may be such an i.
struct ExpLogKernel {
    const char* name;
    bool (*exp)(const double* xV, double* resultV, size_t count);
    bool (*log)(const double* xV, double* resultV, size_t count);
};

// Each is the only name of an object that is compiled for its instruction set (CMakeLists.txt):
// nothing else may be called from there, or code for the wrong processor could spread.
extern const ExpLogKernel kExpLogBaseline;
extern const ExpLogKernel kExpLogAvx2;

}  // namespace sylvora

#endif  // SYLVORA_GOD_EXPLOGKERNELS_H
