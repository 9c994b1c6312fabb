// Trainings that go on from a checkpoint: the bytes of one that never stopped, or a refusal.
#include <algorithm>
#include <functional>
#include <string>
#include <vector>

#include "../Support.h"
#include "EvaluationCases.h"
#include "ModelText.h"

namespace {

using namespace sylvora;
using namespace sylvora::tests;

struct Kind {
    Model model;
    const char* randomMode = "DOC";
    bool fWeights = false;
    int earlyStop = 0;
    double seed = 0.0;  // of the slots of a forest
    SamplingFeatureType sampler = nullptr;
};

int Sample(int dimF, int*& selF, double*&, int countSel, int depth, bool&) {
    for (int i = 0; i < countSel; ++i) selF[i] = (depth + 2 * i) % dimF;
    return 0;
}

const Kind kKinds[] = {{{"GBDT", "REG", "Square", "REG"}},
                       {{"GBDT", "REG", "Square", "REG"}, "DOC", true, 5},
                       {{"GBDT", "REG", "LogLoss", "+-"}, "DOC", true},
                       {{"GBDT", "REG", "Absolute", "REG"}, "DOC", false, 4},
                       {{"GBDT", "REG", "Exponential", "+-"}, "DOC", false, 0, 0.0, Sample},
                       {{"GBRank", "REG", "CrossEntropy", "RANK"}, "QUERY", false, 5},
                       {{"GBRank", "REG", "HingeSquareRank", "RANK"}},
                       {{"RandomForest", "REG", "Label", "REG"}, "DOC", true},
                       {{"RandomForest", "REG", "Label", "REG"}, "DOC", false, 0, 3.0},
                       {{"RandomForest", "CLS", "Label", "CLS"}, "DOC", false, 0, -5.0},
                       {{"CART", "REG", "Label", "REG"}},
                       {{"CART", "CLS", "Label", "CLS"}}};

bool IsForest(const Kind& kind) {
    return kind.model.modelType == std::string("RandomForest");
}

struct Course {
    int numTree = 12;
    int numThread = 1;
    int stopAfter = 1000;  // rounds or trees, counted from the beginning
    int answer = 1;        // of the progress function, then
    int every = 1;         // checkpointEvery; each writing waits for the disk
};

// What a training left behind.
struct Result {
    int status = 0;
    std::string err, model;
    std::vector<int> coverV;
    VecVecDle valueVV;  // by metric
    int bestRound = 0, numTrees = 0, numMissing = 0;

    bool operator==(const Result& other) const {
        return status == other.status && model == other.model && coverV == other.coverV &&
               valueVV == other.valueVV && bestRound == other.bestRound &&
               numTrees == other.numTrees && numMissing == other.numMissing;
    }
};

class Checkpoints : public testing::Test {
  protected:
    typedef std::function<void(TreeLearner&)> Change;

    std::unique_ptr<TreeLearner> Make(const Kind& kind, const Course& course, bool fCheckpoint) {
        const Data data(200, 8, kind.model.labels), dev(80, 9, kind.model.labels);
        CheckCfgCLS cfg = ConfigOf(kind.model, course.numTree, course.numThread);
        cfg.randomMode = kind.randomMode;
        cfg.fileModel = folder.Path("model");
        cfg.earlyStop = kind.earlyStop;
        cfg.tms_seed = kind.seed;
        if (fCheckpoint) cfg.fileCheckpoint = file;
        cfg.checkpointEvery = course.every;
        auto learner = MakeLearner(cfg, data, &dev);
        if (kind.fWeights) {
            VecInt weightV;
            for (int i = 0; i < 200; ++i) weightV.push_back(i % 4);
            EXPECT_EQ(learner->setWeights(weightV.data(), 200), 0);
        }
        learner->setNodeSamplingFeaType(kind.sampler);
        learner->setPackedTrees(true);
        learner->setVerification(true);
        learner->trainingOptions.fCovers = true;
        return learner;
    }

    Result Train(const Kind& kind, const Course& course, bool fCheckpoint = true,
                 const Change& change = {}) {
        std::filesystem::remove(folder.Path("model"));
        auto learner = Make(kind, course, fCheckpoint);
        if (change) change(*learner);
        Course asked = course;
        learner->setProgress(
            [](void* context, int done, int) {
                const Course& end = *static_cast<Course*>(context);
                return done >= end.stopAfter ? end.answer : 0;
            },
            &asked);
        const Outcome seen = Observe([&] { return learner->Boosting(); });
        Result result = {seen.status, seen.err, "", {}, {}, 0, learner->getTreeNum(), 0};
        if (seen.status != 0) return result;
        result.model = ReadFile(folder.Path("model"));
        EXPECT_EQ(ModelText::Covers(*learner, result.coverV), 0);
        for (const MetricRecord& record : learner->getEvaluation().metricV) {
            result.valueVV.push_back(record.valueV);
        }
        result.bestRound = learner->getEvaluation().bestRound;
        result.numMissing = learner->getMissingTreeNum();
        return result;
    }

    // Trains again, which must be refused with one line that has `part`; the file must not change.
    void Refuse(const std::string& part, const Kind& kind, const Course& course,
                const Change& change = {}) {
        const std::string before = ReadFile(file);
        const Result result = Train(kind, course, true, change);
        EXPECT_EQ(result.status, -1) << part;
        EXPECT_EQ(result.err.rfind("ERROR: checkpoint " + file + ": ", 0), 0U) << result.err;
        EXPECT_NE(result.err.find(part), std::string::npos) << part << "\n" << result.err;
        EXPECT_EQ(result.err.find('\n'), result.err.size() - 1) << result.err;
        EXPECT_EQ(ReadFile(file), before);
    }

    const TempFolder folder;
    const std::string file = folder.Path("checkpoint");
};

// Stopped after each round or tree, then once more, and ended with other numbers of threads. The
// file is the same in the end, and with it the training ends at once.
TEST_F(Checkpoints, AResumedTrainingEqualsOneThatNeverStopped) {
    for (const Kind& kind : kKinds) {
        SCOPED_TRACE(std::string(kind.model.modelType) + kind.model.fRegCls + kind.model.lossFunc);
        std::filesystem::remove(file);
        const bool fSingle = kind.model.modelType == std::string("CART");
        const int numTree = kind.earlyStop > 0 ? 300 : fSingle ? 1 : 12;
        const Result whole = Train(kind, {numTree, 2}, false);
        ASSERT_EQ(whole.status, 0) << whole.err;
        ASSERT_EQ(Train(kind, {numTree, 1}), whole);
        const std::string lastFile = ReadFile(file);
        const int numDone = kind.earlyStop > 0 ? whole.bestRound + kind.earlyStop : numTree;
        ASSERT_LT(kind.earlyStop > 0 ? numDone : 0, numTree);
        for (int k = 1; k <= numDone; ++k) {
            SCOPED_TRACE(k);
            std::filesystem::remove(file);
            const Result first = Train(kind, {numTree, 1 + k % 4, k, 1, k % 4 == 0 ? 1 : 1000});
            ASSERT_EQ(first.status, -1);
            const Result second = Train(kind, {numTree, 4, k + 2, kStopAndKeep, 0});
            ASSERT_EQ(second.status, 0) << second.err;
            ASSERT_EQ(second.err, "Notice: checkpoint " + file + ": the training goes on after " +
                                      std::to_string(k) + " of " + std::to_string(numTree) +
                                      (IsForest(kind) ? " trees!\n" : " rounds!\n"));
            // The user hears of the last round again, and may end the training there again.
            const int end = std::min(k + 2, numDone);
            const Result again = Train(kind, {numTree, 3, end, kStopAndKeep});
            ASSERT_EQ(again, second) << again.err;
            const Result last = Train(kind, {numTree, 1 + (k + 1) % 3, 1000, 1, 7});
            ASSERT_EQ(last, whole) << last.err;
            ASSERT_EQ(ReadFile(file), lastFile);
        }
        ASSERT_EQ(Train(kind, {numTree, 3}), whole);
    }
}

TEST_F(Checkpoints, MoreTreesThanBeforeAreThoseOfOneTraining) {
    for (const Kind& kind : {kKinds[0], kKinds[6], kKinds[7], kKinds[8]}) {
        std::filesystem::remove(file);
        ASSERT_EQ(Train(kind, {5, 1}).status, 0);
        EXPECT_EQ(Train(kind, {9, 2}), Train(kind, {9, 1}, false));
        Refuse(IsForest(kind) ? "has 9 trees, and numTree is only 8"
                              : "has 9 rounds, and numTree is only 8",
               kind, {8, 1});
    }
    // With a negative seed, the trees of a forest from the second one on depend on their number.
    for (const int numBefore : {1, 2}) {
        std::filesystem::remove(file);
        static_cast<void>(Train(kKinds[9], {5, 1, numBefore}));
        if (numBefore == 2) {
            Refuse("with another numTree", kKinds[9], {9, 1});
        } else {
            EXPECT_EQ(Train(kKinds[9], {9, 2}), Train(kKinds[9], {9, 1}, false));
        }
    }
}

// Everything that the model depends on is compared, and nothing else.
TEST_F(Checkpoints, ATrainingGoesOnOnlyFromItsOwn) {
    const Kind& kind = kKinds[1];
    const Course course = {30, 1, 4};
    ASSERT_EQ(Train(kind, course).status, -1);
    const struct {
        const char* part;
        Change change;
    } kChanges[] = {
        {"feature values of the training data differ",
         [](TreeLearner& l) { l.featureVV[199][4] += 1e-12; }},
        {"the labels of the training data differ", [](TreeLearner& l) { l.labelTrV[7] += 1; }},
        {"the weights of the training rows differ",
         [](TreeLearner& l) { ++l.numPairDistinctQueV[0]; }},
        {"the predictions to begin with differ", [](TreeLearner& l) { l.predictV[3] = 1; }},
        {"the set that earlyStop watches", [](TreeLearner& l) { l.featureDevVV[0][0] += 1; }},
        {"the set that earlyStop watches", [](TreeLearner& l) { l.labelDevV[79] += 1; }},
        {"the set that earlyStop watches",
         [](TreeLearner& l) { l.trainingOptions.stopMetric = "mae"; }},
        {"valShrink 0.5, not 0.5000000001", [](TreeLearner& l) { l.valShrink += 1e-10; }},
        {"valSmpRt", [](TreeLearner& l) { l.valSmpRt = 0.8; }},
        {"maxLeaf", [](TreeLearner& l) { l.CfgInfo.maxLeaf = 5; }},
        {"earlyStop", [](TreeLearner& l) { l.CfgInfo.earlyStop = 6; }},
        {"restore randomSeed", [](TreeLearner&) { gseed = -8; }},
        {"restore randomSeed", [](TreeLearner&) { gseed = 8; }},
        {"a feature sampler of the program: no, not yes",
         [](TreeLearner& l) { l.setNodeSamplingFeaType(Sample); }},
        {"quantile 0.5, not 0.6", [](TreeLearner& l) { l.CfgInfo.quantile = 0.6; }},
        {"covers", [](TreeLearner& l) { l.trainingOptions.fCovers = false; }},
        {"needs packed trees", [](TreeLearner& l) { l.setPackedTrees(false); }},
        {"fileDebug", [](TreeLearner& l) { l.fDebug = true; }},
        {"fTestRealTime", [](TreeLearner& l) { l.CfgInfo.fTestRealTime = true; }}};
    for (const auto& each : kChanges) Refuse(each.part, kind, course, each.change);
    const Result whole = Train(kind, {30, 1}, false, [](TreeLearner& l) { l.CfgInfo.digits = 17; });
    EXPECT_EQ(Train(kind, {30, 3}, true,
                    [](TreeLearner& l) {
                        l.CfgInfo.digits = 17;
                        l.CfgInfo.checkpointEvery = 7;
                        l.CfgInfo.huberDelta = 3;  // of another loss
                        l.valTau = 0.7;            // of other models
                        l.CfgInfo.fileTrain = "elsewhere";
                    }),
              whole);
}

// If the last of several workers has a single row, the predictions depend on whether there is one
// worker.
TEST_F(Checkpoints, ALoneLastRowBindsTheThreads) {
    const auto train = [&](int numThread, int stopAfter) {
        return Train(kKinds[6], {8, numThread, stopAfter}, true, [](TreeLearner& l) {
            std::fill_n(l.queryIdV, 199, 0);
            l.queryIdV[199] = 1;
            ASSERT_EQ(l.ParamInit(), 0);
        });
    };
    ASSERT_EQ(train(2, 3).status, -1);
    const Result other = train(1, 1000);
    EXPECT_NE(other.err.find("with numThread above 1, on which"), std::string::npos) << other.err;
    const Result resumed = train(4, 1000);
    EXPECT_EQ(resumed.status, 0) << resumed.err;
}

TEST_F(Checkpoints, WhatCannotBeACheckpointIsRefused) {
    const Change none;
    const auto refuse = [&](const char* part) { Refuse(part, kKinds[0], {4, 1}, none); };
    ASSERT_EQ(Train(kKinds[0], {4, 1}).status, 0);
    const std::string good = ReadFile(file);
    for (const std::string& text : {std::string(), std::string("tree\n"), good.substr(0, 900)}) {
        folder.Write("checkpoint", text);
        refuse(text.size() > 5 ? "is damaged" : "is no checkpoint");
    }
    std::filesystem::remove(file);
    std::filesystem::create_directory(file);
    const Result result = Train(kKinds[0], {4, 1});
    EXPECT_NE(result.err.find("cannot be written: Is a dir"), std::string::npos) << result.err;
    const Result lost = Train(kKinds[0], {4, 1}, true, [this](TreeLearner& l) {
        l.CfgInfo.fileCheckpoint = folder.Path("missing/checkpoint");
    });
    EXPECT_NE(lost.err.find("cannot be written: No such file"), std::string::npos) << lost.err;
}

// A checkpoint that cannot be written is reported once, the model is written, and a line at the end
// says what there is.
TEST_F(Checkpoints, ALostFileDoesNotEndTheTraining) {
    const std::string inner = folder.Path("inner"), away = folder.Path("away");
    const std::string model = Train(kKinds[0], {12, 1}, false).model;
    struct Move {
        std::string from, to;
        int awayAt, backAt;
    };
    const auto train = [&](int awayAt, int backAt) {
        std::filesystem::create_directory(inner);
        const auto learner = Make(kKinds[0], {12, 1}, true);
        learner->CfgInfo.fileCheckpoint = inner + "/checkpoint";
        Move move = {inner, away, awayAt, backAt};
        learner->setProgress(
            [](void* context, int done, int) {
                const Move& way = *static_cast<Move*>(context);
                if (done == way.awayAt) std::filesystem::rename(way.from, way.to);
                if (done == way.backAt) std::filesystem::rename(way.to, way.from);
                return 0;
            },
            &move);
        const Outcome seen = Observe([&] { return learner->Boosting(); });
        EXPECT_EQ(seen.status, 0);
        EXPECT_EQ(ReadFile(folder.Path("model")), model);
        return seen.err;
    };
    const std::string lost =
        "ERROR: Can not write file " + inner + "/checkpoint: No such file or directory!\n";
    EXPECT_EQ(train(5, 1000), lost + "Notice: checkpoint " + inner +
                                  "/checkpoint: the last one was written after 5 of 12 rounds!\n");
    std::filesystem::rename(away + "/checkpoint", file);
    EXPECT_EQ(Train(kKinds[0], {12, 2}).model, model);
    std::filesystem::remove_all(away);
    EXPECT_EQ(train(3, 6), lost);
    EXPECT_FALSE(std::filesystem::exists(inner + "/.sylvora-checkpoint.lock"));
}

// By one name or two, before the first writing and after it.
TEST_F(Checkpoints, TwoTrainingsNeverShareAFile) {
    const std::string link = folder.Path("link");
    std::filesystem::create_symlink("checkpoint", link);
    for (const std::string& path : {file, link}) {
        const auto first = Make(kKinds[0], {6, 1}, true);
        std::function<void()> other = [&] {
            const auto second = Make(kKinds[0], {6, 1}, true);
            second->CfgInfo.fileCheckpoint = path;
            const Outcome seen = Observe([&] { return second->Boosting(); });
            EXPECT_EQ(seen.status, -1);
            EXPECT_EQ(seen.err, "ERROR: checkpoint " + path +
                                    ": is in use by another training; wait for its end, or name "
                                    "another file!\n");
        };
        first->setProgress(
            [](void* context, int done, int) {
                if (done % 3 == 0) (*static_cast<std::function<void()>*>(context))();
                return 0;
            },
            &other);
        ASSERT_EQ(first->Boosting(), 0);
        // What a killed run leaves is taken over, and removed.
        folder.Write(".sylvora-checkpoint.lock", "");
        const Result last = Train(kKinds[0], {6, 1});
        ASSERT_EQ(last.status, 0) << last.err;
        EXPECT_EQ(folder.Names().size(), 3U);
        std::filesystem::remove(file);
    }
}

}  // namespace
