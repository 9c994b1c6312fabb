// Grows a regression tree on histograms, level by level. The result equals the reference
// implementation's bit for bit: nodes and their order, thresholds, values, and the order of rows
// within nodes.
#ifndef SYLVORA_ENGINE_TRAIN_HISTOGRAM_HISTOGRAMGROWER_H
#define SYLVORA_ENGINE_TRAIN_HISTOGRAM_HISTOGRAMGROWER_H

#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

#include "BinChoice.h"
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
#include "engine/train/SplitExchange.h"
#include "engine/train/Tuning.h"

namespace sylvora {
namespace engine {

// One tree at a time; not thread-safe. The columns, pool and reference search belong to the caller
// and must outlive the grower.
class HistogramGrower {
  public:
    HistogramGrower(const BinnedColumns& columns, WorkerPool& workers,
                    const GrowthLimits& growthLimits, const Tuning& figures,
                    const ReferenceSearch& referenceSearch);
    ~HistogramGrower();

    // Makes this one of several ranks, which grow the same trees. Each searches the columns that it
    // owns; the columns of other ranks must be constant. Every call below is then collective, and
    // may throw RanksLost. Borrows `ranks`.
    void UseRanks(Ranks& ranks);

    // Prepares a tree on the rows indexV[0..num), all distinct. Gradients and weights (null: all 1)
    // are indexed by row of the data and must stay valid until the tree is grown; indexV need not.
    // Returns false if there are no rows or the gradients are out of the engine's range.
    [[nodiscard]] bool Take(const double* gradV, const int* weightV, const int* indexV, int num);
    // Grows the tree on the prepared rows. `seed` is the state from which columns are sampled; it
    // moves on. `lastDraw` is called once, after the tree's last column sample, if that is known
    // early: when maxDepth ends the tree.
    void Grow(long* seed, const std::function<void()>& lastDraw);

    // The tree of the last Grow, its nodes in the reference implementation's order.
    const std::vector<GrownNode>& Nodes() const { return nodeV; }
    // The tree's rows, as growth ordered them. A node's slice holds its rows.
    const LargeArray<int>& Rows() const { return rows.indexV; }
    // By row of the data: 1 for the tree's rows.
    const LargeArray<uint8_t>& RowMarks() const { return rows.fInTreeV; }
    // Whether every row would reach the leaf in whose slice it lies. If not, predictions must walk
    // the tree.
    bool SlicesMatchThresholds() const { return fSlicesMatchThreshold; }

  private:
    struct OpenNode;
    struct Worker;

    OpenNode MakeRoot();
    void GrowLevel(std::vector<OpenNode>& levelV, long* seed, const std::function<void()>& lastDraw,
                   std::vector<OpenNode>& nextV);
    void DrawColumns(OpenNode* batch, size_t numBatch, long* seed);
    void SplitBatch(OpenNode* batch, size_t numBatch, bool fShareHistograms);
    void ChooseParallelism(OpenNode& open, int64_t numRows) const;
    SearchTask TaskOf(OpenNode& open, Worker& worker);
    void Search(OpenNode& open, Worker& worker);
    void LookAhead(OpenNode& open, Worker& worker);
    void ExchangeBounds(OpenNode* batch, size_t numBatch);
    void DecideTie(OpenNode& open, Worker& worker);
    void MarkSplit(OpenNode& open, Worker& worker);
    void MakeChildren(OpenNode& open, Worker& worker);
    void ExchangeSplits(OpenNode* batch, size_t numBatch);
    std::vector<RankBest> FindReferenceScores(OpenNode* batch, const std::vector<size_t>& tieV);
    void MoveRows(OpenNode& open, Worker& worker);
    void SumChildren(OpenNode& open);
    void AppendChildren(OpenNode& open, std::vector<OpenNode>& nextV);
    int CountOf(const OpenNode& open) const;
    RowSet SearchSliceOf(const GrownNode& node) const;
    // Histograms (NodeHistograms.cpp).
    const Histogram* CountOwn(const OpenNode& open, const RowSet& nodeRows, bool fNarrowOnly,
                              Worker& worker);
    double NumSampledCodes() const;
    bool PaysToShare(const OpenNode& open, int shift) const;
    void ShareHistogram(OpenNode& open, Worker& worker);

    const BinnedColumns& data;
    WorkerPool& pool;
    const GrowthLimits limits;
    const Tuning tuning;
    const ReferenceSearch& reference;
    const double numSampledCodes;
    // Fitted by Take, once per tree.
    FixedPoint fixed;
    TreeRows rows;
    std::vector<GrownNode> nodeV;
    // Leaves so far, counted as the leaf limit counts them.
    int numLeaf = 1;
    bool fSlicesMatchThreshold = true;
    HistogramPool histogramPool;
    BinChoice binChoice;
    SplitSearch::BufferPool bufferPool;
    std::unique_ptr<SplitExchange> exchange;  // null: this is the only rank
    std::vector<std::unique_ptr<Worker>> workerV;
};

}  // namespace engine
}  // namespace sylvora

#endif  // SYLVORA_ENGINE_TRAIN_HISTOGRAM_HISTOGRAMGROWER_H
