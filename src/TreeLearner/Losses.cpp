// Gradients: what each round's trees are fitted to. Pairwise losses look at pairs of samples of one
// query that lie within the worker's range.
//
// "Logistic" and "HingeSquare" are not the textbook derivatives; models have always been trained
// with these.
#include <cmath>
#include <vector>

#include "../TreeLearner.h"
#include "../god/Report.h"
#include "../god/UserCall.h"
#include "../god/Workers.h"
#include "AtWork.h"

using sylvora::Fail;

namespace {

// Forces on the first of two samples with labels a and b, predictions that differ by `difference`
// and the margin tau; the second sample gets the opposite.
double MarginOf(double a, double b, double tau) {
    return tau * std::fabs(a - b);
}

// Burges et al., "Learning to rank using gradient descent" (2005), with a margin.
double CrossEntropyForce(double a, double b, double difference, double tau) {
    const double margin = MarginOf(a, b, tau);
    if (a > b) return 1 / (1 + std::exp(difference - margin));
    if (b > a) return -1 / (1 + std::exp(-difference - margin));
    return 0;
}

// Squared hinge, halved; samples of equal label are pulled to within tau of each other.
double HingeSquareForce(double a, double b, double difference, double tau) {
    const double margin = MarginOf(a, b, tau);
    if (a > b) return margin > difference ? 0.5 * (margin - difference) : 0;
    if (b > a) return difference > -margin ? -0.5 * (margin + difference) : 0;
    if (difference > tau) return -0.5 * (difference - tau);
    return -tau > difference ? 0.5 * (-tau - difference) : 0;
}

}  // namespace

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
    return FillGradient(idBegin, idEnd,
                        [](double y, double f) { return y * std::log(1 + std::exp(-y * f)); });
}

int TreeLearner::ComputeGradientHingeSquare(int idBegin, int idEnd) {
    return FillGradient(idBegin, idEnd, [](double y, double f) { return 1 - y * f > 0 ? y : 0.0; });
}

int TreeLearner::ComputeGradientExponential(int idBegin, int idEnd) {
    return FillGradient(idBegin, idEnd, [](double y, double f) { return y * std::exp(-y * f); });
}

int TreeLearner::ComputeGradientCrossEntropy(int idBegin, int idEnd) {
    return AddPairForces(idBegin, idEnd, CrossEntropyForce);
}

int TreeLearner::ComputeGradientHingeSquareRank(int idBegin, int idEnd) {
    return AddPairForces(idBegin, idEnd, HingeSquareForce);
}

int TreeLearner::AddPairForces(int idBegin, int idEnd, PairForce force) {
    if (queryIdV == nullptr) return -1;
    FillGradient(idBegin, idEnd, [](double, double) { return 0.0; });
    for (int i = idBegin; i <= idEnd; ++i) {
        for (int j = i + 1; j <= idEnd && queryIdV[j] == queryIdV[i]; ++j) {
            const double s = force(labelTrV[i], labelTrV[j], predictV[i] - predictV[j], valTau);
            gradientV[i] += s;
            gradientV[j] -= s;
        }
    }
    return 0;
}

// The user's function always gets the arrays from their first sample, whatever the range: existing
// functions count on it. One call at a time, because the ranges of several workers then overlap.
int TreeLearner::ComputeGradientUser(int idBegin, int idEnd) {
    if (idBegin > idEnd) return 0;
    const AtWork work(*this);
    const std::lock_guard<std::mutex> lock(lossMutex);
    if (fUserThrew) return -1;  // in a call for another range, and it was reported
    const int status = lossfunc == nullptr ? -1 : sylvora::CallUser("loss", fUserThrew, [&] {
        return lossfunc(labelTrV, predictV, &gradientV, idEnd - idBegin + 1);
    });
    if (status == 0 || fUserThrew) return status;
    return Fail(
        "ERROR: Failed to compute the negative gradient of loss function by user given loss!\n");
}

int TreeLearner::ComputeGradient(int idBegin, int idEnd) {
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
            return (this->*routine.compute)(idBegin, idEnd) == 0 ? 0 : Fail(routine.complaint);
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
    return Fail("ERROR: Failed when computing the calssification loss!\n");
}

void* CalLossThreadFunction(void* arg) {
    const boosting_info_t& share = *static_cast<boosting_info_t*>(arg);
    return sylvora::ExitValue(share.treeLearner->ComputeGradient(share.sIdBegin, share.sIdEnd));
}
