// Walking rows down a tree in a training by several ranks, each of which can evaluate only the
// splits in its own columns.
#ifndef SYLVORA_ENGINE_TRAIN_RANKEDWALK_H
#define SYLVORA_ENGINE_TRAIN_RANKEDWALK_H

#include <cstdint>
#include <functional>
#include <vector>

#include "Ranks.h"
#include "base/LargeArray.h"
#include "base/WorkerPool.h"

namespace sylvora {
namespace engine {

// A node of a tree, as a walk needs it; column -1: a leaf. Children come after their parents.
struct WalkSplit {
    int column = -1;
    int lson = -1;
    int rson = -1;
};

// What the caller of a walk does with rows. Several threads call markLeft.
struct WalkSteps {
    // The most rows of a call of markLeft.
    static constexpr int kBlockRows = 512;

    // Sets fLeftV[i] to 1 if row rowV[i] goes left at a node whose column this rank owns, else to
    // 0, for i in [0, count).
    std::function<void(int node, const int* rowV, int count, uint8_t* fLeftV)> markLeft;
    // Takes the rows of a leaf.
    std::function<void(int leaf, const int* begin, const int* end)> atLeaf;
};

// Takes the rows down the tree, and then to atLeaf, once for each leaf that has some: in ascending
// order if `rowV` is. Collective: all ranks give the same tree and rows. Exchanges one bit per row
// and level. Throws RanksLost and std::bad_alloc.
void WalkByRanks(const std::vector<WalkSplit>& treeV, LargeArray<int> rowV, Ranks& ranks,
                 WorkerPool& pool, const WalkSteps& steps);

}  // namespace engine
}  // namespace sylvora

#endif  // SYLVORA_ENGINE_TRAIN_RANKEDWALK_H
