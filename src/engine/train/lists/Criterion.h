// What makes a cut the best one of a node, for the search over sorted lists (SortedColumns.h): one
// form for classes, one for means. Both score cuts as the plain form's scan does (Node.h has the
// formulas), and both tell when their scores are its scores in every bit.
//
// Thread safety: after Take, all but Take may be called by several workers at once for different
// nodes, each with a scratch of its own; Scan for one node, too.
#ifndef SYLVORA_ENGINE_TRAIN_LISTS_CRITERION_H
#define SYLVORA_ENGINE_TRAIN_LISTS_CRITERION_H

#include <atomic>
#include <cstdint>
#include <memory>
#include <vector>

#include "SortedColumns.h"
#include "engine/train/FixedPoint.h"
#include "engine/train/GrownTree.h"

namespace sylvora {
namespace engine {

// The best cut of a list.
struct ListCut {
    double score = -1.0;   // as the plain form's best cut starts: none
    double balance = 0.0;  // classification only
    int slot = -1;
    int countL = 0;        // entries on its left
    bool fLiteral = true;  // the score is the plain form's in every bit
};

// The lists of a node's drawn columns, by slot.
struct NodeLists {
    const SortedColumns& lists;
    NodeRows rows;
    const int* columnV;
    const std::vector<const Entry*>& listV;

    int NumSlots() const { return static_cast<int>(listV.size()); }
    const Entry* Of(int slot) const { return listV[static_cast<size_t>(slot)]; }
    double Value(Entry entry, int slot) const {
        return lists.Data().rowV[rows.rowV[PositionOf(entry)]][columnV[slot]];
    }
};

// What a search knows of its node.
struct NodeFacts {
    double gradAll = 0.0;
    double rowError = 0.0;           // how far a plain left or right sum can be from ours
    std::vector<int> classCountV;    // all zero between two nodes
    std::atomic<double> best{-1.0};  // the best score so far, whichever slot it is of

    void Raise(double score);
};

// Counts by class; all zero between two uses.
struct ScanScratch {
    std::vector<int> classCountV;
};

struct Decision {
    ListCut winner = {};          // slot -1: there is none, or it is undecided
    std::vector<int> undecidedV;  // the slots between which the plain search must decide
};

class Criterion {
  public:
    virtual ~Criterion() = default;

    // For `numClass` classes, or for means.
    static std::unique_ptr<Criterion> Make(bool fClasses, int numClass);

    // Takes the targets (gradients, or labels) of a tree's rows indexV[0..num); `targetV` is by row
    // of the data; the workers of the pool may share the work. False when they are out of the
    // criterion's range.
    [[nodiscard]] virtual bool Take(const double* targetV, const int* indexV, int num,
                                    WorkerPool& pool) = 0;
    // Lets the rows at two positions change places.
    virtual void Swap(int position, int other) = 0;
    // Sets what a node is known by. Returns whether it may be split.
    virtual bool Describe(GrownNode& node, ScanScratch& scratch) const = 0;
    // Before and after the scans of a node.
    virtual void Begin(const GrownNode& node, NodeFacts& facts) const = 0;
    virtual void End(const GrownNode& node, NodeFacts& facts) const = 0;
    // The best cut of a slot. Cuts that are worse than other slots' best may be left out.
    virtual ListCut Scan(const NodeLists& lists, int slot, NodeFacts& facts,
                         ScanScratch& scratch) const = 0;
    // The best of the slots' cuts, given in slot order.
    virtual Decision Decide(const NodeLists& lists, const std::vector<ListCut>& cutV,
                            const NodeFacts& facts) const = 0;
};

class ClassCriterion : public Criterion {
  public:
    explicit ClassCriterion(int classes) : numClass(classes) {}

    bool Take(const double* targetV, const int* indexV, int num, WorkerPool& pool) override;
    void Swap(int position, int other) override;
    bool Describe(GrownNode& node, ScanScratch& scratch) const override;
    void Begin(const GrownNode& node, NodeFacts& facts) const override;
    void End(const GrownNode& node, NodeFacts& facts) const override;
    ListCut Scan(const NodeLists& lists, int slot, NodeFacts& facts,
                 ScanScratch& scratch) const override;
    Decision Decide(const NodeLists& lists, const std::vector<ListCut>& cutV,
                    const NodeFacts& facts) const override;

  private:
    void CountClasses(const GrownNode& node, std::vector<int>& countV) const;
    void ClearClasses(const GrownNode& node, std::vector<int>& countV) const;

    int numClass;
    std::vector<uint16_t> classV;  // by position
};

class MeanCriterion : public Criterion {
  public:
    bool Take(const double* targetV, const int* indexV, int num, WorkerPool& pool) override;
    void Swap(int position, int other) override;
    bool Describe(GrownNode& node, ScanScratch& scratch) const override;
    void Begin(const GrownNode& node, NodeFacts& facts) const override;
    void End(const GrownNode&, NodeFacts&) const override {}
    ListCut Scan(const NodeLists& lists, int slot, NodeFacts& facts,
                 ScanScratch& scratch) const override;
    Decision Decide(const NodeLists& lists, const std::vector<ListCut>& cutV,
                    const NodeFacts& facts) const override;

  private:
    double Least(double score, const NodeFacts& facts) const;
    int CountFrom(double least, const NodeLists& lists, int slot, const NodeFacts& facts) const;

    FixedPoint fixed;
    std::vector<double> gradV;  // by position
};

}  // namespace engine
}  // namespace sylvora

#endif  // SYLVORA_ENGINE_TRAIN_LISTS_CRITERION_H
