// Growing a tree on sorted lists, with the outcome of the plain form in every bit: nodes, their
// order, thresholds, values, and the order of the rows within them. For classification, and for
// trees of unlimited depth, most of whose work is in small nodes.
#ifndef SYLVORA_ENGINE_TRAIN_LISTS_SORTEDLISTGROWER_H
#define SYLVORA_ENGINE_TRAIN_LISTS_SORTEDLISTGROWER_H

#include <memory>
#include <vector>

#include "Criterion.h"
#include "SortedColumns.h"
#include "base/WorkerPool.h"
#include "engine/train/GrownTree.h"
#include "engine/train/ReferenceSearch.h"
#include "engine/train/Tuning.h"

namespace sylvora {
namespace engine {

class SortedListGrower {
  public:
    // `plainSearch` is asked only where the criterion leaves a node undecided.
    SortedListGrower(SortedColumns& rowLists, WorkerPool& workers, const GrowthLimits& growthLimits,
                     const Tuning& figures, Criterion& cutCriterion,
                     const ReferenceSearch& plainSearch);
    ~SortedListGrower();

    // Grows a tree on the `num` rows of `indexV` (no row twice), with targets (gradients or labels)
    // by row of the data; columns are drawn with `seed`. Returns false, with nothing drawn, when
    // there are no rows or the targets are out of the engine's range.
    [[nodiscard]] bool Grow(const double* targetV, const int* indexV, int num, long* seed);

    // The tree of the last Grow, in the plain form's order of nodes.
    const std::vector<GrownNode>& Nodes() const { return nodeV; }

  private:
    struct OpenNode;
    struct Worker;

    void TakeRows(const int* indexV, int num);
    void GrowLevel(std::vector<OpenNode>& levelV, long* seed, std::vector<OpenNode>& nextV);
    void SplitBatch(OpenNode* batch, size_t numBatch);
    void SplitNode(OpenNode& open, const int* columnV, Worker& worker);
    Decision FindCut(const GrownNode& node, const NodeLists& nodeLists, Worker& worker);
    void TakeCut(OpenNode& open, const NodeLists& lists, const ListCut& cut, Worker& worker);
    void AskPlainForm(OpenNode& open, const NodeLists& lists, const std::vector<int>& slotV,
                      Worker& worker);
    void MoveByValue(const GrownNode& node, const SplitPoint& split, Worker& worker);
    void MoveRows(const GrownNode& node, int countL, Worker& worker);
    void MakeSons(OpenNode& open, Worker& worker);
    void PartLists(const NodeRows& nodeRows, int middle, Worker& worker);
    void AppendSons(const OpenNode& open, std::vector<OpenNode>& nextV);

    SortedColumns& lists;
    WorkerPool& pool;
    const GrowthLimits limits;
    const Tuning tuning;
    Criterion& criterion;
    const ReferenceSearch& plain;
    const double* targetV = nullptr;
    std::vector<int> rowV;      // the tree's row index: the data's row at each position
    std::vector<uint32_t> toV;  // by position: where the split of the row's node takes it
    std::vector<int> drawnV;    // a batch's columns, numSelFea per node
    std::vector<GrownNode> nodeV;
    int numLeaf = 1;
    std::vector<std::unique_ptr<Worker>> workerV;  // each grows nodes by itself
    std::unique_ptr<Worker> team;                  // all together on one node
};

}  // namespace engine
}  // namespace sylvora

#endif  // SYLVORA_ENGINE_TRAIN_LISTS_SORTEDLISTGROWER_H
