// The kernels that add the forces of pairs, one per instruction set. All give the same bits.
#ifndef SYLVORA_LOSSFUNCTIONS_PAIRKERNELS_H
#define SYLVORA_LOSSFUNCTIONS_PAIRKERNELS_H

#include "../god/InstructionSets.h"

namespace sylvora {

// Rows of a query, with what the kernels need of each. Rows from `count` up to the next multiple of
// kMostLanes are there, but are no part of a pair: their labels and scores are NaN.
struct PairBlock {
    static constexpr int kRows = 256;  // two blocks fit into an L1 cache of 48 KB
    static constexpr int kMostLanes = 8;

    int count;
    alignas(64) double labelV[kRows];
    double scoreV[kRows];
    double gradientV[kRows];
    // For the cross entropy: the score less tau times the label, rounded to a multiple of 2^-44;
    // NaN if one of these is too large. Then e^place and e^-place; see SplitExpEach.
    double placeV[kRows];
    double upHeadV[kRows], upRestV[kRows];
    double downHeadV[kRows], downRestV[kRows];
};

// Adds the forces of all pairs of a row of `first` and a row of `second`, or of all pairs in one
// block if both are the same. All blocks are of one query, `second` after `first`. The order of the
// sums is that of PairForces.h if the calls have the order of the pairs.
typedef void (*AddForces)(PairBlock& first, PairBlock& second, double tau);

struct PairKernel {
    const char* name;
    AddForces crossEntropy;
    AddForces hingeSquare;
};

extern const PairKernel kPairBaseline;
extern const PairKernel kPairAvx2;
extern const PairKernel kPairAvx512;

constexpr KernelsOfSets<const PairKernel> kPairKernels = {
    {&kPairBaseline, &kPairAvx2, &kPairAvx512}};

}  // namespace sylvora

#endif  // SYLVORA_LOSSFUNCTIONS_PAIRKERNELS_H
