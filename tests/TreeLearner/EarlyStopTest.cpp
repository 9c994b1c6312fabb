// Early stopping, and runs that are ended and kept.
#include <sys/stat.h>

#include <string>
#include <vector>

#include "../Support.h"
#include "Evaluation/NamedMetrics.h"
#include "EvaluationCases.h"
#include "ModelText.h"

namespace {

using namespace sylvora;
using namespace sylvora::tests;

// The saved model is that of a run with as many rounds as the best one; so is the ensemble.
TEST(EarlyStop, EarlyStoppingEqualsTheShorterRun) {
    const TempFolder folder;
    for (const Model& model : kBoosted) {
        const Data data(200, 8, model.labels), dev(150, 9, model.labels);
        for (const int numThread : {1, 4}) {
            for (const bool fPacked : {false, true}) {
                SCOPED_TRACE(std::string(model.lossFunc) + (fPacked ? " packed" : " records"));
                const auto train = [&](int numTree, int earlyStop, const char* file) {
                    CheckCfgCLS cfg = ConfigOf(model, numTree, numThread);
                    cfg.earlyStop = earlyStop;
                    cfg.fileModel = folder.Path(file);
                    auto learner = MakeLearner(cfg, data, &dev);
                    learner->setPackedTrees(fPacked);
                    learner->setVerification(true);
                    learner->trainingOptions.fCovers = true;
                    EXPECT_EQ(learner->Boosting(), 0);
                    return learner;
                };
                const auto cut = train(200, 4, "cut");
                const EvaluationRecord& record = cut->getEvaluation();
                const VecDle& valueV = record.metricV[0].valueV;
                ASSERT_TRUE(record.fStoppedEarly);
                EXPECT_EQ(valueV.size(), static_cast<size_t>(record.bestRound) + 4);
                const bool fLarger = NamedMetric::Parse(record.stopMetric).IsLargerBetter();
                const auto best = fLarger ? std::max_element(valueV.begin(), valueV.end())
                                          : std::min_element(valueV.begin(), valueV.end());
                EXPECT_EQ(best - valueV.begin(), record.bestRound - 1);
                EXPECT_EQ(*best, record.bestValue);
                const int numGroups = NumStartGroups(model) + record.bestRound;
                EXPECT_EQ(cut->getGroupNum(), numGroups);
                EXPECT_EQ(cut->StepLengthV.size(), static_cast<size_t>(numGroups));
                EXPECT_EQ(cut->getMissingTreeNum(), 0);
                const auto shorter = train(record.bestRound, 0, "shorter");
                EXPECT_EQ(ReadFile(folder.Path("cut")), ReadFile(folder.Path("shorter")));
                EXPECT_EQ(ScoresAfter(*cut, dev, static_cast<size_t>(numGroups)),
                          ScoresAfter(*shorter, dev, static_cast<size_t>(numGroups)));
                std::vector<int> cutCoverV, shorterCoverV;
                EXPECT_EQ(ModelText::Covers(*cut, cutCoverV), 0);
                EXPECT_EQ(ModelText::Covers(*shorter, shorterCoverV), 0);
                EXPECT_EQ(cutCoverV, shorterCoverV);
                EXPECT_FALSE(cutCoverV.empty());
                // Also when all rounds are done before patience runs out.
                const auto full = train(record.bestRound + 2, 4, "full");
                EXPECT_FALSE(full->getEvaluation().fStoppedEarly);
                EXPECT_EQ(ReadFile(folder.Path("full")), ReadFile(folder.Path("shorter")));
            }
        }
    }
}

// The set and the metric can be chosen; the first of equal values wins. A second run of the same
// learner starts a new record.
TEST(EarlyStop, TheNamedSetAndMetricDecide) {
    const Data data(200, 8, "+-"), one(100, 9, "+-"), two(100, 10, "+-");
    const VecDle flatOne = one.Flat(), flatTwo = two.Flat();
    CheckCfgCLS cfg = ConfigOf(kBoosted[1], 60, 1);
    cfg.earlyStop = 3;
    const auto learner = MakeLearner(cfg, data, nullptr);
    TrainingOptions& options = learner->trainingOptions;
    options.setV = {SetOf("one", one, flatOne), SetOf("two", two, flatTwo)};
    options.metricV = {"rmse"};
    const auto train = [&] {
        gseed = -7;
        EXPECT_EQ(learner->Boosting(), 0);
        return learner->getEvaluation();
    };
    EvaluationRecord record = train();
    EXPECT_EQ(record.stopSet, "two");
    EXPECT_EQ(record.metricV.size(), 3U);
    EXPECT_EQ(record.metricV[2].metric, "logloss");
    options.stopSet = "one";
    options.stopMetric = "accuracy";
    record = train();
    ASSERT_EQ(record.metricV.size(), 3U);
    EXPECT_EQ(record.metricV[1].set + record.metricV[1].metric, "oneaccuracy");
    const VecDle& valueV = record.metricV[1].valueV;
    EXPECT_EQ(std::max_element(valueV.begin(), valueV.end()) - valueV.begin(),
              record.bestRound - 1);
    cfg.earlyStop = 0;
    learner->setConfig(cfg);
    options.setV.clear();
    record = train();
    EXPECT_TRUE(record.metricV.empty() && record.stopSet.empty() && record.bestRound == 0);
}

// A progress function that ends the run at `last`, and counts its calls.
struct Ending {
    int last, answer, numCalls;
};
int EndAt(void* context, int done, int) {
    Ending& ending = *static_cast<Ending*>(context);
    ++ending.numCalls;
    return done >= ending.last ? ending.answer : 0;
}

// A run that is ended and kept is a run that was asked for less, for all models. With tms_seed 0
// the seeds of a forest do not depend on its size. The progress function answers the same when it
// is asked while the model is written.
TEST(EarlyStop, StopAndKeepEqualsTheShorterRun) {
    const TempFolder folder;
    std::vector<Model> modelV(std::begin(kBoosted), std::end(kBoosted));
    modelV.insert(modelV.end(), std::begin(kOthers), std::end(kOthers));
    for (const Model& model : modelV) {
        const Data data(200, 8, model.labels), dev(60, 9, model.labels);
        const bool fBoosted = model.modelType[0] == 'G';
        const int last = model.modelType == std::string("CART") ? 1 : 3;
        for (const int numThread : {1, 4}) {
            for (const bool fPacked : {false, true}) {
                SCOPED_TRACE(std::string(model.modelType) + model.fRegCls + model.lossFunc);
                const auto train = [&](int numTree, int answer, const char* file) {
                    CheckCfgCLS cfg = ConfigOf(model, numTree, numThread);
                    cfg.fileModel = folder.Path(file);
                    cfg.evalEvery = fBoosted ? 2 : 0;
                    auto learner = MakeLearner(cfg, data, &dev);
                    learner->setPackedTrees(fPacked);
                    learner->setVerification(true);
                    learner->trainingOptions.fCovers = true;
                    Ending ending = {last, answer, 0};
                    learner->setProgress(EndAt, &ending);
                    const Outcome seen = Observe([&] { return learner->Boosting(); });
                    EXPECT_EQ(seen.status, 0) << seen.err;
                    EXPECT_EQ(seen.err, "");
                    EXPECT_EQ(learner->getMissingTreeNum(), 0);
                    EXPECT_EQ(learner->getTreeNum(), NumStartGroups(model) + last);
                    EXPECT_GT(ending.numCalls, last);
                    if (fBoosted) EXPECT_NE(seen.out.find("\n    3 "), std::string::npos);
                    return ReadFile(cfg.fileModel);
                };
                EXPECT_EQ(train(last == 1 ? 1 : 9, kStopAndKeep, "kept"), train(last, 0, "less"));
            }
        }
    }
}

// Other answers still end the run without a model, the record has the rounds so far, and a wait for
// the reader of a FIFO ends with any answer.
TEST(EarlyStop, OtherStopsKeepNothing) {
    const TempFolder folder;
    const Data data(100, 8, "REG"), dev(60, 9, "REG");
    CheckCfgCLS cfg = ConfigOf(kBoosted[0], 9, 1);
    cfg.earlyStop = 8;
    cfg.fileModel = folder.Path("model");
    auto learner = MakeLearner(cfg, data, &dev);
    Ending ending = {3, 1, 0};
    learner->setProgress(EndAt, &ending);
    EXPECT_EQ(Observe([&] { return learner->Boosting(); }).status, -1);
    EXPECT_FALSE(std::filesystem::exists(cfg.fileModel));
    EXPECT_EQ(learner->getEvaluation().metricV[0].valueV.size(), 3U);
    ASSERT_EQ(mkfifo(cfg.fileModel.c_str(), 0600), 0);
    ending = {3, kStopAndKeep, 0};
    EXPECT_EQ(Observe([&] { return learner->Boosting(); }).status, -1);
}

// Outside of a run, the slots that follow are not grown.
TEST(EarlyStop, StopAndKeepEndsASequenceOfSlots) {
    const Data data(60, 8, "REG");
    const auto learner = MakeLearner(ConfigOf(kOthers[0], 6, 1), data, nullptr);
    Ending ending = {2, kStopAndKeep, 0};
    learner->setProgress(EndAt, &ending);
    EXPECT_EQ(learner->GenerateRowTree(0, 4), 0);
    EXPECT_EQ(learner->TreeGroup.size(), 2U);
}

}  // namespace
