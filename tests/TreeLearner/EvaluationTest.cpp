// Evaluation during a training: what is recorded, and what is refused.
#include <cmath>
#include <functional>
#include <list>
#include <string>
#include <vector>

#include "../Support.h"
#include "../differential/Layouts.h"
#include "Evaluation/Metrics.h"
#include "Evaluation/NamedMetrics.h"
#include "EvaluationCases.h"

namespace {

using namespace sylvora;
using namespace sylvora::tests;

// The record equals metrics of the scores of OnlineTesting, bit for bit, after every round.
TEST(Evaluation, RecordsWhatOnlineTestingGives) {
    for (const Model& model : kBoosted) {
        const Data data(300, 1, model.labels), dev(517, 2, model.labels);
        const VecDle flat = dev.Flat();
        for (const int numThread : {1, 4}) {
            for (const bool fPacked : {false, true}) {
                CheckCfgCLS cfg = ConfigOf(model, 6, numThread);
                cfg.evalEvery = 100;
                const auto learner = MakeLearner(cfg, data, &dev);
                learner->setPackedTrees(fPacked);
                learner->trainingOptions.setV = {SetOf("block", dev, flat)};
                ASSERT_EQ(Observe([&] { return learner->Boosting(); }).status, 0);
                const EvaluationRecord& record = learner->getEvaluation();
                const size_t numStart = static_cast<size_t>(NumStartGroups(model));
                const MetricContext context = {model.modelType, model.lossFunc, false, 0.5};
                const std::vector<std::string> nameV = DefaultMetrics(context);
                MeasuredSet measured(dev.labelV, dev.queryV, context);
                measured.Prepare({NamedMetric::Parse("ndcg@10")});
                ASSERT_EQ(record.metricV.size(), 2 * nameV.size());
                for (size_t i = 0; i < record.metricV.size(); ++i) {
                    const MetricRecord& metric = record.metricV[i];
                    EXPECT_EQ(metric.set, i < nameV.size() ? "dev" : "block");
                    ASSERT_EQ(metric.metric, nameV[i % nameV.size()]);
                    ASSERT_EQ(metric.valueV.size(), 6U);
                    for (size_t k = 0; k < 6; ++k) {
                        const VecDle scoreV = ScoresAfter(*learner, dev, numStart + k + 1);
                        EXPECT_EQ(
                            metric.valueV[k],
                            measured.Measure(NamedMetric::Parse(metric.metric), scoreV.data()));
                    }
                }
                EXPECT_EQ(record.bestRound, 0);
            }
        }
    }
}

// Forests, single trees and classifications are measured once, through OnlineTestingBatch.
TEST(Evaluation, RecordsTheWholeOfOtherModels) {
    for (const Model& model : kOthers) {
        const Data data(200, 3, model.labels), dev(300, 4, model.labels);
        const auto learner = MakeLearner(ConfigOf(model, 5, 2), data, nullptr);
        const VecDle flat = dev.Flat();
        learner->trainingOptions.setV = {SetOf("set", dev, flat)};
        ASSERT_EQ(learner->Boosting(), 0);
        const VecDle scoreV = ScoresAfter(*learner, dev, 1);
        const ScoredRows rows = {scoreV.data(), dev.labelV.data(), scoreV.size()};
        const bool fClasses = model.fRegCls == std::string("CLS");
        const MetricRecord& metric = learner->getEvaluation().metricV.at(0);
        EXPECT_EQ(metric.metric, fClasses ? "accuracy" : "rmse");
        EXPECT_EQ(metric.valueV,
                  VecDle(1, fClasses ? ShareOfClasses(rows) : RootMeanSquareError(rows)));
    }
}

// Missing values and columns that no tree splits on are read as scoring reads them, in any layout.
TEST(Evaluation, AllLayoutsGiveTheSameRecord) {
    using hostile::Layout;
    const Data data(300, 1, "REG");
    Data dev(300, 5, "REG");
    for (size_t r = 0; r < 300; ++r) {
        for (double& value : dev.rowVV[r]) value = static_cast<float>(value);
        dev.rowVV[r][r % 5] = r % 2 == 0 ? kMissingValue : 0.0;
    }
    std::list<Layout> layouts;
    std::vector<EvaluationSet> setV;
    for (int kind = 0; kind < Layout::kNumKinds; ++kind) {
        layouts.emplace_back(dev.rowVV, static_cast<Layout::Kind>(kind));
        setV.push_back(SetOf(std::to_string(kind), dev, {}));
        setV.back().block = layouts.back().Block();
    }
    for (const Model& model : {kBoosted[0], kOthers[0]}) {
        CheckCfgCLS cfg = ConfigOf(model, 5, 2);
        cfg.evalEvery = 50;
        const auto learner = MakeLearner(cfg, data, &dev);
        learner->trainingOptions.setV = setV;
        learner->trainingOptions.metricV = {"mae"};
        ASSERT_EQ(Observe([&] { return learner->Boosting(); }).status, 0);
        const std::vector<MetricRecord>& metricV = learner->getEvaluation().metricV;
        ASSERT_EQ(metricV.size(), setV.size() + 1);
        for (const MetricRecord& metric : metricV) {
            EXPECT_EQ(metric.valueV, metricV[0].valueV) << metric.set;
        }
    }
}

TEST(Evaluation, TheLabelMapApplies) {
    const Data data(200, 1, "REG");
    const TempFolder folder;
    CheckCfgCLS cfg = ConfigOf({"GBDT", "REG", "Exponential", "+-"}, 3, 1);
    cfg.evalEvery = 2;
    Data two(200, 1, "01");
    const VecDle flat = two.Flat();
    TreeLearner learner(cfg);
    ASSERT_EQ(learner.DataInput(two.labelV, two.rowVV, 2, {}, {}), 0);
    ASSERT_EQ(learner.DataInput(two.labelV, two.rowVV, 0, {}, {}), 0);
    ASSERT_EQ(learner.ReadLabelTran(folder.Write("map", "0 -1\n1 1\n")), 0);
    ASSERT_EQ(learner.ParamInit(), 0);
    learner.trainingOptions.setV = {SetOf("set", two, flat)};
    learner.trainingOptions.metricV = {"mae"};
    const Outcome seen = Observe([&] { return learner.Boosting(); });
    ASSERT_EQ(seen.status, 0) << seen.err;
    double sum = 0.0;
    for (size_t i = 0; i < 200; ++i) sum += std::fabs(learner.predictV[i] - learner.labelTrV[i]);
    for (const MetricRecord& metric : learner.getEvaluation().metricV) {
        EXPECT_NEAR(metric.valueV.back(), sum / 200, 1e-6);  // a model's shrink is a float
    }
}

// Each fault ends the run before it starts, with one line that names the set.
TEST(Evaluation, FaultsAreOneLineBeforeTheRun) {
    const Data data(60, 1, "REG"), dev(20, 2, "REG");
    VecDle flat = dev.Flat();
    VecDle badLabelV = dev.labelV;
    badLabelV[3] = std::nan("");
    struct Case {
        std::function<void(TreeLearner&)> spoil;
        const char* message;
    };
    const auto options = [](TreeLearner& learner) -> TrainingOptions& {
        return learner.trainingOptions;
    };
    const Case cases[] = {
        {[&](auto& l) { options(l).metricV = {"RMSE"}; }, "metric \"RMSE\" does not exist!"},
        {[&](auto& l) {
             options(l).metricV = {"mae", "mae"};
         },
         "\"mae\" is asked for twice"},
        {[&](auto& l) { options(l).metricV = {"auc"}; }, "needs labels of exactly two values"},
        {[&](auto& l) { options(l).metricV = {"logloss"}; }, "needs a loss that has probab"},
        {[&](auto& l) { options(l).metricV = {"accuracy"}; }, "needs a classification or"},
        {[&](auto& l) {
             options(l).metricV = {"pairs"};
             options(l).setV[0].queries = nullptr;
         },
         "needs a query id for each row"},
        {[&](auto& l) { options(l).stopMetric = "best"; }, "metric \"best\" does not exist!"},
        {[&](auto& l) { options(l).stopSet = "none"; }, "no evaluation set \"none\""},
        {[&](auto& l) { options(l).setV.push_back(options(l).setV[0]); }, "two sets have this"},
        {[&](auto& l) { options(l).setV[0].name = ""; }, "has no name"},
        {[&](auto& l) { options(l).setV[0].labels = nullptr; }, "\"set\": has no labels"},
        {[&](auto& l) { options(l).setV[0].labels = badLabelV.data(); },
         "the label of row 3 is not finite"},
        {[&](auto& l) { options(l).setV[0].block.numRows = 0; }, "\"set\": has no rows"},
        {[&](auto& l) { options(l).setV[0].block.values = nullptr; }, "the pointer is null"},
        {[&](auto& l) { options(l).setV[0].block.numColumns = 4; },
         "has 4 columns, the training data have 5"},
        {[&](auto& l) {
             options(l).setV[0].block.missing = 1.0;
             options(l).setV[0].block.fInfiniteRefused = true;
             options(l).setV[0].block.fNanMissing = false;
             flat[7] = std::nan("");
         },
         "has a NaN in row 1, column 2"},
        {[&](auto& l) { options(l).setV.clear(); }, "earlyStop needs data to evaluate"},
        {[&](auto& l) { l.CfgInfo.earlyStop = -1; }, "Illegal earlyStop: -1"},
        {[&](auto& l) { l.CfgInfo.evalEvery = -2; }, "Illegal evalEvery: -2"},
        {[&](auto& l) { l.modelType = "CART"; }, "a CART has none"},
    };
    for (const Case& each : cases) {
        CheckCfgCLS cfg = ConfigOf(kBoosted[0], 3, 1);
        cfg.earlyStop = 2;
        const auto learner = MakeLearner(cfg, data, nullptr);
        learner->trainingOptions.setV = {SetOf("set", dev, flat)};
        each.spoil(*learner);
        bool fStarted = false;
        learner->setProgress(
            [](void* context, int, int) {
                *static_cast<bool*>(context) = true;
                return 0;
            },
            &fStarted);
        const Outcome seen = Observe([&] { return learner->Boosting(); });
        EXPECT_EQ(seen.status, -1) << each.message;
        EXPECT_EQ(seen.err.find("ERROR: "), 0U) << seen.err;
        EXPECT_NE(seen.err.find(each.message), std::string::npos) << seen.err;
        EXPECT_EQ(std::count(seen.err.begin(), seen.err.end(), '\n'), 1) << seen.err;
        EXPECT_FALSE(fStarted);
        EXPECT_TRUE(learner->getEvaluation().metricV.empty());
    }
}

}  // namespace
