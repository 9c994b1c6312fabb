// Grows a tree on sorted lists. The result equals the reference implementation's bit for bit: nodes
// and their order, thresholds, values, and the order of rows within nodes. For classification, and
// for forests, which spend most of their time in small nodes.
#ifndef SYLVORA_ENGINE_TRAIN_LISTS_SORTEDLISTGROWER_H
#define SYLVORA_ENGINE_TRAIN_LISTS_SORTEDLISTGROWER_H

#include <functional>
#include <memory>
#include <vector>

#include "Criterion.h"
#include "SortedColumns.h"
#include "base/WorkerPool.h"
#include "engine/train/GrownTree.h"
#include "engine/train/ReferenceSearch.h"
#include "engine/train/SplitExchange.h"
#include "engine/train/Tuning.h"

namespace sylvora {
namespace engine {

// One tree at a time; not thread-safe. The lists, pool, criterion and reference search belong to
// the caller and must outlive the grower.
class SortedListGrower {
  public:
    // `referenceSearch` is called only for near-ties.
    SortedListGrower(SortedColumns& rowLists, WorkerPool& workers, const GrowthLimits& growthLimits,
                     const Tuning& figures, Criterion& splitCriterion,
                     const ReferenceSearch& referenceSearch);
    ~SortedListGrower();

    // Makes this one of several ranks, which grow the same trees. Each searches the columns that it
    // owns; the columns of other ranks must be constant. Grow is then collective, and may throw
    // RanksLost. Borrows `ranks`.
    void UseRanks(Ranks& ranks) { exchange = std::make_unique<SplitExchange>(ranks); }

    // Grows a tree on the rows indexV[0..num), all distinct. `targetV` (gradients or labels) is
    // indexed by row of the data. `seed` is the state from which columns are sampled; it moves on.
    // Returns false, with nothing drawn, if there are no rows or the targets are out of the
    // engine's range.
    [[nodiscard]] bool Grow(const double* targetV, const int* indexV, int num, long* seed);

    // The tree of the last Grow, its nodes in the reference implementation's order.
    const std::vector<GrownNode>& Nodes() const { return nodeV; }

  private:
    struct OpenNode;
    struct Worker;

    void TakeRows(const int* indexV, int num);
    void GrowLevel(const std::vector<int>& levelV, long* seed, std::vector<int>& nextV);
    void SplitBatch(OpenNode* batch, size_t numBatch);
    void ForNodes(OpenNode* batch, size_t numBatch,
                  const std::function<void(OpenNode&, Worker&)>& step);
    void Search(OpenNode& open, Worker& worker);
    void AskReference(OpenNode& open, const std::vector<int>& slotV);
    void MarkSplit(OpenNode& open, Worker& worker);
    void MarkByList(OpenNode& open, const ListCandidate& candidate, Worker& worker);
    void MarkByValue(const GrownNode& node, const SplitPoint& split);
    void ExchangeSplits(OpenNode* batch, size_t numBatch);
    std::vector<RankBest> FindReferenceScores(OpenNode* batch, const std::vector<size_t>& tieV);
    void SplitNode(OpenNode& open, Worker& worker);
    void MoveRows(const GrownNode& node, int countL);
    void MakeChildren(OpenNode& open, Worker& worker);
    void PartitionLists(const NodeRows& nodeRows, int middle, Worker& worker);
    void AppendChildren(const OpenNode& open, std::vector<int>& nextV);

    SortedColumns& lists;
    WorkerPool& pool;
    const GrowthLimits limits;
    const Tuning tuning;
    Criterion& criterion;
    const ReferenceSearch& reference;
    const double* targetV = nullptr;
    // The tree's row index: the row of the data at each position.
    std::vector<int> rowV;
    // By position: where the split of its node moves the row.
    std::vector<uint32_t> toV;
    // By position: 1 if the split of its node sends the row left.
    std::vector<uint8_t> fLeftV;
    // The batch's sampled columns, numSelFea per node.
    std::vector<int> drawnV;
    std::vector<GrownNode> nodeV;
    int numLeaf = 1;
    // Each splits nodes by itself.
    std::vector<std::unique_ptr<Worker>> workerV;
    // All workers together on one node.
    std::unique_ptr<Worker> team;
    std::unique_ptr<SplitExchange> exchange;  // null: this is the only rank
};

}  // namespace engine
}  // namespace sylvora

#endif  // SYLVORA_ENGINE_TRAIN_LISTS_SORTEDLISTGROWER_H
