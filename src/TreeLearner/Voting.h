// How the trees of a classification vote on a row.
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

// Votes of this many classes are counted on the stack. A model can promise more than memory holds,
// so beyond that only classes that get a vote take room, which each thread keeps from its first
// call on.
constexpr int kFewClasses = 4096;
// What a row is scored into. Without a majority rule, every tree votes.
struct RowScore {
    double result = 0.0;
    double* fullResult;
    bool fMajority;
};

// The trees' outputs for a row. They are counted through all groups and asked for in order; some
// may be left out.
class WalkedLeaves {
  public:
    WalkedLeaves(const EnsembleView& ensemble, const double* line) : trees(ensemble), row(line) {}

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
    size_t firstTree = 0;  // of the group
};

// Counts and the highest count are deliberately carried from group to group. With fullResult every
// tree votes; without it a group ends at an absolute majority, and the highest count then stays.
// `counts` has the count of each class, 0 at first.
template <typename Leaves, typename Counts>
int VoteGroups(const TreeLearner& learner, Leaves& leaves, RowScore& score, Counts& counts) {
    long long highest = 0;
    double sum = 0.0;
    size_t firstTree = 0;
    const EnsembleView trees(learner);
    for (size_t g = 0; g < trees.NumGroups(); ++g) {
        const size_t numTrees = trees.GroupSize(g);
        const double majority = static_cast<double>(numTrees) * 0.5;
        double winner = 0.0;
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
