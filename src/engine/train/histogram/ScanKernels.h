// The inner loops of BinScan and FineScan: scores of the splits between neighbouring bins of a
// column, and upper bounds for the splits inside them.
//
// One kernel per instruction set; all compute the same, bit for bit (ScanKernels.inl). The baseline
// kernel is the reference implementation of the others. Kernels keep no state, so any number of
// threads may call them.
#ifndef SYLVORA_ENGINE_TRAIN_HISTOGRAM_SCANKERNELS_H
#define SYLVORA_ENGINE_TRAIN_HISTOGRAM_SCANKERNELS_H

#include <cstdint>

#include "engine/train/FixedPoint.h"
#include "god/InstructionSets.h"

namespace sylvora {
namespace engine {

// A node's sums, and of FixedPoint what the kernels use.
struct ScanFigures {
    double sum;  // of the gradients
    double weight;
    double unit;
    double absUnit;
    double maxAbsGradPerWeight;
    double weightPerAbsGrad;
    int weightBits;
};

// prefixV holds sums over the node's rows from the start of the column. Run i is what lies between
// prefixV[i] and prefixV[i + 1].
struct ScanKernels {
    // The cells that may be read past the last one, and results that may be written.
    static constexpr int kSlack = 8;
    // The most runs of one call of reachable and mayReach.
    static constexpr int kMost = 64;

    // Returns the best score of a split after any of prefixV[0, count), or -1 if all have an empty
    // side. Sets maxAbsSum to the largest |sum|. The slack must be zero.
    double (*best)(const ScanFigures& figures, const Cell* prefixV, int count, double* maxAbsSum);
    // Bit i: whether the split after prefixV[i] has two sides and may score at least minScore, i in
    // [0, count). The rounding of the score may add splits just below.
    uint64_t (*reachable)(const ScanFigures& figures, const Cell* prefixV, int count,
                          double minScore);
    // Sets boundV[i], i in [0, count): no split inside run i scores more. It is -1 if the run holds
    // no two rows: weights are at least 1, so two rows weigh 2 or more.
    void (*bounds)(const ScanFigures& figures, const Cell* prefixV, int count, double* boundV);
    // Bit i: whether run i holds two rows and a split inside it may score at least minScore, by the
    // same bound, i in [0, count).
    uint64_t (*mayReach)(const ScanFigures& figures, const Cell* prefixV, int count,
                         double minScore);
};

extern const ScanKernels kScanKernelsBaseline;
extern const ScanKernels kScanKernelsAvx2;
extern const ScanKernels kScanKernelsAvx512;

constexpr KernelsOfSets<const ScanKernels> kScanKernels = {
    {&kScanKernelsBaseline, &kScanKernelsAvx2, &kScanKernelsAvx512}};

}  // namespace engine
}  // namespace sylvora

#endif  // SYLVORA_ENGINE_TRAIN_HISTOGRAM_SCANKERNELS_H
