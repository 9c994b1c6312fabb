// Row weights, the gradients of losses with node values of their own, and the user's objective.
#include <algorithm>
#include <cfloat>
#include <climits>
#include <cmath>
#include <cstddef>
#include <numeric>

#include "../LossFunctions.h"
#include "../LossFunctions/Residuals.h"
#include "../god/Report.h"
#include "../god/UserCall.h"
#include "AtWork.h"
#include "CallScope.h"
#include "LossRun.h"

using sylvora::Fail;

bool TreeLearner::LossRun::FillGradients(int idBegin, int idEnd) {
    const double* const yV = learner.labelTrV;
    const double* const fV = learner.predictV;
    const CheckCfgCLS& c = learner.CfgInfo;
    const auto fill = [&](const auto& gradient) {
        for (int i = idBegin; i <= idEnd; ++i) {
            learner.gradientV[i] = gradient(yV[i], fV[i]);
        }
        return true;
    };
    if (IsLoss("LogLoss")) {
        if (hessianV.empty()) return false;  // the loss was changed after ParamInit
        if (idBegin > idEnd) return true;
        sylvora::LogLossGradient(yV + idBegin, fV + idBegin, idEnd - idBegin + 1,
                                 learner.gradientV + idBegin, hessianV.data() + idBegin);
        return true;
    }
    if (IsLoss("Absolute")) return fill(sylvora::AbsoluteGradient);
    if (IsLoss("Quantile")) {
        return fill(
            [&c](double y, double f) { return sylvora::QuantileGradient(y, f, c.quantile); });
    }
    if (IsLoss("Huber")) {
        return fill(
            [&c](double y, double f) { return sylvora::HuberGradient(y, f, c.huberDelta); });
    }
    return false;
}

void TreeLearner::LossRun::ApplyWeights(int idBegin, int idEnd) {
    if (!fWeighted) return;
    for (int i = idBegin; i <= idEnd; ++i) {
        const int weight = learner.numPairDistinctQueV[i];
        learner.gradientV[i] *= weight;
        if (!hessianV.empty()) hessianV[static_cast<size_t>(i)] *= weight;
    }
}

int TreeLearner::LossRun::AskObjective(int round) {
    double* const secondV = learner.trainingOptions.fHessian ? hessianV.data() : nullptr;
    const objective_round_t arrays = {
        round, learner.sampleSize, learner.labelTrV, learner.predictV, learner.gradientV, secondV};
    const AtWork work(learner);
    const int status = sylvora::CallUser("objective", learner.fUserThrew, [&] {
        return learner.trainingOptions.objective(learner.trainingOptions.objectiveContext, arrays);
    });
    if (learner.fUserThrew) return -1;
    if (status != 0) {
        return Fail("ERROR: The objective failed in round ", round, " with status ", status, "!\n");
    }
    // Without a branch per row, so that the loop is vectorised. NaN fails both comparisons.
    int numWrong = 0;
    for (int i = 0; i < learner.sampleSize; ++i) {
        numWrong += !(std::fabs(learner.gradientV[i]) <= DBL_MAX);
    }
    for (int i = 0; i < learner.sampleSize && secondV != nullptr; ++i) {
        numWrong += !(secondV[i] >= 0 && secondV[i] <= DBL_MAX);
    }
    if (numWrong > 0) return RefuseRow(round);
    ApplyWeights(0, learner.sampleSize - 1);
    return 0;
}

// Names the first row whose gradient is not finite, or whose second derivative is not finite or is
// negative.
int TreeLearner::LossRun::RefuseRow(int round) const {
    const char remedy[] =
        ": gradients must be finite, second derivatives finite and not negative!\n";
    for (int i = 0; i < learner.sampleSize; ++i) {
        if (!std::isfinite(learner.gradientV[i])) {
            return Fail("ERROR: In round ", round, " the objective gave row ", i, " the gradient ",
                        learner.gradientV[i], remedy);
        }
        if (hessianV.empty()) continue;
        const double second = hessianV[static_cast<size_t>(i)];
        if (second >= 0 && std::isfinite(second)) continue;
        return Fail("ERROR: In round ", round, " the objective gave row ", i,
                    " the second derivative ", second, remedy);
    }
    return -1;  // not reached: the caller has found such a row
}

// The weights are those that ranking uses; gradients are multiplied by them besides.
int TreeLearner::setWeights(const int* weights, int count) {
    const CallScope scope(*this);
    if (RefuseAtWork("setWeights") != 0) return -1;
    if (lossRun == nullptr || numPairDistinctQueV == nullptr) {
        return Fail("ERROR: setWeights needs ParamInit first!\n");
    }
    if (CfgInfo.fRegCls != "REG" || CfgInfo.modelType == "GBRank") {
        return Fail("ERROR: Weights are for regressions other than GBRank, not for ",
                    CfgInfo.fRegCls == "REG" ? "GBRank" : "classifications", "!\n");
    }
    if (weights == nullptr || count != sampleSize) {
        return Fail("ERROR: There are ", weights == nullptr ? 0 : count, " weights for ",
                    sampleSize, " training rows!\n");
    }
    const int* const negative =
        std::find_if(weights, weights + count, [](int weight) { return weight < 0; });
    if (negative != weights + count) {
        return Fail("ERROR: Row ", negative - weights, " has the weight ", *negative,
                    ": weights must be 0 or more!\n");
    }
    const long long total = std::accumulate(weights, weights + count, 0LL);
    if (total == 0) return Fail("ERROR: All weights are 0: at least one must be above 0!\n");
    if (total > INT_MAX) {
        return Fail("ERROR: The weights add up to ", total, ", more than ", INT_MAX,
                    ": use smaller weights!\n");
    }
    std::copy(weights, weights + count, numPairDistinctQueV);
    lossRun->fWeighted = true;
    return 0;
}
