// ExpEach and LogEach: a kernel first, then the reference implementation for undecided results.
#include "ExpLogKernels.h"

#include <algorithm>

#include "CorrectRounding.h"

namespace sylvora {
namespace {

// Elements per kernel call: few enough to be still in the L1 cache when the results are checked.
constexpr size_t kBlock = 512;

template <typename Kernel, typename Reference>
void MapBlocks(Kernel kernel, Reference reference, const double* xV, double* resultV,
               size_t count) {
    for (size_t at = 0; at < count; at += kBlock) {
        const size_t end = std::min(at + kBlock, count);
        if (!kernel(xV + at, resultV + at, end - at)) continue;
        for (size_t i = at; i < end; ++i) {
            if (resultV[i] != resultV[i]) resultV[i] = reference(xV[i]);  // NaN: undecided
        }
    }
}

// The fastest kernel that this processor can run.
const ExpLogKernel& ChooseKernel() {
    static const ExpLogKernel& best = kExpLogKernels.Choose(nullptr);
    return best;
}

}  // namespace

void ExpEach(const double* xV, double* resultV, size_t count) {
    MapBlocks(ChooseKernel().exp, Exp, xV, resultV, count);
}

void SplitExpEach(const double* xV, double* headV, double* restV, size_t count) {
    ChooseKernel().splitExp(xV, headV, restV, count);
}

void LogEach(const double* xV, double* resultV, size_t count) {
    MapBlocks(ChooseKernel().log, Log, xV, resultV, count);
}

}  // namespace sylvora
