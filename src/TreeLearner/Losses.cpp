// Negative gradients of the losses: what the trees of a round are fitted to. A pairwise loss uses
// the pairs of samples of one query, both within the worker's range.
//
// LossRun computes those of the losses with node values of their own. docs/losses.md has all
// formulas.
//
// "Logistic" and "HingeSquare" are deliberately not the textbook derivatives: existing models were
// trained with these.
//
// Thread safety: a call reads labelTrV and predictV and writes gradientV, only within its range, so
// disjoint ranges may be computed in parallel. The user's loss is the exception.
#include <algorithm>
#include <cmath>
#include <vector>

#include "../LossFunctions/PairForces.h"
#include "../TreeLearner.h"
#include "../god/CorrectRounding.h"
#include "../god/Report.h"
#include "../god/UserCall.h"
#include "../god/Workers.h"
#include "AtWork.h"
#include "CallScope.h"
#include "LossRun.h"

using sylvora::Fail;

namespace {

// Exponentials are computed for this many rows at a time, so that their arrays stay in the
// L1 cache. Block boundaries do not change results.
constexpr int kBlock = 256;

// Calls visit(at, count, exponentialV) for each block of rows [at, at + count), in order, where
// exponentialV[i] = exp(-y * f) of row at + i. The array is the visitor's to overwrite.
template <typename Visit>
void ForBlocks(int idBegin, int idEnd, const double* yV, const double* fV, const Visit& visit) {
    double argumentV[kBlock], exponentialV[kBlock];
    for (int at = idBegin, count; at <= idEnd; at += count) {
        count = std::min(kBlock, idEnd - at + 1);
        for (int i = 0; i < count; ++i) argumentV[i] = -yV[at + i] * fV[at + i];
        sylvora::ExpEach(argumentV, exponentialV, static_cast<size_t>(count));
        visit(at, count, exponentialV);
    }
}

}  // namespace

// Sets the gradient of each sample in the range to gradient(label, prediction).
template <typename Gradient>
int TreeLearner::FillGradient(int idBegin, int idEnd, Gradient gradient) {
    for (int i = idBegin; i <= idEnd; ++i) gradientV[i] = gradient(labelTrV[i], predictV[i]);
    return 0;
}

int TreeLearner::ComputeGradientSquare(int idBegin, int idEnd) {
    return FillGradient(idBegin, idEnd, [](double y, double f) { return y - f; });
}

int TreeLearner::ComputeGradientLabel(int idBegin, int idEnd) {
    return FillGradient(idBegin, idEnd, [](double y, double) { return y; });
}

int TreeLearner::ComputeGradientLogistic(int idBegin, int idEnd) {
    ForBlocks(idBegin, idEnd, labelTrV, predictV, [this](int at, int count, double* exponentialV) {
        double logV[kBlock];
        for (int i = 0; i < count; ++i) exponentialV[i] = 1 + exponentialV[i];
        sylvora::LogEach(exponentialV, logV, static_cast<size_t>(count));
        for (int i = 0; i < count; ++i) gradientV[at + i] = labelTrV[at + i] * logV[i];
    });
    return 0;
}

int TreeLearner::ComputeGradientHingeSquare(int idBegin, int idEnd) {
    return FillGradient(idBegin, idEnd, [](double y, double f) { return 1 - y * f > 0 ? y : 0.0; });
}

int TreeLearner::ComputeGradientExponential(int idBegin, int idEnd) {
    ForBlocks(idBegin, idEnd, labelTrV, predictV, [this](int at, int count, double* exponentialV) {
        for (int i = 0; i < count; ++i) gradientV[at + i] = labelTrV[at + i] * exponentialV[i];
    });
    return 0;
}

// Sets the gradients of the range to the sums of the forces of its pairs. Returns -1 without query
// ids or ParamInit.
int TreeLearner::ComputePairGradients(int idBegin, int idEnd, sylvora::PairLoss loss) {
    if (queryIdV == nullptr || lossRun == nullptr) return -1;
    FillGradient(idBegin, idEnd, [](double, double) { return 0.0; });
    const sylvora::PairForces forces = {loss, valTau, lossRun->pairKernel};
    forces.Add(queryIdV + idBegin, labelTrV + idBegin, predictV + idBegin, idEnd - idBegin + 1,
               gradientV + idBegin);
    return 0;
}

int TreeLearner::ComputeGradientCrossEntropy(int idBegin, int idEnd) {
    return ComputePairGradients(idBegin, idEnd, sylvora::PairLoss::kCrossEntropy);
}

int TreeLearner::ComputeGradientHingeSquareRank(int idBegin, int idEnd) {
    return ComputePairGradients(idBegin, idEnd, sylvora::PairLoss::kHingeSquare);
}

// Deliberate: whatever the range, the user's function gets the arrays from sample 0 on, with the
// length of the range; existing functions rely on it. The ranges of several workers then overlap,
// so only one worker calls it at a time.
int TreeLearner::ComputeGradientUser(int idBegin, int idEnd) {
    const CallScope scope(*this);
    if (idBegin > idEnd) return 0;
    const AtWork work(*this);
    const std::lock_guard<std::mutex> lock(lossMutex);
    if (fUserThrew) return -1;  // for another range, which reported it
    const int status = lossfunc == nullptr ? -1 : sylvora::CallUser("loss", fUserThrew, [&] {
        return lossfunc(labelTrV, predictV, &gradientV, idEnd - idBegin + 1);
    });
    if (status == 0 || fUserThrew) return status;
    return Fail(
        "ERROR: Failed to compute the negative gradient of loss function by user given loss!\n");
}

// Computes the gradients of a range with the loss that is configured. Returns 0, or -1 after a
// message. The texts are fixed, spelling included.
int TreeLearner::ComputeGradient(int idBegin, int idEnd) {
    const CallScope scope(*this);
    struct Routine {
        const char* loss;
        int (TreeLearner::*compute)(int, int);
        const char* complaint;
    };
    static const Routine kRoutines[] = {
        {"Label", &TreeLearner::ComputeGradientLabel,
         "ERROR: Failed when computing the label loss!\n"},
        {"Square", &TreeLearner::ComputeGradientSquare,
         "ERROR: Failed when computing the gradient of square loss!\n"},
        {"CrossEntropy", &TreeLearner::ComputeGradientCrossEntropy,
         "ERROR: Failed when computing the cross-entropy gradient!\n"},
        {"HingeSquareRank", &TreeLearner::ComputeGradientHingeSquareRank,
         "ERROR: Failed when computing the neg-gradient of hinge loss!\n"},
        {"HingeSquare", &TreeLearner::ComputeGradientHingeSquare,
         "ERROR: Failed when computing the neg-gradient hinge square loss !\n"},
        {"Logistic", &TreeLearner::ComputeGradientLogistic,
         "ERROR: Failed when computing the neg-gradient of logistic loss !\n"},
        {"Exponential", &TreeLearner::ComputeGradientExponential,
         "ERROR: Failed when computing the neg-gradient of exponential loss !\n"},
    };
    const std::string& loss = CfgInfo.lossFunc;
    if (loss == "USER") {
        if (ComputeGradientUser(idBegin, idEnd) == 0) return 0;
        if (fUserThrew) return -1;
        return Fail("ERROR: Failed when computing the regression gradient!\n");
    }
    if (CfgInfo.fRegCls == "REG") {
        for (const Routine& routine : kRoutines) {
            if (loss != routine.loss) continue;
            if ((this->*routine.compute)(idBegin, idEnd) != 0) return Fail(routine.complaint);
            if (lossRun != nullptr) lossRun->ApplyWeights(idBegin, idEnd);
            return 0;
        }
        if (lossRun != nullptr && lossRun->FillGradients(idBegin, idEnd)) {
            lossRun->ApplyWeights(idBegin, idEnd);
            return 0;
        }
        return Fail("ERROR: Such loss function for regression: \"", loss,
                    "\" is not supported yet!\n");
    }
    if (CfgInfo.fRegCls != "CLS") return 0;
    if (loss != "Label") {
        return Fail("ERROR: modelType does not exist: ", CfgInfo.modelType,
                    " for classification!\n");
    }
    if (ComputeGradientLabel(idBegin, idEnd) == 0) return 0;
    // The misspelling is deliberate: the text of messages is fixed.
    return Fail("ERROR: Failed when computing the calssification loss!\n");
}

void* CalLossThreadFunction(void* arg) {
    const boosting_info_t& share = *static_cast<boosting_info_t*>(arg);
    return sylvora::ExitValue(share.treeLearner->ComputeGradient(share.sIdBegin, share.sIdEnd));
}
