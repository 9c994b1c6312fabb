// The rows of a growing tree, node by node, in one or two orders.
#ifndef SYLVORA_ENGINE_TRAIN_HISTOGRAM_TREEROWS_H
#define SYLVORA_ENGINE_TRAIN_HISTOGRAM_TREEROWS_H

#include <cstdint>

#include "base/LargeArray.h"
#include "base/WorkerPool.h"
#include "engine/train/RowSets.h"

namespace sylvora {
namespace engine {

// A node has the same slice in both orders: the plain form's, in which its sums of doubles are
// added up, and the ascending one, in which neighbouring rows are near each other in memory.
struct TreeRows {
    // With fKeepAscending, nodes below the root have their rows in ascending order too. That pays
    // where searches look at rows, not only at histograms.
    explicit TreeRows(bool keepAscending) : fKeepAscending(keepAscending) {}

    // Takes the `num` rows of `rowV` (no row twice) of `numRows`, with gradients and weights (null:
    // all 1) by row.
    void Take(const double* gradients, const int* weights, const int* rowV, int num, int numRows,
              WorkerPool& pool);

    // The rows of a node in the plain order, and in the quickest order for the engine.
    RowSlice PlainSlice(int begin, int count) const;
    RowSet QuickSlice(int begin, int count) const;
    // The same for a node of the next level, whose rows have been moved.
    RowSet MovedSlice(int begin, int count) const;
    // The rows of all nodes of the next level have been moved.
    void EndLevel();

    const bool fKeepAscending;

    // The plain order, alongside gradients and weights; weights are empty when all are 1.
    LargeArray<int> indexV;
    LargeArray<double> gradV;
    LargeArray<int> weightV;
    // The ascending order, and that of the level in the making.
    LargeArray<int> ascendingV, nextAscendingV;
    LargeArray<uint8_t> fLeftV;  // alongside the plain order: which side of a split a row is on
    LargeArray<uint8_t> fInV;    // by row of the data: whether the tree has it

  private:
    void Ascend(WorkerPool& pool);
    RowSet SliceOf(bool fAscending, const LargeArray<int>& ascending, int begin, int count) const;

    bool fAscendingNow = true;  // at the level at hand
    const double* rowGradV = nullptr;
    const int* rowWeightV = nullptr;
};

}  // namespace engine
}  // namespace sylvora

#endif  // SYLVORA_ENGINE_TRAIN_HISTOGRAM_TREEROWS_H
