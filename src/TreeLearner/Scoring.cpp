// Scoring rows with the ensemble: how the trees' outputs make a score. They come from the compiled
// form or, where there is none, from walks of the trees one by one.
#include <algorithm>
#include <cstdint>
#include <limits>
#include <map>
#include <memory_resource>
#include <vector>

#include "../TreeLearner.h"
#include "../engine/BatchScoring.h"
#include "../engine/RowLeaves.h"
#include "../engine/RowScoring.h"
#include "../god/Report.h"
#include "../god/Truncation.h"
#include "ScoringForm.h"

using sylvora::Fail;
using sylvora::engine::CompiledEnsemble;
using sylvora::engine::RowLeaves;

namespace {

// Votes of this many classes are counted on the stack. A model can promise more than memory holds,
// so beyond that only classes that get a vote take room, which each thread keeps from its first
// call on.
constexpr int kFewClasses = 4096;
// Rows from which blocks are faster than one row after the other.
constexpr size_t kFewRows = 20;

// The trees' outputs for a row. They are counted through all groups and asked for in order; some
// may be left out.
class PlainLeaves {
  public:
    PlainLeaves(const std::vector<std::vector<TreeCR*>>& groups, double* line)
        : groupV(groups), row(line) {}

    double Value(size_t tree) {
        for (; tree - firstTree >= groupV[group].size(); ++group) firstTree += groupV[group].size();
        return groupV[group][tree - firstTree]->Predict(row);
    }

  private:
    const std::vector<std::vector<TreeCR*>>& groupV;
    double* row;
    size_t group = 0;
    size_t firstTree = 0;  // of the group
};

// What a row is scored into. Without a majority rule, every tree votes.
struct RowScore {
    double result = 0.0;
    double* fullResult;
    bool fMajority;
};

double GroupMean(const std::vector<TreeCR*>& group, double* line) {
    double sum = 0.0;
    for (TreeCR* tree : group) sum += tree->Predict(line);
    return sum / static_cast<double>(group.size());
}

void AddGroups(const TreeLearner& learner, double* line, RowScore& score) {
    for (size_t g = 0; g < learner.TreeVV.size(); ++g) {
        const double predGroup = GroupMean(learner.TreeVV[g], line);
        score.result += learner.StepLengthV[g] * predGroup;
        if (score.fullResult != nullptr) score.fullResult[g] = predGroup;
    }
}

// Counts and the highest count are deliberately carried from group to group. With fullResult every
// tree votes; without it a group ends at an absolute majority, and the highest count then stays.
// `counts` has the count of each class, 0 at first.
template <typename Leaves, typename Counts>
int VoteGroups(const TreeLearner& learner, Leaves& leaves, RowScore& score, Counts& counts) {
    long long highest = 0;
    double sum = 0.0;
    size_t firstTree = 0;
    for (size_t g = 0; g < learner.TreeVV.size(); ++g) {
        const size_t numTrees = learner.TreeVV[g].size();
        const double majority = static_cast<double>(numTrees) * 0.5;
        double winner = 0.0;
        for (size_t j = 0; j < numTrees; ++j) {
            const double pred = leaves.Value(firstTree + j);
            const int cls = sylvora::Truncate<int>(pred);
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
    return sylvora::Guarded([&] {
        static thread_local std::pmr::unsynchronized_pool_resource memory;
        std::pmr::map<int, long long> countM(&memory);
        return VoteGroups(learner, leaves, score, countM);
    });
}

// `compiled` is null where the trees are to be walked.
int ScoreRow(const TreeLearner& learner, const CompiledEnsemble* compiled, double* line,
             RowScore& score) {
    if (learner.CfgInfo.fRegCls == "CLS") {
        return compiled != nullptr ? Vote(learner, RowLeaves(*compiled, line), score)
                                   : Vote(learner, PlainLeaves(learner.TreeVV, line), score);
    }
    if (compiled == nullptr) {
        AddGroups(learner, line, score);
    } else {
        score.result = sylvora::engine::ScoreRow(*compiled, line, score.fullResult);
    }
    return 0;
}

}  // namespace

// Whether rows of `n` values can be scored.
int TreeLearner::CheckScoring(int n) const {
    if (TreeVV.empty() || TreeVV.size() != StepLengthV.size()) {
        return Fail("ERROR: Wrong tree size or shrink size!\n");
    }
    if (dimFea == 0) return Fail("ERROR: feature dimension in model is 0!\n");
    if (CfgInfo.fRegCls != "REG" && CfgInfo.fRegCls != "CLS") {
        return Fail("ERROR: Please config the task REG or CLS in cfg!\n");
    }
    if (std::max(dimFea, modelDim) > n) {
        return Fail("ERROR: dimension of input line doesn't match the model!\n");
    }
    if (!walkFault.empty()) return Fail("ERROR: Wrong model format!\n", walkFault, "\n");
    return 0;
}

// The compiled form, as long as it is that of the ensemble.
const CompiledEnsemble* TreeLearner::Compiled() const {
    const bool fValid = scoringForm != nullptr && scoringForm->IsOf(*this);
    return fValid ? scoringForm->ensemble.get() : nullptr;
}

int TreeLearner::OnlineTesting(double* line, double& result, int n, double* fullResult) {
    result = 0.0;
    if (CheckScoring(n) != 0) return -1;
    RowScore score = {0.0, fullResult, fullResult == nullptr};
    const int status = ScoreRow(*this, Compiled(), line, score);
    result = score.result;
    return status;
}

int TreeLearner::OnlineTestingBatch(const double* rows, size_t n, size_t stride, double* results,
                                    int maxThreads) {
    constexpr size_t kMostValues = std::numeric_limits<int>::max();
    if (CheckScoring(static_cast<int>(std::min(stride, kMostValues))) != 0) return -1;
    // No array of doubles is larger than a pointer difference can tell.
    constexpr size_t kMostDoubles = PTRDIFF_MAX / sizeof(double);
    if (n > kMostDoubles / std::max(stride, size_t{1})) {
        return Fail("ERROR: ", n, " rows of ", stride, " values cannot be in memory!\n");
    }
    return sylvora::Guarded([&] {
        const CompiledEnsemble* compiled = Compiled();
        if (compiled != nullptr && n >= kFewRows && numClass <= kFewClasses) {
            sylvora::engine::ScoreRows(*compiled, {rows, n, stride}, results, maxThreads);
            return 0;
        }
        std::vector<double> scoreV(n);
        for (size_t i = 0; i < n; ++i) {
            RowScore score = {0.0, nullptr, false};
            // Walks only read.
            double* row = const_cast<double*>(rows) + i * stride;
            if (ScoreRow(*this, compiled, row, score) != 0) return -1;
            scoreV[i] = score.result;
        }
        std::copy(scoreV.begin(), scoreV.end(), results);
        return 0;
    });
}
