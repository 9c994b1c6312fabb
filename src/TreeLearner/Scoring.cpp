// Scoring rows with the ensemble: how the outputs of the trees make a score. The outputs come from
// the compiled ensemble or, if there is none, from walking the trees one by one. Both give the same
// scores bit for bit.
#include <algorithm>
#include <cstdint>
#include <limits>
#include <string>
#include <vector>

#include "../TreeLearner.h"
#include "../god/Report.h"
#include "CallScope.h"
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
using sylvora::engine::RowTable;

namespace {

// From this many rows on, scoring in blocks is faster than row by row.
constexpr size_t kFewRows = 20;

// The reference implementation for a regression. The order of the sums, over the trees of a group
// and then over the groups, is part of the result.
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

// Scores one row. `compiled` is null if the trees must be walked. Returns 0, or -1 after a message.
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

// Scores all rows into `results`, which a failure half way leaves as they were. Returns 0, or -1
// after a message. Throws std::bad_alloc.
int ScoreAll(const TreeLearner& learner, const CompiledEnsemble* compiled, const RowTable& rows,
             double* results, int maxThreads) {
    if (compiled != nullptr && rows.numRows >= kFewRows &&
        learner.numClass <= sylvora::kFewClasses) {
        sylvora::engine::ScoreRows(*compiled, rows, results, maxThreads);
        return 0;
    }
    VecDle scoreV(rows.numRows), readV(rows.block != nullptr ? rows.stride : 0);
    for (size_t i = 0; i < rows.numRows; ++i) {
        double* line = readV.data();
        if (rows.block != nullptr) {
            const int row = static_cast<int>(i);
            rows.block->ReadRows(row, row + 1, static_cast<int>(rows.stride), line);
        } else {
            line = const_cast<double*>(rows.Row(i));  // safe: scoring only reads the row
        }
        RowScore score = {0.0, nullptr, false};
        if (ScoreRow(learner, compiled, line, score) != 0) return -1;
        scoreV[i] = score.result;
    }
    std::copy(scoreV.begin(), scoreV.end(), results);
    return 0;
}

}  // namespace

// Whether rows of `n` values can be scored. Returns 0, or -1 after a message. Allocates nothing on
// success: OnlineTesting calls it for every row.
int TreeLearner::CheckScoring(int n) const {
    const size_t numGroups = EnsembleView(*this).NumGroups();
    // With packed trees, TreeVV must be empty: somebody else has put trees there.
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

// Whether the rows of a block can be scored. Returns 0, or -1 after a message. Throws
// std::bad_alloc.
int TreeLearner::CheckBlock(const sylvora::DataBlock& block) const {
    std::string fault = sylvora::FaultOf(block);
    if (!fault.empty()) return Fail("ERROR: The data block ", fault, "!\n");
    const int numNeeded = std::max(dimFea, modelDim);
    if (block.numColumns < numNeeded) {
        return Fail("ERROR: The data block has ", block.numColumns, " columns, the model has ",
                    numNeeded, "!\n");
    }
    if (CheckScoring(static_cast<int>(block.numColumns)) != 0) return -1;
    fault = sylvora::BlockReader(block).RefusedValue();
    return fault.empty() ? 0 : Fail("ERROR: The data block ", fault, "!\n");
}

// The compiled ensemble, or null if there is none or the trees have changed since it was made. The
// learner owns it.
const CompiledEnsemble* TreeLearner::Compiled() const {
    const bool fValid = scoringForm != nullptr && scoringForm->IsOf(*this);
    return fValid ? scoringForm->ensemble.get() : nullptr;
}

int TreeLearner::OnlineTesting(double* line, double& result, int n, double* fullResult) {
    const CallScope scope(*this);
    result = 0.0;
    if (CheckScoring(n) != 0) return -1;
    RowScore score = {0.0, fullResult, fullResult == nullptr};
    const int status = ScoreRow(*this, Compiled(), line, score);
    result = score.result;
    return status;
}

int TreeLearner::OnlineTestingBatch(const sylvora::DataBlock& block, double* results,
                                    int maxThreads) {
    const CallScope scope(*this);
    return sylvora::Guarded([&] {
        if (CheckBlock(block) != 0) return -1;
        if (block.numRows == 0) return 0;
        if (results == nullptr) return Fail("ERROR: The scores are a null pointer!\n");
        const sylvora::BlockReader reader(block);
        const RowTable rows = {nullptr, static_cast<size_t>(block.numRows),
                               static_cast<size_t>(std::max(dimFea, modelDim)), &reader};
        return ScoreAll(*this, Compiled(), rows, results, maxThreads);
    });
}

int TreeLearner::OnlineTestingBatch(const double* rows, size_t n, size_t stride, double* results,
                                    int maxThreads) {
    const CallScope scope(*this);
    constexpr size_t kMostValues = std::numeric_limits<int>::max();
    if (CheckScoring(static_cast<int>(std::min(stride, kMostValues))) != 0) return -1;
    // No array can be larger than PTRDIFF_MAX bytes. Divides, because the product could overflow.
    constexpr size_t kMostDoubles = PTRDIFF_MAX / sizeof(double);
    if (n > kMostDoubles / std::max(stride, size_t{1})) {
        return Fail("ERROR: ", n, " rows of ", stride, " values cannot be in memory!\n");
    }
    return sylvora::Guarded([&] {
        return ScoreAll(*this, Compiled(), {rows, n, stride}, results, maxThreads);
    });
}
