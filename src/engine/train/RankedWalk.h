// Walking rows down a tree in a training by several ranks, each of which can evaluate only the
// splits in its own columns.
#ifndef SYLVORA_ENGINE_TRAIN_RANKEDWALK_H
#define SYLVORA_ENGINE_TRAIN_RANKEDWALK_H

#include <functional>
#include <vector>

#include "Matrix.h"
#include "Ranks.h"
#include "base/LargeArray.h"
#include "base/WorkerPool.h"

namespace sylvora {
namespace engine {

// A node of a tree, as a walk needs it; column -1: a leaf. Children come after their parents.
struct WalkSplit {
    int column = -1;
    double threshold = 0.0;
    int lson = -1;
    int rson = -1;
};

// Takes the rows down the tree and calls atLeaf(leaf, begin, end) with the rows of each leaf that
// has some, in ascending order if `rowV` is. A value at or below the threshold goes left, any other
// right. Collective: all ranks give the same tree and rows. Exchanges one bit per row and level.
// Throws RanksLost and std::bad_alloc.
typedef std::function<void(int leaf, const int* begin, const int* end)> AtLeaf;
void WalkByRanks(const std::vector<WalkSplit>& treeV, const Matrix& values, LargeArray<int> rowV,
                 Ranks& ranks, WorkerPool& pool, const AtLeaf& atLeaf);

}  // namespace engine
}  // namespace sylvora

#endif  // SYLVORA_ENGINE_TRAIN_RANKEDWALK_H
