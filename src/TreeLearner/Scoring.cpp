// Scoring rows with the ensemble: how the trees' outputs make a score. They come from the compiled
// form or, where there is none, from walks of the trees one by one.
#include <algorithm>
#include <cstdint>
#include <limits>
#include <vector>

#include "../TreeLearner.h"
#include "../god/Report.h"
#include "EnsembleView.h"
#include "ScoringForm.h"
#include "Voting.h"
#include "engine/score/BatchScoring.h"
#include "engine/score/RowLeaves.h"
#include "engine/score/RowScoring.h"

using sylvora::EnsembleView;
using sylvora::Fail;
using sylvora::RowScore;
using sylvora::Vote;
using sylvora::WalkedLeaves;
using sylvora::engine::CompiledEnsemble;
using sylvora::engine::RowLeaves;

namespace {

// Rows from which blocks are faster than one row after the other.
constexpr size_t kFewRows = 20;

void AddGroups(const TreeLearner& learner, const double* line, RowScore& score) {
    const EnsembleView trees(learner);
    for (size_t g = 0; g < trees.NumGroups(); ++g) {
        const size_t numTrees = trees.GroupSize(g);
        double sum = 0.0;
        for (size_t t = 0; t < numTrees; ++t) sum += trees.Tree(g, t).Predict(line);
        const double predGroup = sum / static_cast<double>(numTrees);
        score.result += learner.StepLengthV[g] * predGroup;
        if (score.fullResult != nullptr) score.fullResult[g] = predGroup;
    }
}

// `compiled` is null where the trees are to be walked.
int ScoreRow(const TreeLearner& learner, const CompiledEnsemble* compiled, double* line,
             RowScore& score) {
    if (learner.CfgInfo.fRegCls == "CLS") {
        return compiled != nullptr
                   ? Vote(learner, RowLeaves(*compiled, line), score)
                   : Vote(learner, WalkedLeaves(EnsembleView(learner), line), score);
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
    const size_t numGroups = EnsembleView(*this).NumGroups();
    // Trees in TreeVV beside packed ones are not ours.
    const bool fMixed = packedTrees != nullptr && !TreeVV.empty();
    if (numGroups == 0 || numGroups != StepLengthV.size() || fMixed) {
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
        if (compiled != nullptr && n >= kFewRows && numClass <= sylvora::kFewClasses) {
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
