// Whole training runs through the library.
#include <sys/wait.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <iterator>
#include <mutex>
#include <numeric>
#include <thread>

#include "../Support.h"
#include "EvaluationCases.h"

namespace {

using namespace sylvora::tests;

// 61 rows of 5 columns.
std::unique_ptr<TreeLearner> PrepareRandom(const CheckCfgCLS& cfg) {
    return MakeLearner(cfg, Data(61, 53, "CLS"), nullptr);
}

TEST(Boosting, AddsUpItsTrees) {
    CheckCfgCLS cfg = Settings("GBDT", "Square");
    cfg.numTree = 3;
    cfg.numThread = 4;
    const auto learner = PrepareRandom(cfg);
    for (int run = 0; run < 2; ++run) {  // a second run starts over
        std::fill_n(learner->predictV, learner->sampleSize, 0.0);
        ASSERT_EQ(learner->Boosting(), 0);
        ASSERT_EQ(learner->TreeVV.size(), 3U);
        EXPECT_EQ(learner->StepLengthV, VecFt(3, 0.5F));
        for (int i = 0; i < learner->sampleSize; ++i) {
            double sum = 0;
            for (const auto& group : learner->TreeVV) {
                sum += group.at(0)->Predict(learner->featureVV[i]) * 0.5;
            }
            EXPECT_EQ(learner->predictV[i], sum);
        }
    }
}

TEST(Boosting, WithoutARoundWritesAModelWithoutTrees) {
    const TempFolder folder;
    CheckCfgCLS cfg = Settings("RandomForest", "Label");
    cfg.fileModel = folder.Path("model.txt");
    cfg.numTree = 0;
    cfg.sizeGroup = 4;
    cfg.tms_seed = 2.5;
    const auto learner = PrepareRandom(cfg);
    ASSERT_EQ(learner->Boosting(), 0);
    EXPECT_EQ(ReadFile(cfg.fileModel).substr(0, 6), "0 0 5\n");
    EXPECT_EQ(learner->randGenerators[0], &gseed);
    EXPECT_EQ(*learner->randGenerators[1], 7);
    EXPECT_EQ(learner->randGenerators[1], learner->randGenerators[3]);
}

std::mutex rangeMutex;
VecInt rangeLengthV;

int Square(double* labelV, double* predictV, double** gradientV, int count) {
    for (int i = 0; i < count; ++i) (*gradientV)[i] = labelV[i] - predictV[i];
    const std::lock_guard<std::mutex> lock(rangeMutex);
    rangeLengthV.push_back(count);
    return 0;
}

TEST(Boosting, SharesRowsOrWholeQueriesAmongThreads) {
    const struct {
        VecInt queryLengthV;  // empty: ten rows without queries
        int numThread;
        VecInt expected;  // the ranges' lengths, longest first
        int lastSteps;    // ranges that hold the last row: so often does its prediction move
    } cases[] = {{{}, 3, {4, 3, 3}, 1},        {{}, 4, {3, 3, 2, 2}, 1},
                 {{}, 12, VecInt(10, 1), 1},   {{2, 3, 2, 3, 2}, 8, {3, 3, 2, 2, 2}, 1},
                 {{4, 2, 2, 3}, 2, {6, 5}, 1}, {{3, 2, 1}, 2, {6, 1}, 2},
                 {{3, 2, 1}, 3, {3, 3, 1}, 2}};
    for (const auto& c : cases) {
        const bool fQueries = !c.queryLengthV.empty();
        CheckCfgCLS cfg = Settings(fQueries ? "GBRank" : "GBDT", "USER");
        cfg.numThread = c.numThread;
        VecDle labels;
        const int numRows = std::accumulate(c.queryLengthV.begin(), c.queryLengthV.end(), 0);
        for (int i = 0; i < (fQueries ? numRows : 10); ++i) labels.push_back(i);
        const auto learner = Prepare(cfg, labels, c.queryLengthV);
        learner->setLossFunction(Square);
        rangeLengthV.clear();
        ASSERT_EQ(learner->Boosting(), 0);
        std::sort(rangeLengthV.rbegin(), rangeLengthV.rend());
        EXPECT_EQ(rangeLengthV, c.expected) << c.numThread << " threads";
        if (fQueries) {
            EXPECT_EQ(learner->numThread, static_cast<int>(c.expected.size()));
        }
        for (int i = 0; i < learner->sampleSize; ++i) {
            const double step = learner->TreeVV.at(0).at(0)->Predict(learner->featureVV[i]) * 0.5;
            const int numSteps = i + 1 == learner->sampleSize ? c.lastSteps : 1;
            EXPECT_EQ(learner->predictV[i], step * numSteps);
        }
    }
}

std::vector<std::thread::id> callerV;  // of each range of rangeLengthV

// Takes so long for more than one row that another worker takes the next range.
int SlowSquare(double* labelV, double* predictV, double** gradientV, int count) {
    if (count > 1) std::this_thread::sleep_for(std::chrono::milliseconds(10));
    const int status = Square(labelV, predictV, gradientV, count);
    callerV.push_back(std::this_thread::get_id());
    return status;
}

// The last row is in the ranges of two workers here, which must not update its prediction at the
// same time. The second range runs after all others, on the calling thread.
TEST(Boosting, StepsARowOfTwoRangesOneAfterTheOther) {
    CheckCfgCLS cfg = Settings("GBRank", "USER");
    cfg.numThread = 3;
    cfg.numTree = 5;
    const auto learner = Prepare(cfg, {0, 1, 0, 1, 0, 1, 1}, {3, 3, 1});
    learner->setLossFunction(SlowSquare);
    rangeLengthV.clear();
    callerV.clear();
    ASSERT_EQ(learner->Boosting(), 0);
    ASSERT_EQ(rangeLengthV.size(), 15U);
    for (size_t last = 2; last < rangeLengthV.size(); last += 3) {
        EXPECT_EQ(rangeLengthV[last], 1);
        EXPECT_EQ(callerV[last], std::this_thread::get_id());
    }
}

std::ptrdiff_t NumThreads() {
    const std::filesystem::directory_iterator threads("/proc/self/task");
    return std::distance(begin(threads), end(threads));
}

// The system still lists a joined thread for a moment.
bool FallTo(std::ptrdiff_t expected) {
    for (int i = 0; i < 1000 && NumThreads() > expected; ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return NumThreads() <= expected;
}

// In a child: the inherited learner scores as its parent does and trains the same model again.
bool WorksAfterFork(TreeLearner& learner, const std::string& expected, const VecDle& scoreV) {
    VecDle again(scoreV.size());
    const VecDle rowV(scoreV.size() * 5, 0.5);
    const bool fScored =
        learner.OnlineTestingBatch(rowV.data(), again.size(), 5, again.data(), 3) == 0;
    std::fill_n(learner.predictV, learner.sampleSize, 0.0);
    gseed = -7;
    return fScored && again == scoreV && learner.Boosting() == 0 &&
           ReadFile(learner.fileModel) == expected;
}

TEST(Boosting, LeavesNoThreadsSoThatAProcessCanFork) {
    const TempFolder folder;
    std::thread([] {}).join();  // a sanitizer starts its own thread with the first one
    const auto numBefore = NumThreads();
    for (const char* fRegCls : {"REG", "CLS"}) {
        CheckCfgCLS cfg = Settings("CART", "Label");
        cfg.fRegCls = fRegCls;
        cfg.numThread = 4;
        cfg.fileModel = folder.Path("model.txt");
        const auto learner = PrepareRandom(cfg);
        ASSERT_EQ(learner->Boosting(), 0);
        const std::string model = ReadFile(cfg.fileModel);
        // Enough visits for several threads.
        VecDle scoreV(300000);
        const VecDle rowV(scoreV.size() * 5, 0.5);
        ASSERT_EQ(learner->OnlineTestingBatch(rowV.data(), scoreV.size(), 5, scoreV.data(), 3), 0);
        EXPECT_TRUE(FallTo(numBefore));
        const pid_t child = fork();
        ASSERT_NE(child, -1);
        if (child == 0) _exit(WorksAfterFork(*learner, model, scoreV) ? 0 : 1);
        int status = -1;
        ASSERT_EQ(waitpid(child, &status, 0), child);
        EXPECT_EQ(status, 0) << fRegCls;
    }
}

int Note(void* context, int done, int total) {
    static_cast<VecInt*>(context)->push_back(done);
    return done == std::min(total, 2) ? 1 : 0;
}

// Also when the last tree is grown: the older model stays.
TEST(Boosting, IsStoppedByTheProgressFunction) {
    const TempFolder folder;
    for (const char* modelType : {"GBDT", "RandomForest"}) {
        for (const int numTrees : {1, 2, 5}) {
            CheckCfgCLS cfg = Settings(modelType, "Label");
            cfg.fileModel = folder.Write("model.txt", "older");
            (cfg.modelType == "GBDT" ? cfg.numTree : cfg.sizeGroup) = numTrees;
            cfg.numThread = 2;
            const auto learner = PrepareRandom(cfg);
            VecInt doneV;
            learner->setProgress(Note, &doneV);
            const auto seen = Observe([&] { return learner->Boosting(); });
            EXPECT_EQ(seen.status, -1);
            EXPECT_EQ(doneV, numTrees == 1 ? VecInt{1} : (VecInt{1, 2}));
            EXPECT_EQ(ReadFile(cfg.fileModel), "older");
        }
    }
}

TEST(Boosting, ScoresWhatItTrainedAfterAFailedLoad) {
    const TempFolder folder;
    CheckCfgCLS cfg = Settings("GBDT", "Label");
    cfg.fileModel = folder.Path("model.txt");
    const auto learner = PrepareRandom(cfg);
    EXPECT_EQ(Observe([&] { return learner->LoadModelFull(folder.Path("none")); }).status, -1);
    ASSERT_EQ(learner->Boosting(), 0);
    VecDle row(static_cast<size_t>(learner->getFeatureDim()), 0.5);
    double score = 0.0;
    EXPECT_EQ(learner->OnlineTesting(row.data(), score, learner->getFeatureDim(), nullptr), 0);
}

TEST(Boosting, AFailedSaveFailsTheRun) {
    const TempFolder folder;
    CheckCfgCLS cfg = Settings("CART", "Label");
    cfg.fileModel = folder.Path("missing/model.txt");
    const auto learner = PrepareRandom(cfg);
    EXPECT_EQ(Refused([&] { return learner->Boosting(); }),
              "ERROR: Can not open file!\n\nERROR: Can not write file " + cfg.fileModel +
                  ": No such file or directory!\nERROR: Failed to save the full model!\n");
}

// A failed tree ends the run, except in a forest, which goes on with what trees it has.
TEST(Boosting, AFailedTreeIsReported) {
    for (const char* modelType : {"GBDT", "RandomForest"}) {
        CheckCfgCLS cfg = Settings(modelType, "Label");
        cfg.randomMode = "query";
        const auto learner = PrepareRandom(cfg);
        const auto seen = Observe([&] { return learner->Boosting(); });
        EXPECT_EQ(seen.status, cfg.modelType == "GBDT" ? -1 : 0);
        EXPECT_EQ(seen.err.find("ERROR: Random mode is wrong. mode: query!\n"), 0U);
        EXPECT_EQ(seen.err.find("ERROR: Failed when generating tree!\n") != std::string::npos,
                  cfg.modelType == "GBDT");
    }
}

}  // namespace
