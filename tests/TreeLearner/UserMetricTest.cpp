// Metrics of the program's own.
#include <functional>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "../Support.h"
#include "Evaluation/NamedMetrics.h"
#include "EvaluationCases.h"

namespace {

using namespace sylvora;
using namespace sylvora::tests;

// A metric that measures what a built-in one does, and what it was called with.
struct CopiedMetric {
    std::string name;
    MetricContext context;
    std::thread::id caller = std::this_thread::get_id();
    std::vector<std::string> setV = {};

    static int Measure(void* self, const char* set, std::int64_t numRows, const double* labelV,
                       const double* scoreV, double* value) {
        CopiedMetric& copied = *static_cast<CopiedMetric*>(self);
        EXPECT_EQ(copied.caller, std::this_thread::get_id());
        copied.setV.emplace_back(set);
        MeasuredSet measured(VecDle(labelV, labelV + numRows), {}, copied.context);
        const NamedMetric metric = NamedMetric::Parse(copied.name);
        measured.Prepare({metric});
        *value = measured.Measure(metric, scoreV);
        return 0;
    }
    UserMetric Own() {
        const bool fLarger = NamedMetric::Parse(name).IsLargerBetter();
        return {"own " + name, Measure, this, fLarger};
    }
};

// Records the same values, behind those of the built-in metrics, and stops at the same round.
TEST(UserMetric, EqualsTheBuiltInOne) {
    const TempFolder folder;
    for (const Model& model : kBoosted) {
        const Data data(200, 8, model.labels), one(150, 9, model.labels), two(90, 10, model.labels);
        const VecDle flatOne = one.Flat(), flatTwo = two.Flat();
        const bool fAuc = model.labels == std::string("+-");
        for (const int numThread : {1, 4}) {
            SCOPED_TRACE(model.lossFunc);
            CopiedMetric copied = {fAuc ? "auc" : "mae", {}};
            const auto train = [&](const char* stopMetric, const char* file) {
                CheckCfgCLS cfg = ConfigOf(model, 60, numThread);
                cfg.earlyStop = 3;
                cfg.fileModel = folder.Path(file);
                const auto learner = MakeLearner(cfg, data, nullptr);
                TrainingOptions& options = learner->trainingOptions;
                options.setV = {SetOf("one", one, flatOne), SetOf("two", two, flatTwo)};
                options.metricV = {copied.name};
                options.userMetricV = {copied.Own()};
                options.stopSet = "one";
                options.stopMetric = stopMetric;
                EXPECT_EQ(learner->Boosting(), 0);
                return learner->getEvaluation();
            };
            const EvaluationRecord own = train(("own " + copied.name).c_str(), "own");
            const EvaluationRecord builtIn = train(copied.name.c_str(), "built-in");
            EXPECT_EQ(ReadFile(folder.Path("own")), ReadFile(folder.Path("built-in")));
            EXPECT_EQ(own.bestRound, builtIn.bestRound);
            EXPECT_EQ(own.fStoppedEarly, builtIn.fStoppedEarly);
            ASSERT_EQ(own.metricV.size(), 4U);
            const char* const nameV[] = {"one", "one own ", "two", "two own "};
            for (size_t i = 0; i < 4; ++i) {
                const MetricRecord& record = own.metricV[i];
                EXPECT_EQ(record.set + " " + record.metric,
                          i % 2 == 0 ? std::string(nameV[i]) + " " + copied.name
                                     : nameV[i] + copied.name);
                EXPECT_EQ(record.valueV, builtIn.metricV[i].valueV);
                if (i % 2 == 1) EXPECT_EQ(record.valueV, own.metricV[i - 1].valueV);
            }
        }
    }
}

// Beside the metrics of the loss; once, at the end. Labels are those after the label map.
TEST(UserMetric, IsMeasuredOnceForAModelWithoutRounds) {
    for (const Model& model : kOthers) {
        SCOPED_TRACE(std::string(model.modelType) + model.fRegCls);
        const bool fClasses = model.fRegCls == std::string("CLS");
        const Data data(200, 8, model.labels), one(150, 9, model.labels);
        const VecDle flat = one.Flat();
        const auto learner = MakeLearner(ConfigOf(model, 5, 2), data, nullptr);
        learner->tranMap = {{0.0, 1.0}};
        CopiedMetric copied = {fClasses ? "accuracy" : "rmse", {"", "", fClasses, 0.5}};
        learner->trainingOptions.setV = {SetOf("one", one, flat)};
        learner->trainingOptions.userMetricV = {copied.Own()};
        ASSERT_EQ(learner->Boosting(), 0);
        const std::vector<MetricRecord>& metricV = learner->getEvaluation().metricV;
        ASSERT_EQ(metricV.size(), fClasses ? 2U : 3U);
        EXPECT_EQ(metricV.back().valueV, metricV.front().valueV);
        EXPECT_EQ(metricV.back().valueV.size(), 1U);
        EXPECT_EQ(copied.setV, std::vector<std::string>{"one"});
    }
}

// What a metric that fails does in its third call.
std::function<int(double*)> deed;
int numCalls = 0;
int Fail(void*, const char*, std::int64_t, const double*, const double*, double* value) {
    *value = 1.0 / ++numCalls;
    return numCalls < 3 ? 0 : deed(value);
}

// One line each; the rounds before are recorded. NaN is no failure, and never better.
TEST(UserMetric, FailuresEndTheTrainingWithOneLine) {
    const Data data(200, 8, "REG"), one(50, 9, "REG");
    const VecDle flat = one.Flat();
    CheckCfgCLS cfg = ConfigOf(kBoosted[0], 8, 2);
    cfg.earlyStop = 2;
    const auto learner = MakeLearner(cfg, data, nullptr);
    TrainingOptions& options = learner->trainingOptions;
    options.setV = {SetOf("one", one, flat)};
    options.stopMetric = "mine";
    const UserMetric mine = {"mine", Fail, nullptr, false};
    const struct {
        const char* error;
        std::vector<UserMetric> metricV;
        std::function<int(double*)> action;
    } cases[] = {
        {"\"mine\" failed for the set \"one\" in round 3 with status 5",
         {mine},
         [](double*) { return 5; }},
        {"metric \"mine\" threw an exception: tired",
         {mine},
         [](double*) -> int { throw std::runtime_error("tired"); }},
        {"metric \"mine\" threw an exception", {mine}, [](double*) -> int { throw 1; }},
        {"cannot be called during training", {mine}, [&](double*) { return learner->Boosting(); }},
        {"has no name", {mine, {"", Fail, nullptr, false}}, {}},
        {"name \"mine\"", {mine, mine}, {}},
        {"\"ndcg@3\" has the name of a built-in", {mine, {"ndcg@3", Fail, nullptr, true}}, {}},
        {"has no function", {{"mine", nullptr, nullptr, true}}, {}},
        {"does not exist", {{"other", Fail, nullptr, true}}, {}}};
    for (const auto& each : cases) {
        SCOPED_TRACE(each.error);
        options.userMetricV = each.metricV;
        deed = each.action;
        numCalls = 0;
        const Outcome seen = Observe([&] { return learner->Boosting(); });
        EXPECT_EQ(seen.status, -1);
        EXPECT_NE(seen.err.find(each.error), std::string::npos) << seen.err;
        const auto& recordV = learner->getEvaluation().metricV;
        for (const MetricRecord& record : recordV) EXPECT_EQ(record.valueV.size(), 2U);
        EXPECT_EQ(recordV.empty(), !each.action);
    }
    options.userMetricV = {mine};
    numCalls = 0;
    deed = [](double* value) {
        *value = std::nan("");
        return 0;
    };
    EXPECT_EQ(learner->Boosting(), 0);
    EXPECT_EQ(learner->getEvaluation().bestRound, 2);
    EXPECT_EQ(learner->getEvaluation().metricV.back().valueV.size(), 4U);
}

}  // namespace
