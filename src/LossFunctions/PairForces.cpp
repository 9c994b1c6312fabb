// Divides queries into blocks for the kernels; see PairForces.h.
#include "PairForces.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

#include "../god/CorrectRounding.h"
#include "../god/ExpLogKernels.h"
#include "PairKernels.h"

namespace sylvora {
namespace {

constexpr double kNaN = __builtin_nan("");

// Rows [begin, begin + count) of a query, with their gradients so far.
struct Part {
    const double *labelV, *scoreV;
    double* gradientV;
    int begin, count;
};

int RoundedUp(int count) {
    return (count + PairBlock::kMostLanes - 1) / PairBlock::kMostLanes * PairBlock::kMostLanes;
}

// Sets the places and their powers.
void Place(PairBlock& block, int count, double tau) {
    constexpr double kToPlace = 0x1.8p8;  // adding and subtracting it rounds to multiples of 2^-44
    constexpr double kLargest = 64.0;     // of a score, and of tau times a label
    constexpr double kLargestLabel = 0x1p1022;  // the difference of two is finite
    double negativeV[PairBlock::kRows];
    for (int i = 0; i < count; ++i) {
        const double score = block.scoreV[i];
        const double margin = tau * block.labelV[i];
        const bool fSmall = (std::fabs(score) <= kLargest) & (std::fabs(margin) <= kLargest) &
                            (std::fabs(block.labelV[i]) <= kLargestLabel);
        block.placeV[i] = fSmall ? ((score - margin) + kToPlace) - kToPlace : kNaN;
        negativeV[i] = -block.placeV[i];
    }
    const size_t size = static_cast<size_t>(count);
    SplitExpEach(block.placeV, block.upHeadV, block.upRestV, size);
    SplitExpEach(negativeV, block.downHeadV, block.downRestV, size);
}

void Fill(PairBlock& block, const Part& part, const PairForces& forces) {
    const int count = RoundedUp(part.count);
    block.count = part.count;
    std::copy_n(part.labelV + part.begin, part.count, block.labelV);
    std::copy_n(part.scoreV + part.begin, part.count, block.scoreV);
    std::copy_n(part.gradientV + part.begin, part.count, block.gradientV);
    std::fill(block.labelV + part.count, block.labelV + count, kNaN);
    std::fill(block.scoreV + part.count, block.scoreV + count, kNaN);
    std::fill(block.gradientV + part.count, block.gradientV + count, 0.0);
    if (forces.loss == PairLoss::kCrossEntropy) {
        Place(block, count, forces.tau);
    } else {
        // The kernel loads these, too.
        for (double* valueV :
             {block.placeV, block.upHeadV, block.upRestV, block.downHeadV, block.downRestV}) {
            std::fill_n(valueV, count, 0.0);
        }
    }
}

void KeepGradients(const PairBlock& block, const Part& part) {
    std::copy_n(block.gradientV, part.count, part.gradientV + part.begin);
}

// Queries of at most this many rows are computed pair by pair: blocks would cost more.
constexpr int kFewRows = 4;

// Adds the forces of the cross entropy in a query of at most kFewRows rows.
void AddFew(const double* labelV, const double* scoreV, int numRows, double tau,
            double* gradientV) {
    constexpr int kMostPairs = kFewRows * (kFewRows - 1) / 2;
    double argumentV[kMostPairs], exponentialV[kMostPairs], orderV[kMostPairs];
    size_t numPairs = 0;
    for (int i = 0; i < numRows; ++i) {
        for (int j = i + 1; j < numRows; ++j, ++numPairs) {
            const double a = labelV[i], b = labelV[j];
            const int order = (a > b) - (b > a);
            orderV[numPairs] = order;
            argumentV[numPairs] =
                order == 0 ? 0.0 : order * (scoreV[i] - scoreV[j]) - tau * std::fabs(a - b);
        }
    }
    ExpEach(argumentV, exponentialV, numPairs);
    numPairs = 0;
    for (int i = 0; i < numRows; ++i) {
        for (int j = i + 1; j < numRows; ++j, ++numPairs) {
            const double force = orderV[numPairs] / (1 + exponentialV[numPairs]);
            gradientV[i] += force;
            gradientV[j] -= force;
        }
    }
}

}  // namespace

void PairForces::Add(const double* labelV, const double* scoreV, int numRows,
                     double* gradientV) const {
    if (numRows < 2) return;
    if (numRows <= kFewRows && loss == PairLoss::kCrossEntropy) {
        return AddFew(labelV, scoreV, numRows, tau, gradientV);
    }
    const AddForces add =
        loss == PairLoss::kCrossEntropy ? kernel->crossEntropy : kernel->hingeSquare;
    const auto partAt = [&](int begin) {
        return Part{labelV, scoreV, gradientV, begin, std::min(PairBlock::kRows, numRows - begin)};
    };
    PairBlock first, second;
    for (int i = 0; i < numRows; i += PairBlock::kRows) {
        Fill(first, partAt(i), *this);
        add(first, first, tau);
        for (int j = i + PairBlock::kRows; j < numRows; j += PairBlock::kRows) {
            Fill(second, partAt(j), *this);
            add(first, second, tau);
            KeepGradients(second, partAt(j));
        }
        KeepGradients(first, partAt(i));
    }
}

}  // namespace sylvora
