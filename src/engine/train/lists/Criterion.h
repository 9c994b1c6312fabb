// The split criteria of the search over sorted lists (SortedColumns.h): one for classes, one for
// means. Both compute scores with the reference implementation's formulas (Node.h). Both know which
// of their scores equal its scores bit for bit.
//
// Thread safety: Take excludes every other call. After it, workers may call the other methods at
// once for different nodes, and Scan also for different slots of one node, each worker with its own
// ScanBuffers.
#ifndef SYLVORA_ENGINE_TRAIN_LISTS_CRITERION_H
#define SYLVORA_ENGINE_TRAIN_LISTS_CRITERION_H

#include <atomic>
#include <cstdint>
#include <memory>
#include <vector>

#include "SortedColumns.h"
#include "engine/train/FixedPoint.h"
#include "engine/train/GrownTree.h"
#include "engine/train/SearchResult.h"

namespace sylvora {
namespace engine {

// The best candidate split of a list.
struct ListCandidate {
    double score = -1.0;  // -1: none
    // Classification only: |left share - 0.5|.
    double balance = 0.0;
    int slot = -1;
    int countL = 0;  // entries on the left
    // The score equals the reference implementation's bit for bit.
    bool fReferenceScore = true;
};

// The lists of a node's sampled columns, by slot. Owns nothing.
struct NodeLists {
    const SortedColumns& lists;
    NodeRows rows;
    const int* columnV;
    const std::vector<const Entry*>& listV;

    int NumSlots() const { return static_cast<int>(listV.size()); }
    // The node's list of a slot, rows.count entries.
    const Entry* Of(int slot) const { return listV[static_cast<size_t>(slot)]; }
    // The value of an entry's row in the slot's column.
    double Value(Entry entry, int slot) const {
        return lists.Data().At(rows.rowV[PositionOf(entry)], columnV[slot]);
    }
};

// Facts about a node that its scans share.
struct NodeFacts {
    double gradAll = 0.0;
    // e: how far our left and right sums may be from the reference implementation's.
    double sumError = 0.0;
    // By class; all zero between nodes.
    std::vector<int> classCountV;
    // The best score in any slot so far; raised by several workers.
    std::atomic<double> best{-1.0};
};

// A worker's class counts of a scan. All zero between scans.
struct ScanBuffers {
    std::vector<int> classCountV;
};

// A split criterion. SortedListGrower calls Take once per tree; then, per node, Describe when it is
// made, and Begin, Scan for each slot, Decide and End when it is searched.
class Criterion {
  public:
    virtual ~Criterion() = default;

    // Makes the criterion for `numClass` classes (fClasses) or for means.
    static std::unique_ptr<Criterion> Make(bool fClasses, int numClass);

    // Copies the targets (gradients or labels) of a tree's rows indexV[0..num). `targetV` is
    // indexed by row of the data. Workers of the pool may share the work. Returns false if the
    // targets are out of the criterion's range.
    [[nodiscard]] virtual bool Take(const double* targetV, const int* indexV, int num,
                                    WorkerPool& pool) = 0;
    // Exchanges the rows at two positions. Positions of different nodes may be exchanged at once.
    virtual void Swap(int position, int other) = 0;
    // Fills in the node's sums or its majority class. Returns false if all its rows have one class,
    // so that it stays a leaf.
    virtual bool Describe(GrownNode& node, ScanBuffers& scanBuffers) const = 0;
    // Call Begin before the scans of a node, and End after its Decide.
    virtual void Begin(const GrownNode& node, NodeFacts& facts) const = 0;
    virtual void End(const GrownNode& node, NodeFacts& facts) const = 0;
    // Returns the best candidate of a slot, or one with score -1. A candidate that cannot win
    // against facts.best may be skipped.
    virtual ListCandidate Scan(const NodeLists& lists, int slot, NodeFacts& facts,
                               ScanBuffers& scanBuffers) const = 0;
    // Chooses among the slots' best candidates, given in slot order.
    virtual SearchResult<ListCandidate> Decide(const NodeLists& lists,
                                               const std::vector<ListCandidate>& candidateV,
                                               const NodeFacts& facts) const = 0;
};

// Gini impurity over class counts, in integers. Weights are not supported.
class ClassCriterion : public Criterion {
  public:
    explicit ClassCriterion(int classes) : numClass(classes) {}

    bool Take(const double* targetV, const int* indexV, int num, WorkerPool& pool) override;
    void Swap(int position, int other) override;
    bool Describe(GrownNode& node, ScanBuffers& scanBuffers) const override;
    void Begin(const GrownNode& node, NodeFacts& facts) const override;
    void End(const GrownNode& node, NodeFacts& facts) const override;
    ListCandidate Scan(const NodeLists& lists, int slot, NodeFacts& facts,
                       ScanBuffers& scanBuffers) const override;
    SearchResult<ListCandidate> Decide(const NodeLists& lists,
                                       const std::vector<ListCandidate>& candidateV,
                                       const NodeFacts& facts) const override;

  private:
    // Adds the node's classes to countV, and sets the same counts back to zero.
    void CountClasses(const GrownNode& node, std::vector<int>& countV) const;
    void ClearClasses(const GrownNode& node, std::vector<int>& countV) const;

    int numClass;
    std::vector<uint16_t> classV;  // by position
};

// Squared error over gradients of rows of weight 1.
class MeanCriterion : public Criterion {
  public:
    bool Take(const double* targetV, const int* indexV, int num, WorkerPool& pool) override;
    void Swap(int position, int other) override;
    bool Describe(GrownNode& node, ScanBuffers& scanBuffers) const override;
    void Begin(const GrownNode& node, NodeFacts& facts) const override;
    void End(const GrownNode&, NodeFacts&) const override {}
    ListCandidate Scan(const NodeLists& lists, int slot, NodeFacts& facts,
                       ScanBuffers& scanBuffers) const override;
    SearchResult<ListCandidate> Decide(const NodeLists& lists,
                                       const std::vector<ListCandidate>& candidateV,
                                       const NodeFacts& facts) const override;

  private:
    // The search margin, as in docs/engine-training.md.
    double ScoreError(double score, const NodeFacts& facts) const;
    double PruningThreshold(double score, const NodeFacts& facts) const;
    int CountCandidates(double minScore, const NodeLists& lists, int slot,
                        const NodeFacts& facts) const;

    FixedPoint fixed;
    std::vector<double> gradV;  // by position
};

}  // namespace engine
}  // namespace sylvora

#endif  // SYLVORA_ENGINE_TRAIN_LISTS_CRITERION_H
