// The training run: rounds of gradients, trees and predictions, then the model file.
//
// Gradients and predictions are computed in parallel, one share of the samples per worker, in
// phases that are joined before the next one begins. Results do not depend on which thread runs a
// share, only on the shares, and these follow from numThread and the data.
#include <sys/time.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <utility>
#include <vector>

#include "../Output/ResultFile.h"
#include "../TreeLearner.h"
#include "../claim.h"
#include "../god/Report.h"
#include "../god/Truncation.h"
#include "../god/Workers.h"
#include "Arrays.h"
#include "AtWork.h"
#include "CallScope.h"
#include "EngineRun.h"
#include "LossRun.h"
#include "RankRun.h"
#include "RoundedNumber.h"
#include "RowDraw.h"
#include "RunCheckpoint.h"
#include "RunEvaluation.h"
#include "Verification.h"
#include "base/WorkerPool.h"
#include "engine/score/PackedTrees.h"

using sylvora::AllocateArray;
using sylvora::Fail;
using sylvora::PartBegin;
using sylvora::Print;

namespace {

constexpr long kMicroseconds = 1000000;

// Wall-clock time in microseconds since the epoch.
long Now() {
    timeval now = {};
    gettimeofday(&now, nullptr);
    return now.tv_sec * kMicroseconds + now.tv_usec;
}

}  // namespace

// State of one run of Boosting, kept from round to round.
struct TreeLearner::Run {
    std::vector<boosting_info_t> shares;  // pairwise disjoint; run in parallel
    // Shares whose first sample is in an earlier share as well. They run after all others, on the
    // calling thread: that sample is updated twice, as the ranges demand, but in a fixed order and
    // without a data race.
    std::vector<boosting_info_t> lateShares;
    bool fSetDynStepGlobal = false;             // CfgInfo.fSetDynStep as the run began
    bool fEachOnce = false;                     // every sample is in exactly one share
    std::unique_ptr<RunEvaluation> evaluation;  // null: nothing to evaluate
    std::unique_ptr<RunCheckpoint> checkpoint;  // null: none is wanted
    int numSlots = -1;  // trees that the run was to grow up to its end; -1: all of them

    // Rounds, or trees of a forest, that were done before this run began.
    int NumResumed() const { return checkpoint ? checkpoint->NumResumed() : 0; }

    // How often a round updates the prediction of the last row, which can follow from numThread;
    // see ShareQueries.
    int SharesOfLastRow(int numRows) const {
        int count = 0;
        for (const auto* const shareV : {&shares, &lateShares}) {
            for (const boosting_info_t& share : *shareV) {
                count += share.sIdBegin < numRows && share.sIdEnd == numRows - 1;
            }
        }
        return count;
    }

    // Runs one phase of a round and returns when all shares are done. A share that fails reports it
    // and the run goes on, so the exit values are deliberately ignored.
    void Fork(sylvora::WorkerPool& pool, void* (*entry)(void*)) {
        pool.For(static_cast<int>(shares.size()),
                 [&](int share, int) { entry(&shares[static_cast<size_t>(share)]); });
        for (boosting_info_t& share : lateShares) entry(&share);
    }
};

// The engine and the threads live only as long as the call.
int TreeLearner::Boosting() {
    const CallScope scope(*this);
    if (RefuseAtWork("Boosting") != 0) return -1;
    const AtWork work(*this);
    numGrown = 0;
    evaluationRecord = {};
    Run run;
    const int status = sylvora::Guarded([&] {
        if (gradientV == nullptr || predictV == nullptr || numPairDistinctQueV == nullptr) {
            return Fail("ERROR: Boosting needs ParamInit first!\n");
        }
        if (CheckTrainingWidth() != 0 || sylvora::CheckDigits(CfgInfo.digits) != 0) return -1;
        if (CfgInfo.fPrint) Print("Start Boosting ...\n");
        const long start = Now();
        if (PrepareRun(run) != 0 || RunRounds(run) != 0 || FinishRun() != 0) return -1;
        if (run.evaluation && run.evaluation->TakeEnsemble() != 0) return -1;
        if (rankRun && !rankRun->All(true)) return -1;
        const long seconds = (Now() - start) / kMicroseconds;
        if (CfgInfo.fPrint) Print("Time for generating all trees: ", seconds, " seconds\n");
        return 0;
    });
    // Runs after a failure, too: counts the missing trees and drops a group that is not complete.
    const int numPerRound = modelType == "RandomForest" ? std::max(sizeGroup, 0) : 1;
    const long numAsked = run.numSlots >= 0 ? long{run.numSlots}
                                            : static_cast<long>(std::max(numTree, 0)) * numPerRound;
    numMissing = static_cast<int>(std::min(numAsked - numGrown, long{INT_MAX}));
    if (packedTrees) packedTrees->DropOpenGroup();
    engineRun.reset();
    rankRun.reset();
    rowCopy.reset();
    workers.reset();  // joins the threads, also after a failure
    return status;
}

// Brings the learner into the state in which every run begins, except for predictV: ParamInit sets
// it to 0, LossRun::Begin to the start value. Without ParamInit, a second run with a loss without a
// start value goes on from the predictions of the first. The engine comes last: it reads the arrays
// and needs the threads.
int TreeLearner::PrepareRun(Run& run) {
    fStopped = fKept = false;
    progressDone = 0;
    progressTotal = modelType == "RandomForest" ? sizeGroup : numTree;
    lostResult.clear();
    run.fSetDynStepGlobal = CfgInfo.fSetDynStep;
    RetireTrees();
    if (fPacked) packedTrees = std::make_shared<sylvora::engine::PackedTrees>();
    modelDim = dimFea;
    StepLengthV.clear();
    dynShrink = 1.0;
    if (fDebug && AllocateDebugCounters() != 0) {
        return Fail("ERROR: Failed to allocate memory!\n");
    }
    try {
        ShareOut(run);
    } catch (const std::bad_alloc&) {
        return Fail("ERROR: Failed to allocate memory for boosting!\n");
    }
    if (PlaceSeeds() != 0 || (fVerify && Verification{*this}.CheckStart() != 0)) return -1;
    if (RunEvaluation::Start(*this, run.evaluation) != 0) return -1;
    workers = std::make_unique<sylvora::WorkerPool>();
    const int code = workers->Start(numThread);
    if (code != 0) return sylvora::FailToStart(code);
    if (trainingOptions.ranks != nullptr) {
        rankRun = std::make_unique<RankRun>(*this, *trainingOptions.ranks);
        if (rankRun->Begin() != 0) return -1;
    }
    if (lossRun != nullptr && lossRun->Begin() != 0) return -1;
    if (RunCheckpoint::Start(*this, run.evaluation.get(), run.SharesOfLastRow(sampleSize),
                             run.checkpoint) != 0) {
        return -1;
    }
    engineRun = sylvora::EngineRun::Start(*this, *workers);
    return 0;
}

// Sorts the workers' ranges into disjoint and late ones.
void TreeLearner::ShareOut(Run& run) {
    // Invariant: lastSample is the largest sample of all ranges so far, which ascend.
    int lastSample = -1;
    run.fEachOnce = true;
    for (const boosting_info_t& share : ShareSamples()) {
        run.fEachOnce = run.fEachOnce && share.sIdBegin == lastSample + 1;
        const bool fShared = share.sIdBegin <= share.sIdEnd && share.sIdBegin <= lastSample;
        (fShared ? run.lateShares : run.shares).push_back(share);
        lastSample = std::max(lastSample, share.sIdEnd);
    }
    run.fEachOnce = run.fEachOnce && lastSample == sampleSize - 1;
}

// Replaces fea_debug by counters of 0, one per column. What is allocated before a failure stays
// with fea_debug, and FreeDebugCounters frees it.
int TreeLearner::AllocateDebugCounters() {
    FreeDebugCounters();
    fea_debug = static_cast<fea_debuginfo_t*>(std::calloc(1, sizeof *fea_debug));
    if (fea_debug == nullptr) return -1;
    const size_t numColumns = static_cast<size_t>(std::max(dimFea, 1));
    fea_debug->candidate_num_list = static_cast<int*>(std::calloc(numColumns, sizeof(int)));
    fea_debug->selected_num_list = static_cast<int*>(std::calloc(numColumns, sizeof(int)));
    fea_debug->crit_sum_list = static_cast<double*>(std::calloc(numColumns, sizeof(double)));
    const bool fAllocated = fea_debug->candidate_num_list != nullptr &&
                            fea_debug->selected_num_list != nullptr &&
                            fea_debug->crit_sum_list != nullptr;
    return fAllocated ? 0 : -1;
}

// Points each slot at its seed cell. Slot 0 draws from the global seed; all other slots
// deliberately share one cell, which is set once per run. Existing models depend on both.
int TreeLearner::PlaceSeeds() {
    const int numSlots = std::max(sizeGroup, 1);
    if (AllocateArray(randGenerators, numSlots, "allocating randGenerators") != 0) return -1;
    randGenerators[0] = &gseed;
    std::fill(randGenerators + 1, randGenerators + numSlots, &sharedSeed);
    sharedSeed = sylvora::Truncate<long>((sizeGroup - 1) * CfgInfo.tms_seed);
    return 0;
}

// One contiguous range of samples per worker, in order; some are empty if there are more workers
// than samples.
std::vector<boosting_info_t> TreeLearner::ShareSamples() {
    numThread = std::max(numThread, 1);
    if (CfgInfo.modelType == "GBRank") return ShareQueries();
    std::vector<boosting_info_t> shares;
    for (int t = 0; t < numThread; ++t) {
        shares.push_back({this, PartBegin(sampleSize, numThread, t),
                          PartBegin(sampleSize, numThread, t + 1) - 1});
    }
    return shares;
}

// Ranges of whole queries, so that each worker sees all pairs of its queries. Deliberate: if the
// last query has a single sample, it is in the ranges of the last two workers, and its prediction
// is updated twice. Existing models depend on it.
std::vector<boosting_info_t> TreeLearner::ShareQueries() {
    const int numQueries = sylvora::NumQueries(queryIdV[sampleSize - 1]);
    numThread = std::max(std::min(numThread, numQueries), 1);
    const int last = sampleSize - 1;
    std::vector<boosting_info_t> shares;
    int cursor = 0;  // the first sample that no earlier range was meant to have
    for (int t = 0; t < numThread; ++t) {
        const int lastQuery = PartBegin(numQueries, numThread, t + 1) - 1;
        const int begin = cursor;
        if (cursor <= last && queryIdV[cursor] <= lastQuery) {
            do ++cursor;
            while (cursor < last && queryIdV[cursor] <= lastQuery);
        }
        shares.push_back({this, begin, cursor == last ? cursor : cursor - 1});
    }
    return shares;
}

// The rounds, with the remaining time estimated from the last one. A forest reports its progress by
// trees instead, in GrowSlots, and goes on within its one round. The checkpoint is written before
// early stopping cuts the ensemble. The user hears of the round of a checkpoint once more.
int TreeLearner::RunRounds(Run& run) {
    const bool fForest = modelType == "RandomForest";
    RunEvaluation* const evaluation = run.evaluation.get();
    int idxTree = fForest ? 0 : run.NumResumed();
    const auto checkStop = [&] {
        if (evaluation == nullptr || !rankRun) return 0;
        return rankRun->CheckStop(idxTree, evaluation->IsOver());
    };
    if (evaluation != nullptr && evaluation->Replay(idxTree) != 0) return -1;
    if (idxTree > 0 && checkStop() != 0) return -1;
    if (idxTree > 0 && IsStopped(idxTree, numTree)) return -1;
    bool fOver = fKept || (evaluation != nullptr && evaluation->IsOver());
    while (!fOver && idxTree < numTree) {
        ++idxTree;
        const long startTree = Now();
        if (BoostRound(run, idxTree) != 0) return -1;
        if (evaluation != nullptr && evaluation->TakeRound(idxTree, idxTree == numTree) != 0) {
            return -1;
        }
        if (checkStop() != 0) return -1;
        const long remaining = (Now() - startTree) * (numTree - idxTree) / kMicroseconds;
        if (CfgInfo.fPrint) {
            Print("Remaining time for generating trees: ", remaining, " seconds\n");
            sylvora::FlushOutput();
        }
        if (!fForest && run.checkpoint) run.checkpoint->Take(idxTree, false);
        if (!fForest && IsStopped(idxTree, numTree)) {
            if (run.checkpoint) run.checkpoint->Take(idxTree, true);
            return -1;
        }
        fOver = fKept || (evaluation != nullptr && evaluation->IsOver());
    }
    if (fOver && !fForest) run.numSlots = idxTree;
    if (!fForest && run.checkpoint) run.checkpoint->Take(idxTree, true);
    return evaluation != nullptr ? evaluation->EndRounds() : 0;
}

// One round; `idxTree` counts from 1. The order of the phases is fixed: gradients read predictV,
// trees read the gradients, and the update of predictV reads the trees.
int TreeLearner::BoostRound(Run& run, int idxTree) {
    if (fDebug) of_debug << idxTree - 1 << '\n';
    if (CfgInfo.fPrint) Print("******* Tree ID: ", idxTree, "  *******\n");
    if (lossRun != nullptr && lossRun->HasObjective()) {
        if (lossRun->AskObjective(idxTree) != 0) return -1;
    } else {
        run.Fork(*workers, CalLossThreadFunction);
    }
    if (fUserThrew) return -1;
    ClearGroup();
    GroupTreeCnt = 0;
    if (modelType == "RandomForest") {
        GroupTreeCnt = run.NumResumed();
        if (GenerateForest(run) != 0) return -1;
    } else if (GrowTree(0, true) != 0) {
        return Fail("ERROR: Failed when generating tree!\n");
    }
    if (fVerify && Verification{*this}.CheckRound(idxTree) != 0) return -1;
    fSetDynStep = run.fSetDynStepGlobal;
    const bool fStepped = run.fEachOnce && engineRun && engineRun->StepPredictions(*this);
    if (!fStepped && rankRun) rankRun->FindOutputs();
    if (!fStepped) run.Fork(*workers, PredictionThreadFunction);
    if (rankRun && rankRun->CheckStep("round", idxTree) != 0) return -1;
    if (fVerify && Verification{*this}.CheckPredictions(idxTree) != 0) return -1;
    StepLengthV.push_back(static_cast<float>(valShrink * dynShrink));
    EndGroup();
    if (CfgInfo.fTestRealTime && (!rankRun || rankRun->IsFirst())) WriteRoundResult(idxTree);
    if (fUserThrew) return -1;  // asked while a result file waited for its reader
    return 0;
}

// Grows the slots one after the other. Each continues the random stream where the one before it
// ended, so only this order makes a forest independent of the number of threads; the parallelism is
// inside a tree. A slot that fails is reported and left out.
int TreeLearner::GenerateForest(Run& run) {
    if (run.NumResumed() > 0 && IsStopped(run.NumResumed(), sizeGroup)) return -1;
    if (fKept) run.numSlots = run.NumResumed();
    for (int slot = run.NumResumed(); slot < sizeGroup && !fStopped && !fUserThrew && !fKept;
         ++slot) {
        const int status = GrowSlots(slot, slot);
        if (fUserThrew) break;
        // Other ranks may have grown the tree.
        if (rankRun && !fStopped && status != 0) return -1;
        if (rankRun && rankRun->CheckStep("tree", slot + 1) != 0) return -1;
        if (fVerify && Verification{*this}.CheckSlot(slot) != 0) return -1;
        if (fKept) run.numSlots = slot + 1;
        const bool fLast = fStopped || fKept || slot + 1 == sizeGroup;
        if (run.checkpoint) run.checkpoint->Take(slot + 1, fLast);
    }
    return fStopped || fUserThrew ? -1 : 0;
}

// Writes the result file of a round. A failure to write does not end the run: only the first one is
// reported, and its path is kept in lostResult.
void TreeLearner::WriteRoundResult(int idxTree) {
    const std::string path = CfgInfo.pathOutput + CfgInfo.fileResultBase;
    const auto isStopped = [this] { return AskUser() != 0; };
    sylvora::WriteFailure lost;
    if (CfgInfo.fRegCls == "REG") {
        // Deliberate: the training predictions, but only as many as there are test rows.
        lost = sylvora::WriteResult(
            {predictV, labelTrV, std::min(testSize, sampleSize), path + ".train", idxTree, nullptr},
            isStopped);
    } else if (CfgInfo.fRegCls == "CLS") {
        lost = sylvora::WriteResult(
            {testResV, labelTestV, testSize, path + ".test", idxTree, &distClsVV}, isStopped);
    }
    if (lost.path.empty() || !lostResult.empty()) return;
    sylvora::Warn(lost.Message());
    lostResult = std::move(lost.path);
}

// Writes the rest of the debug report and the model, then compiles the ensemble for scoring. The
// report must be complete before the model is written, which includes a copy of it.
int TreeLearner::FinishRun() {
    if (fDebug) {
        for (int f = 0; f < dimFea; ++f) {
            of_debug << f << ' ' << fea_debug->crit_sum_list[f] << ' '
                     << fea_debug->candidate_num_list[f] << ' ' << fea_debug->selected_num_list[f]
                     << '\n';
        }
        const bool fOpen = of_debug.is_open();  // at rank 0 only
        if (fOpen && !sylvora::CloseStream(of_debug) && debugError == 0) debugError = errno;
    }
    engineRun.reset();  // frees its memory for the scoring form
    modelDim = dimFea;
    walkFault.clear();  // of an ensemble that was loaded before
    fLoadFailed = false;
    const bool fInMemory = borrowed != nullptr && fileModel.empty();
    const bool fWritten = !fInMemory && (!rankRun || rankRun->IsFirst());
    if (fWritten && WriteModel(fileModel, CfgInfo.digits, fVerify) != 0) {
        return fStopped ? -1 : Fail("ERROR: Failed to save the full model!\n");
    }
    CompileEnsemble();
    return 0;
}
