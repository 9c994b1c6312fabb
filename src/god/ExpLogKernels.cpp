// Exponentials and logarithms of arrays: a kernel first, the reference for what it leaves open.
#include "ExpLogKernels.h"

#include <algorithm>

#include "CorrectRounding.h"

namespace sylvora {
namespace {

// Few enough to be in the nearest cache when they are looked at again.
constexpr size_t kBlock = 512;

template <typename Kernel, typename Reference>
void MapBlocks(Kernel kernel, Reference reference, const double* xV, double* resultV,
               size_t count) {
    for (size_t at = 0; at < count; at += kBlock) {
        const size_t end = std::min(at + kBlock, count);
        if (!kernel(xV + at, resultV + at, end - at)) continue;
        for (size_t i = at; i < end; ++i) {
            if (resultV[i] != resultV[i]) resultV[i] = reference(xV[i]);
        }
    }
}

// The fastest that this processor can run.
const ExpLogKernel& ChooseKernel() {
    static const ExpLogKernel& best =
        __builtin_cpu_supports("avx2") ? kExpLogAvx2 : kExpLogBaseline;
    return best;
}

}  // namespace

void ExpEach(const double* xV, double* resultV, size_t count) {
    MapBlocks(ChooseKernel().exp, Exp, xV, resultV, count);
}

void LogEach(const double* xV, double* resultV, size_t count) {
    MapBlocks(ChooseKernel().log, Log, xV, resultV, count);
}

}  // namespace sylvora
