// The preparation of an evaluation: which sets, which metrics, and whether they fit; see
// RunEvaluation.h.
#include <algorithm>
#include <cmath>
#include <utility>

#include "../god/Report.h"
#include "RunEvaluation.h"

using sylvora::EvaluatedSet;
using sylvora::EvaluationSet;
using sylvora::Fail;
using sylvora::MeasuredSet;
using sylvora::NamedMetric;
using sylvora::UserMetric;

namespace {

const char kDevelopment[] = "dev";

}  // namespace

TreeLearner::RunEvaluation::RunEvaluation(TreeLearner& treeLearner)
    : learner(treeLearner),
      context{treeLearner.modelType, treeLearner.CfgInfo.lossFunc,
              treeLearner.CfgInfo.fRegCls == "CLS", treeLearner.CfgInfo.quantile},
      fRounds(!context.fClasses && context.modelType != "RandomForest" &&
              context.modelType != "CART") {}

int TreeLearner::RunEvaluation::Start(TreeLearner& learner,
                                      std::unique_ptr<RunEvaluation>& evaluation) {
    std::unique_ptr<RunEvaluation> made(new RunEvaluation(learner));
    if (!made->IsWanted()) return 0;
    if (made->CheckSettings() != 0 || made->AddDevelopmentSet() != 0) return -1;
    for (const EvaluationSet& set : learner.trainingOptions.setV) {
        if (made->AddSet(set) != 0) return -1;
    }
    if (made->setV.empty()) {
        return Fail("ERROR: ", learner.CfgInfo.earlyStop > 0 ? "earlyStop" : "evalEvery",
                    " needs data to evaluate: a development set (fileDev) or an evaluation set!\n");
    }
    if (made->ChooseMetrics() != 0) return -1;
    evaluation = std::move(made);
    return 0;
}

bool TreeLearner::RunEvaluation::IsWanted() const {
    const CheckCfgCLS& c = learner.CfgInfo;
    return c.earlyStop != 0 || c.evalEvery != 0 || !learner.trainingOptions.setV.empty();
}

// CheckCfg has the same rules, but a program need not call it.
int TreeLearner::RunEvaluation::CheckSettings() const {
    const CheckCfgCLS& c = learner.CfgInfo;
    if (c.earlyStop < 0) return Fail("ERROR: Illegal earlyStop: ", c.earlyStop, "!\n");
    if (c.evalEvery < 0) return Fail("ERROR: Illegal evalEvery: ", c.evalEvery, "!\n");
    if (c.earlyStop > 0 && !fRounds) {
        return Fail("ERROR: earlyStop needs the rounds of GBDT or GBRank, a ", context.modelType,
                    " has none!\n");
    }
    return 0;
}

// The beginning of a message about a set.
std::string TreeLearner::RunEvaluation::Place(const std::string& name) const {
    const bool fFile = name == kDevelopment && !learner.CfgInfo.fileDev.empty();
    return fFile ? "fileDev " + learner.CfgInfo.fileDev : "evaluation set \"" + name + "\"";
}

int TreeLearner::RunEvaluation::AddDevelopmentSet() {
    const bool fUsed = learner.CfgInfo.earlyStop > 0 || learner.CfgInfo.evalEvery > 0;
    if (!fUsed || learner.devSize <= 0 || learner.featureDevVV == nullptr ||
        learner.labelDevV == nullptr) {
        return 0;
    }
    if (learner.devDim != 0 && learner.devDim < learner.dimFea) {
        return Fail("ERROR: ", Place(kDevelopment), ": has ", learner.devDim,
                    " columns, the training data have ", learner.dimFea, "!\n");
    }
    const size_t numRows = static_cast<size_t>(learner.devSize);
    VecDle valueV(learner.labelDevV, learner.labelDevV + numRows);
    VecInt queryV;
    if (learner.queryIdDevV != nullptr) {
        queryV.assign(learner.queryIdDevV, learner.queryIdDevV + numRows);
    }
    if (MapLabels(Place(kDevelopment), valueV) != 0) return -1;
    setV.emplace_back(kDevelopment, learner.featureDevVV,
                      MeasuredSet(std::move(valueV), std::move(queryV), context));
    return 0;
}

int TreeLearner::RunEvaluation::AddSet(const EvaluationSet& set) {
    if (CheckName(set.name) != 0 || CheckSet(set) != 0) return -1;
    const size_t numRows = static_cast<size_t>(set.block.numRows);
    VecDle valueV(set.labels, set.labels + numRows);
    VecInt queryV;
    if (set.queries != nullptr) queryV.assign(set.queries, set.queries + numRows);
    if (MapLabels(Place(set.name), valueV) != 0) return -1;
    setV.emplace_back(set.name, set.block,
                      MeasuredSet(std::move(valueV), std::move(queryV), context));
    return 0;
}

int TreeLearner::RunEvaluation::CheckName(const std::string& name) const {
    if (name.empty()) return Fail("ERROR: evaluation set ", setV.size(), " has no name!\n");
    const bool fTaken = std::any_of(
        setV.begin(), setV.end(), [&name](const EvaluatedSet& set) { return set.Name() == name; });
    return fTaken ? Fail("ERROR: ", Place(name), ": two sets have this name!\n") : 0;
}

int TreeLearner::RunEvaluation::CheckSet(const EvaluationSet& set) const {
    const std::string fault = sylvora::FaultOf(set.block);
    if (!fault.empty()) return Fail("ERROR: ", Place(set.name), ": ", fault, "!\n");
    if (set.block.numRows == 0) return Fail("ERROR: ", Place(set.name), ": has no rows!\n");
    if (set.block.numColumns < learner.dimFea) {
        return Fail("ERROR: ", Place(set.name), ": has ", set.block.numColumns,
                    " columns, the training data have ", learner.dimFea, "!\n");
    }
    if (set.labels == nullptr) {
        return Fail("ERROR: ", Place(set.name), ": has no labels: the pointer is null!\n");
    }
    const std::string refused = sylvora::BlockReader(set.block).RefusedValue();
    return refused.empty() ? 0 : Fail("ERROR: ", Place(set.name), ": ", refused, "!\n");
}

// Applies the label map, as ParamInit does to the training labels. A NaN has no place in the order
// of the map.
int TreeLearner::RunEvaluation::MapLabels(const std::string& place, VecDle& valueV) const {
    for (size_t i = 0; i < valueV.size(); ++i) {
        const auto mapped =
            std::isnan(valueV[i]) ? learner.tranMap.end() : learner.tranMap.find(valueV[i]);
        if (mapped != learner.tranMap.end()) valueV[i] = mapped->second;
        if (std::isfinite(valueV[i])) continue;
        return Fail("ERROR: ", place, ": the label of row ", i, " is not finite!\n");
    }
    return 0;
}

int TreeLearner::RunEvaluation::CheckMetric(const std::string& name, size_t set) const {
    const std::string why = setV[set].Measured().WhyNot(NamedMetric::Parse(name));
    if (why.empty()) return 0;
    return Fail("ERROR: ", Place(setV[set].Name()), ": metric \"", name, "\" ", why, "!\n");
}

// Chooses and checks the metrics of each set.
int TreeLearner::RunEvaluation::ChooseMetrics() {
    const std::vector<std::string>& givenV = learner.trainingOptions.metricV;
    const std::vector<std::string> nameV =
        givenV.empty() ? sylvora::DefaultMetrics(context) : givenV;
    std::vector<NamedMetric> metricV;
    for (const std::string& name : nameV) {
        if (std::count(nameV.begin(), nameV.end(), name) > 1) {
            return Fail("ERROR: metric \"", name, "\" is asked for twice!\n");
        }
        metricV.push_back(NamedMetric::Parse(name));
    }
    for (size_t set = 0; set < setV.size(); ++set) {
        for (const std::string& name : nameV) {
            if (CheckMetric(name, set) != 0) return -1;
        }
    }
    if (CheckUserMetrics() != 0) return -1;
    std::vector<std::vector<NamedMetric>> metricVV(setV.size(), metricV);
    if (learner.CfgInfo.earlyStop > 0 && ChooseStop(metricVV) != 0) return -1;
    ListMeasurements(metricVV);
    return 0;
}

int TreeLearner::RunEvaluation::CheckUserMetrics() const {
    const std::vector<UserMetric>& userV = learner.trainingOptions.userMetricV;
    for (size_t i = 0; i < userV.size(); ++i) {
        const std::string& name = userV[i].name;
        if (name.empty()) return Fail("ERROR: user metric ", i, " has no name!\n");
        if (NamedMetric::Parse(name).kind != NamedMetric::kUnknown) {
            return Fail("ERROR: user metric \"", name,
                        "\" has the name of a built-in metric: choose another name!\n");
        }
        if (FindUserMetric(name) != &userV[i]) {
            return Fail("ERROR: two user metrics have the name \"", name, "\"!\n");
        }
        if (userV[i].function == nullptr) {
            return Fail("ERROR: user metric \"", name, "\" has no function!\n");
        }
    }
    return 0;
}

// The first metric of the program with this name; null if there is none.
const UserMetric* TreeLearner::RunEvaluation::FindUserMetric(const std::string& name) const {
    for (const UserMetric& user : learner.trainingOptions.userMetricV) {
        if (user.name == name) return &user;
    }
    return nullptr;
}

// Fills measurementV and the record, with the metrics of each set and the program's own, and finds
// the measurement that decides about earlyStop.
void TreeLearner::RunEvaluation::ListMeasurements(
    const std::vector<std::vector<NamedMetric>>& metricVV) {
    sylvora::EvaluationRecord& record = learner.evaluationRecord;
    const auto list = [&](const Measurement& measurement, const std::string& name) {
        const std::string& set = setV[measurement.set].Name();
        if (set == record.stopSet && name == record.stopMetric) stopAt = measurementV.size();
        measurementV.push_back(measurement);
        record.metricV.push_back({set, name, {}});
    };
    for (size_t set = 0; set < setV.size(); ++set) {
        setV[set].Measured().Prepare(metricVV[set]);
        for (const NamedMetric& metric : metricVV[set]) list({set, metric, nullptr}, metric.name);
        for (const UserMetric& user : learner.trainingOptions.userMetricV) {
            list({set, NamedMetric(), &user}, user.name);
        }
    }
}

// Finds the set and the metric that decide about earlyStop, and adds the metric if it is not asked
// for.
int TreeLearner::RunEvaluation::ChooseStop(std::vector<std::vector<NamedMetric>>& metricVV) {
    const sylvora::TrainingOptions& options = learner.trainingOptions;
    size_t set = setV.size() - 1;
    if (!options.stopSet.empty()) {
        const auto at = std::find_if(setV.begin(), setV.end(), [&](const EvaluatedSet& each) {
            return each.Name() == options.stopSet;
        });
        if (at == setV.end()) {
            return Fail("ERROR: stopSet: there is no evaluation set \"", options.stopSet, "\"!\n");
        }
        set = static_cast<size_t>(at - setV.begin());
    }
    const std::string name =
        options.stopMetric.empty() ? sylvora::DefaultStopMetric(context) : options.stopMetric;
    if (FindUserMetric(name) == nullptr) {
        if (CheckMetric(name, set) != 0) return -1;
        std::vector<NamedMetric>& metricV = metricVV[set];
        const bool fListed =
            std::any_of(metricV.begin(), metricV.end(),
                        [&](const NamedMetric& metric) { return metric.name == name; });
        if (!fListed) metricV.push_back(NamedMetric::Parse(name));
    }
    learner.evaluationRecord.stopSet = setV[set].Name();
    learner.evaluationRecord.stopMetric = name;
    return 0;
}
