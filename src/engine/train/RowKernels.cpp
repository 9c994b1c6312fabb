// The kernels for every processor, and the choice among all; see RowKernels.h.
#include "RowKernels.h"

namespace sylvora {
namespace engine {
namespace {

// Both sides are written at every step, and only one of them advances: no branch to mispredict.
int Split(const int* rowV, const uint8_t* markV, int count, int* leftV, int* rightV) {
    int numLeft = 0;
    for (int i = 0; i < count; ++i) {
        leftV[numLeft] = rightV[i - numLeft] = rowV[i];
        numLeft += markV[i];
    }
    return numLeft;
}

int List(const uint8_t* markV, uint8_t wanted, int first, int count, int* positionV) {
    int num = 0;
    for (int i = 0; i < count; ++i) {
        positionV[num] = first + i;
        num += markV[i] == wanted;
    }
    return num;
}

uint64_t MarkAtLeast(const uint64_t* keyV, uint64_t least) {
    uint64_t marks = 0;
    for (int i = 0; i < 64; ++i) marks |= static_cast<uint64_t>(keyV[i] >= least) << i;
    return marks;
}

// An insertion sort.
void SortFew(uint64_t* keyV, int count, uint64_t* sortedV) {
    // Invariant: sortedV[0..i) is sorted.
    for (int i = 0; i < count; ++i) {
        int k = i;
        for (; k > 0 && sortedV[k - 1] > keyV[i]; --k) sortedV[k] = sortedV[k - 1];
        sortedV[k] = keyV[i];
    }
}

}  // namespace

const RowKernels kRowKernelsBaseline = {Split, List, MarkAtLeast, SortFew, 24};

const RowKernels& BestRowKernels() {
    static const RowKernels& best = kRowKernels.Choose(nullptr);
    return best;
}

}  // namespace engine
}  // namespace sylvora
