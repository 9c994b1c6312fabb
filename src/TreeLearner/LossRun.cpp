// The settings, labels and start value of a loss; see LossRun.h. The formulas are in LossFunctions.
#include "LossRun.h"

#include "../LossFunctions/PairKernels.h"

#include <algorithm>
#include <cmath>
#include <memory>
#include <numeric>
#include <string>
#include <utility>
#include <vector>

#include "../CheckIn/Validation.h"
#include "../LossFunctions.h"
#include "../LossFunctions/Residuals.h"
#include "../god/Report.h"
#include "EnsembleView.h"
#include "RowDraw.h"
#include "base/Switch.h"

using sylvora::Fail;
using sylvora::WeightsOf;

TreeLearner::LossRun::LossRun(TreeLearner& treeLearner) : learner(treeLearner) {
    ReadSettings();
}

// Only boosting of one tree a round has these losses.
bool TreeLearner::LossRun::IsLoss(const char* name) const {
    return learner.CfgInfo.modelType == "GBDT" && learner.CfgInfo.lossFunc == name;
}

bool TreeLearner::LossRun::HasObjective() const {
    return learner.trainingOptions.objective != nullptr && IsLoss("USER");
}

void TreeLearner::LossRun::ReadSettings() {
    const bool fUserRatio = HasObjective() && learner.trainingOptions.fHessian;
    rule = IsLoss("LogLoss") || fUserRatio            ? Rule::kRatio
           : IsLoss("Absolute") || IsLoss("Quantile") ? Rule::kQuantile
           : IsLoss("Huber")                          ? Rule::kHuber
                                                      : Rule::kMean;
    pairKernel = &sylvora::kPairKernels.Choose(sylvora::ForcedKernel());
    hessianV.resize(rule == Rule::kRatio ? static_cast<size_t>(learner.sampleSize) : 0);
}

// CheckCfg has checked the parameters, unless the program did not call it.
int TreeLearner::LossRun::Check() const {
    if (sylvora::CheckLossParameters(learner.CfgInfo) != 0) return -1;
    if (IsLoss("LogLoss")) return CheckClasses();
    return rule == Rule::kMean || IsLoss("USER") ? 0 : CheckLabels();
}

int TreeLearner::LossRun::CheckLabels() const {
    for (int i = 0; i < learner.sampleSize; ++i) {
        const double label = learner.labelTrV[i];
        if (std::isfinite(label)) continue;
        return Fail("ERROR: Row ", i, " has the label ", label, ": the loss \"",
                    learner.CfgInfo.lossFunc, "\" needs finite labels; remove the row!\n");
    }
    return 0;
}

// Labels must be -1 and 1, or 0 and 1. The first one that is not 1 decides which of the two.
int TreeLearner::LossRun::CheckClasses() const {
    const double* const begin = learner.labelTrV;
    const double* const end = begin + learner.sampleSize;
    const std::string& file = learner.CfgInfo.fileTrain;
    const std::string place = file.empty() ? "" : sylvora::Text("fileTrain ", file, ": ");
    const char remedy[] =
        "the loss \"LogLoss\" needs labels -1 and 1, or 0 and 1, and both of them; a label map "
        "(labelTran) can rename them!\n";
    const double* const other =
        std::find_if(begin, end, [](double label) { return !(label == 1); });
    const double low = other != end && *other < 0 ? -1 : 0;
    const double* const wrong =
        std::find_if(begin, end, [low](double label) { return !(label == low || label == 1); });
    if (wrong != end) {
        const std::string earlier =
            low < 0 && wrong != other ? sylvora::Text(", row ", other - begin, " has -1") : "";
        return Fail("ERROR: ", place, "Row ", wrong - begin, " has the label ", *wrong, earlier,
                    ": ", remedy);
    }
    if (other != end && std::find(begin, end, 1.0) != end) return 0;
    return Fail("ERROR: ", place, "All rows have the label ", *begin, ": ", remedy);
}

int TreeLearner::LossRun::CheckOptions() const {
    const sylvora::TrainingOptions& options = learner.trainingOptions;
    const char* const given = options.objective != nullptr ? "An objective"
                              : options.fStart             ? "A start value"
                                                           : nullptr;
    if (given != nullptr && !IsLoss("USER")) {
        return Fail("ERROR: ", given, " needs modelType GBDT and the loss \"USER\", not ",
                    learner.CfgInfo.modelType, " and \"", learner.CfgInfo.lossFunc, "\"!\n");
    }
    if (options.fHessian && options.objective == nullptr) {
        return Fail("ERROR: Second derivatives (fHessian) need an objective!\n");
    }
    if (fWeighted && learner.CfgInfo.lossFunc == "USER" && !HasObjective()) {
        return Fail(
            "ERROR: Weights set with setWeights need an objective, not a function of "
            "setLossFunction, which may be called with a part of the rows!\n");
    }
    return 0;
}

int TreeLearner::LossRun::Begin() {
    ReadSettings();
    fStarted = false;
    if (CheckOptions() != 0 || Check() != 0) return -1;
    const bool fUserStart = IsLoss("USER") && learner.trainingOptions.fStart;
    if (!fUserStart && (rule == Rule::kMean || IsLoss("USER"))) return 0;
    double start = learner.trainingOptions.startValue;
    if (!fUserStart && ComputeStart(start) != 0) return -1;
    return PlaceStart(start);
}

// The rule of a node, applied to all rows with predictions of 0.
int TreeLearner::LossRun::ComputeStart(double& start) const {
    const int* const weightV = WeightsOf(learner);
    if (IsLoss("LogLoss")) {
        start = sylvora::LogLossStart(learner.labelTrV, weightV, learner.sampleSize);
        if (std::isfinite(start)) return 0;
        return Fail(
            "ERROR: All rows of a weight above 0 have the same label: the loss "
            "\"LogLoss\" needs both!\n");
    }
    std::vector<int> rowV(static_cast<size_t>(learner.sampleSize));
    std::iota(rowV.begin(), rowV.end(), 0);
    const int count = weightV == nullptr
                          ? learner.sampleSize
                          : sylvora::KeepWeighted(weightV, rowV.data(), learner.sampleSize);
    std::vector<double> valueV;
    std::vector<int> ownWeightV;
    valueV.reserve(static_cast<size_t>(count));
    for (int i = 0; i < count; ++i) {
        const int row = rowV[static_cast<size_t>(i)];
        valueV.push_back(learner.labelTrV[row]);
        if (weightV != nullptr) ownWeightV.push_back(weightV[row]);
    }
    const sylvora::WeightedValues values = {
        valueV.data(), weightV == nullptr ? nullptr : ownWeightV.data(), count};
    sylvora::QuantileBuffers buffers;
    const CheckCfgCLS& c = learner.CfgInfo;
    start = rule == Rule::kHuber
                ? sylvora::HuberCentre(values, c.huberDelta, buffers)
                : sylvora::QuantileOf(values, IsLoss("Quantile") ? c.quantile : 0.5, buffers);
    return 0;
}

// A tree of one leaf with shrink 1. It is no tree of a round, so it does not count as grown.
int TreeLearner::LossRun::PlaceStart(double start) {
    if (!std::isfinite(start)) {
        return Fail("ERROR: The start value of the loss \"", learner.CfgInfo.lossFunc, "\" is ",
                    start, ": it must be finite!\n");
    }
    auto tree = std::make_unique<TreeCR>(learner.CfgInfo, nullptr);
    if (tree->Init(learner.dimFea, learner.sampleSize, learner.sampleSize) != 0) return -1;
    tree->NodeV[0]->status = "TERMINAL";
    tree->NodeV[0]->avgPredict = start;
    tree->numLeaf = 1;
    learner.TreeGroup.reserve(1);
    learner.StepLengthV.push_back(1.0F);
    if (learner.packedTrees) {
        sylvora::AppendPacked(*tree, learner.trainingOptions.fCovers, *learner.packedTrees);
    }
    learner.TreeGroup.push_back(tree.release());
    learner.EndGroup();
    std::fill_n(learner.predictV, learner.sampleSize, start);
    fStarted = true;
    return 0;
}
