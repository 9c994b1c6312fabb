// Growing a regression tree level by level, with the outcome of the plain form in every bit: nodes,
// their order, thresholds, values, and the order of the rows within them.
#ifndef SYLVORA_ENGINE_TRAIN_HISTOGRAM_HISTOGRAMGROWER_H
#define SYLVORA_ENGINE_TRAIN_HISTOGRAM_HISTOGRAMGROWER_H

#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

#include "BinnedColumns.h"
#include "Histogram.h"
#include "HistogramPool.h"
#include "RowPartition.h"
#include "SplitSearch.h"
#include "TreeRows.h"
#include "base/WorkerPool.h"
#include "engine/train/FixedPoint.h"
#include "engine/train/GrownTree.h"
#include "engine/train/ReferenceSearch.h"
#include "engine/train/Tuning.h"

namespace sylvora {
namespace engine {

class HistogramGrower {
  public:
    HistogramGrower(const BinnedColumns& columns, WorkerPool& workers,
                    const GrowthLimits& growthLimits, const Tuning& figures,
                    const ReferenceSearch& plainSearch);
    ~HistogramGrower();

    // Takes over the `num` rows of `indexV` (no row twice) for a tree, with gradients and weights
    // (null: all 1) by row, which must stay until the tree is grown. Returns false when there are
    // no rows or the gradients are out of the engine's range.
    [[nodiscard]] bool Take(const double* gradV, const int* weightV, const int* indexV, int num);
    // Grows the tree on the rows that were taken; columns are drawn with `seed`. `lastDraw` is
    // called, if it can be told in time, when the tree will draw no more.
    void Grow(long* seed, const std::function<void()>& lastDraw);

    // The tree of the last Grow, in the plain form's order of nodes.
    const std::vector<GrownNode>& Nodes() const { return nodeV; }
    // Its rows, in the order that growth left them in: those of a node are its slice.
    const LargeArray<int>& Rows() const { return rows.indexV; }
    // By row of the data: 1 for the rows of the tree.
    const LargeArray<uint8_t>& RowMarks() const { return rows.fInV; }
    // Whether every row reached the leaf in whose slice it lies.
    bool SlicesTrue() const { return fSlicesTrue; }

  private:
    struct OpenNode;
    struct Worker;

    OpenNode PlantRoot();
    void GrowLevel(std::vector<OpenNode>& levelV, long* seed, const std::function<void()>& lastDraw,
                   std::vector<OpenNode>& nextV);
    void DrawColumns(OpenNode* batch, size_t numBatch, long* seed);
    void SplitBatch(OpenNode* batch, size_t numBatch, bool fShareHistograms);
    void LetOthersJoin(OpenNode& open, int64_t numRows) const;
    void SplitNode(OpenNode& open, Worker& worker);
    SplitPoint FindSplit(OpenNode& open, Worker& worker);
    void MoveRows(OpenNode& open, Worker& worker);
    void SumSons(OpenNode& open);
    void AppendSons(OpenNode& open, std::vector<OpenNode>& nextV);
    void ShareHistogram(OpenNode& open, Worker& worker);
    int CountOf(const OpenNode& open) const;
    RowSet QuickSliceOf(const GrownNode& node) const;
    bool IsTooDeep(int depth) const;
    bool IsOpen(const GrownNode& node) const;

    const BinnedColumns& data;
    WorkerPool& pool;
    const GrowthLimits limits;
    const Tuning tuning;
    const ReferenceSearch& plain;
    FixedPoint fixed;
    TreeRows rows;
    std::vector<GrownNode> nodeV;
    int numLeaf = 1;
    bool fSlicesTrue = true;
    HistogramPool store;
    SplitSearch::Buffers buffers;
    std::vector<std::unique_ptr<Worker>> workerV;
};

}  // namespace engine
}  // namespace sylvora

#endif  // SYLVORA_ENGINE_TRAIN_HISTOGRAM_HISTOGRAMGROWER_H
