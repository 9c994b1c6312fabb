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
constexpr int kFewRowsOfCrossEntropy = 10;
constexpr int kFewRowsOfHingeSquare = 3;

// Adds the forces of the cross entropy pair by pair. Exponentials are computed for many pairs at a
// time, of several queries if these are small.
class CrossEntropyPairs {
  public:
    explicit CrossEntropyPairs(double valTau) : tau(valTau) {}

    // Adds a query. Its gradients may be complete only after Flush.
    void Add(const double* labelV, const double* scoreV, int numRows, double* gradientV) {
        for (int i = 0; i < numRows; ++i) {
            for (int j = i + 1; j < numRows; ++j) {
                const double a = labelV[i], b = labelV[j];
                const int order = (a > b) - (b > a);
                pairV[count] = {gradientV + i, gradientV + j, static_cast<double>(order)};
                argumentV[count] = order * (scoreV[i] - scoreV[j]) - tau * std::fabs(a - b);
                // A pair of equal labels is overwritten by the next one: no branch to mispredict.
                count += order != 0;
                if (count == kMostPairs) Flush();
            }
        }
    }

    void Flush() {
        double exponentialV[kMostPairs];
        ExpEach(argumentV, exponentialV, count);
        for (size_t p = 0; p < count; ++p) {
            const double force = pairV[p].order / (1 + exponentialV[p]);
            *pairV[p].first += force;
            *pairV[p].second -= force;
        }
        count = 0;
    }

  private:
    static constexpr size_t kMostPairs = 256;

    struct Pair {
        double *first, *second;  // gradients
        double order;            // 1 if the first has the larger label, -1 if the second has
    };

    const double tau;
    size_t count = 0;  // below kMostPairs between calls
    Pair pairV[kMostPairs];
    double argumentV[kMostPairs];
};

double HingeSquareForce(double a, double b, double difference, double tau) {
    const double margin = tau * std::fabs(a - b);
    if (a > b) return margin > difference ? 0.5 * (margin - difference) : 0;
    if (b > a) return difference > -margin ? -0.5 * (margin + difference) : 0;
    if (difference > tau) return -0.5 * (difference - tau);
    return -tau > difference ? 0.5 * (-tau - difference) : 0;
}

void AddHingeSquare(const double* labelV, const double* scoreV, int numRows, double tau,
                    double* gradientV) {
    for (int i = 0; i < numRows; ++i) {
        for (int j = i + 1; j < numRows; ++j) {
            const double force = HingeSquareForce(labelV[i], labelV[j], scoreV[i] - scoreV[j], tau);
            gradientV[i] += force;
            gradientV[j] -= force;
        }
    }
}

// Adds the forces of a query in blocks, which may be partly empty.
void AddBlocks(const PairForces& forces, const double* labelV, const double* scoreV, int numRows,
               double* gradientV) {
    const AddForces add = forces.loss == PairLoss::kCrossEntropy ? forces.kernel->crossEntropy
                                                                 : forces.kernel->hingeSquare;
    const auto partAt = [&](int begin) {
        return Part{labelV, scoreV, gradientV, begin, std::min(PairBlock::kRows, numRows - begin)};
    };
    PairBlock first, second;
    for (int i = 0; i < numRows; i += PairBlock::kRows) {
        Fill(first, partAt(i), forces);
        add(first, first, forces.tau);
        for (int j = i + PairBlock::kRows; j < numRows; j += PairBlock::kRows) {
            Fill(second, partAt(j), forces);
            add(first, second, forces.tau);
            KeepGradients(second, partAt(j));
        }
        KeepGradients(first, partAt(i));
    }
}

}  // namespace

void PairForces::Add(const int* queryV, const double* labelV, const double* scoreV, int numRows,
                     double* gradientV) const {
    const bool fCrossEntropy = loss == PairLoss::kCrossEntropy;
    const int fewRows = fCrossEntropy ? kFewRowsOfCrossEntropy : kFewRowsOfHingeSquare;
    CrossEntropyPairs pairs(tau);
    for (int i = 0, past; i < numRows; i = past) {
        past = i + 1;
        while (past < numRows && queryV[past] == queryV[i]) ++past;
        const int count = past - i;
        if (count == 1) continue;
        if (count > fewRows) {
            AddBlocks(*this, labelV + i, scoreV + i, count, gradientV + i);
        } else if (fCrossEntropy) {
            pairs.Add(labelV + i, scoreV + i, count, gradientV + i);
        } else {
            AddHingeSquare(labelV + i, scoreV + i, count, tau, gradientV + i);
        }
    }
    pairs.Flush();
}

}  // namespace sylvora
