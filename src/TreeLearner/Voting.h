// How the trees of a classification vote on a row.
//
// `Leaves` stands for any class with a method `double Value(size_t tree)`, the output of a tree for
// the row. Trees are numbered across groups. Value is called with ascending numbers; trees after a
// decided vote are skipped.
//
// Thread safety: the functions only read the learner, so rows may be scored in parallel.
#ifndef SYLVORA_TREELEARNER_VOTING_H
#define SYLVORA_TREELEARNER_VOTING_H

#include <algorithm>
#include <cstddef>
#include <map>
#include <memory_resource>

#include "../TreeLearner.h"
#include "../god/Report.h"
#include "../god/Truncation.h"
#include "EnsembleView.h"

namespace sylvora {

// Up to this many classes, votes are counted in an array on the stack. A model can claim more
// classes than memory holds, so above it only classes that get a vote use memory. Each thread keeps
// that memory for its next calls.
constexpr int kFewClasses = 4096;

// The score of one row.
struct RowScore {
    double result = 0.0;
    double* fullResult;  // one value per group (regression) or slot; borrowed, may be null
    bool fMajority;      // a group's vote ends at an absolute majority; otherwise every tree votes
};

// The outputs of the trees for a row, each from a walk of the tree. Borrows the row.
class WalkedLeaves {
  public:
    WalkedLeaves(const EnsembleView& ensemble, const double* line) : trees(ensemble), row(line) {}

    // Invariant: firstTree <= tree, because numbers ascend. Groups may be empty.
    double Value(size_t tree) {
        for (; tree - firstTree >= trees.GroupSize(group); ++group) {
            firstTree += trees.GroupSize(group);
        }
        return trees.Tree(group, tree - firstTree).Predict(row);
    }

  private:
    const EnsembleView trees;
    const double* row;
    size_t group = 0;
    size_t firstTree = 0;  // number of the first tree of `group`
};

// Sums shrink times winner over the groups into `score`. Counts and the highest count deliberately
// carry over from group to group, and an absolute majority deliberately leaves the highest count as
// it was: existing models score this way. `counts` is indexed by class and starts at 0. Returns -1
// after a message if an output is not a class.
template <typename Leaves, typename Counts>
int VoteGroups(const TreeLearner& learner, Leaves& leaves, RowScore& score, Counts& counts) {
    long long highest = 0;
    double sum = 0.0;
    size_t firstTree = 0;
    const EnsembleView trees(learner);
    for (size_t g = 0; g < trees.NumGroups(); ++g) {
        const size_t numTrees = trees.GroupSize(g);
        const double majority = static_cast<double>(numTrees) * 0.5;
        double winner = 0.0;  // stays 0 if no class exceeds the highest count so far
        for (size_t j = 0; j < numTrees; ++j) {
            const double pred = leaves.Value(firstTree + j);
            const int cls = Truncate<int>(pred);
            if (cls < 0 || cls >= learner.numClass) {
                return Fail("ERROR: Class label ", pred, " of group ", g, ", tree ", j,
                            " is not one of the ", learner.numClass, " classes!\n");
            }
            const long long count = ++counts[cls];
            if (score.fMajority && static_cast<double>(count) > majority) {
                winner = pred;
                break;
            }
            if (count > highest) {
                winner = pred;
                highest = count;
            }
            if (score.fullResult != nullptr) score.fullResult[j] = pred;
        }
        firstTree += numTrees;
        sum += learner.StepLengthV[g] * winner;
    }
    score.result = sum;
    return 0;
}

// VoteGroups with counters that suit the number of classes. Allocates only above kFewClasses.
template <typename Leaves>
int Vote(const TreeLearner& learner, Leaves leaves, RowScore& score) {
    if (learner.numClass <= kFewClasses) {
        long long counts[kFewClasses];
        std::fill_n(counts, std::max(learner.numClass, 0), 0);
        return VoteGroups(learner, leaves, score, counts);
    }
    return Guarded([&] {
        static thread_local std::pmr::unsynchronized_pool_resource memory;
        std::pmr::map<int, long long> countM(&memory);
        return VoteGroups(learner, leaves, score, countM);
    });
}

}  // namespace sylvora

#endif  // SYLVORA_TREELEARNER_VOTING_H
