// Gradients: what each round's trees are fitted to. Pairwise losses look at pairs of samples of one
// query that lie within the worker's range.
//
// "Logistic" and "HingeSquare" are not the textbook derivatives; models have always been trained
// with these.
#include <algorithm>
#include <cmath>
#include <vector>

#include "../TreeLearner.h"
#include "../god/CorrectRounding.h"
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

// Squared hinge, halved; samples of equal label are pulled to within tau of each other.
double HingeSquareForce(double a, double b, double difference, double tau) {
    const double margin = MarginOf(a, b, tau);
    if (a > b) return margin > difference ? 0.5 * (margin - difference) : 0;
    if (b > a) return difference > -margin ? -0.5 * (margin + difference) : 0;
    if (difference > tau) return -0.5 * (difference - tau);
    return -tau > difference ? 0.5 * (-tau - difference) : 0;
}

// Exponentials are computed for so many rows or pairs at a time: arrays of them stay in the nearest
// cache.
constexpr int kBlock = 256;

// Calls visit(at, count, exponentialV) for each block of rows at, at + 1, ... with exp(-y * f).
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

// Adds the forces of pairs to both samples' gradients, in the order in which the pairs come: 1 / (1
// + exp(d - margin)) where the first has the larger label, -1 / (1 + exp(-d - margin)) where the
// second has it, 0 where neither has. d is the difference of their predictions.
//
// Burges et al., "Learning to rank using gradient descent" (2005), with a margin.
class CrossEntropyPairs {
  public:
    explicit CrossEntropyPairs(double* gradients) : gradientV(gradients) {}

    // `order` is 1, -1 or 0 for the three cases, `argument` that of the exponential. A pair with
    // order 0 is overwritten by the next: a branch on labels would often be predicted wrongly.
    void Add(int first, int second, int order, double argument) {
        pairV[count] = {first, second, static_cast<double>(order)};
        argumentV[count] = argument;
        count += order != 0;
        if (count == kBlock) Flush();
    }

    void Flush() {
        double exponentialV[kBlock];
        sylvora::ExpEach(argumentV, exponentialV, static_cast<size_t>(count));
        for (int p = 0; p < count; ++p) {
            const double force = pairV[p].order / (1 + exponentialV[p]);
            gradientV[pairV[p].first] += force;
            gradientV[pairV[p].second] -= force;
        }
        count = 0;
    }

  private:
    struct Pair {
        int first, second;
        double order;
    };

    double* gradientV;
    Pair pairV[kBlock];
    double argumentV[kBlock];
    int count = 0;
};

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

// Sets the gradients to 0 and calls visit(i, j, labelI, labelJ, difference of predictions) for each
// pair of one query.
template <typename Visit>
int TreeLearner::ForPairs(int idBegin, int idEnd, const Visit& visit) {
    if (queryIdV == nullptr) return -1;
    FillGradient(idBegin, idEnd, [](double, double) { return 0.0; });
    for (int i = idBegin; i <= idEnd; ++i) {
        for (int j = i + 1; j <= idEnd && queryIdV[j] == queryIdV[i]; ++j) {
            visit(i, j, labelTrV[i], labelTrV[j], predictV[i] - predictV[j]);
        }
    }
    return 0;
}

int TreeLearner::ComputeGradientCrossEntropy(int idBegin, int idEnd) {
    CrossEntropyPairs pairs(gradientV);
    const int status =
        ForPairs(idBegin, idEnd, [&](int i, int j, double a, double b, double difference) {
            const int order = (a > b) - (b > a);
            pairs.Add(i, j, order, order * difference - MarginOf(a, b, valTau));
        });
    pairs.Flush();
    return status;
}

int TreeLearner::ComputeGradientHingeSquareRank(int idBegin, int idEnd) {
    return ForPairs(idBegin, idEnd, [this](int i, int j, double a, double b, double difference) {
        const double force = HingeSquareForce(a, b, difference, valTau);
        gradientV[i] += force;
        gradientV[j] -= force;
    });
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
