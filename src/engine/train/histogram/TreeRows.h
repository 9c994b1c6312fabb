// The rows of a growing tree, node by node, in one or two orders.
#ifndef SYLVORA_ENGINE_TRAIN_HISTOGRAM_TREEROWS_H
#define SYLVORA_ENGINE_TRAIN_HISTOGRAM_TREEROWS_H

#include <cstdint>

#include "base/LargeArray.h"
#include "base/WorkerPool.h"
#include "engine/train/RowSets.h"

namespace sylvora {
namespace engine {

// A node has the same slice in both orders. The reference order decides the rounding of its sums of
// doubles. The ascending order makes look-ups by row go through memory in one direction.
//
// Invariant: in both orders, the slices of a level's nodes are disjoint, so workers may move the
// rows of different nodes at once. Take and EndLevel exclude all other calls.
struct TreeRows {
    // With fKeepAscending, nodes below the root keep the ascending order, too. That pays if
    // searches read rows, not only histograms.
    explicit TreeRows(bool keepAscending) : fKeepAscending(keepAscending) {}

    // Takes the rows rowV[0..num), all distinct, of `numRows`. Gradients and weights (null: all 1)
    // are indexed by row of the data and must outlive the tree.
    void Take(const double* gradients, const int* weights, const int* rowV, int num, int numRows,
              WorkerPool& pool);

    // A node's rows on the current level: in the reference order, or in the fastest order for a
    // search.
    RowSlice ReferenceSlice(int begin, int count) const;
    RowSet SearchSlice(int begin, int count) const;
    // The same for a node of the next level, after its rows have been moved.
    RowSet NextLevelSlice(int begin, int count) const;
    // Ends the level: the rows of all nodes have been moved.
    void EndLevel();

    const bool fKeepAscending;

    // The reference order, and gradients and weights parallel to it. weightV is empty if all are 1.
    LargeArray<int> indexV;
    LargeArray<double> gradV;
    LargeArray<int> weightV;
    // The ascending order of the current level and of the next.
    LargeArray<int> ascendingV, nextAscendingV;
    // Parallel to indexV: 1 if the row goes left in its node's split.
    LargeArray<uint8_t> fLeftV;
    // By row of the data: 1 if it is in the tree.
    LargeArray<uint8_t> fInTreeV;
    // fLeftV by row of the data; empty unless RowPartition::TakeMarks is used.
    LargeArray<uint8_t> fLeftOfRowV;

  private:
    void ListAscending(WorkerPool& pool);
    RowSet SliceOf(bool fAscending, const LargeArray<int>& ascending, int begin, int count) const;

    // Whether ascendingV holds for the current level.
    bool fAscendingNow = true;
    const double* rowGradV = nullptr;
    const int* rowWeightV = nullptr;
};

}  // namespace engine
}  // namespace sylvora

#endif  // SYLVORA_ENGINE_TRAIN_HISTOGRAM_TREEROWS_H
