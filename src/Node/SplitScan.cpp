// Scans one sorted column for its best candidate split; see SplitScan.h.
#include "SplitScan.h"

#include <cmath>
#include <cstdint>
#include <numeric>

#include "../Sort.h"
#include "engine/train/Separable.h"

namespace sylvora {
SortedColumn::SortedColumn(int numRows)
    : valueV(static_cast<size_t>(numRows)), orderV(static_cast<size_t>(numRows)) {}

// The sort is not stable, but deterministic. The scan adds gradients in the resulting order, so the
// order of equal values affects the bits of the scores.
void SortedColumn::Load(const engine::Matrix& matrix, const int* rowV, int column) {
    for (size_t i = 0; i < valueV.size(); ++i) valueV[i] = matrix.At(rowV[i], column);
    std::iota(orderV.begin(), orderV.end(), 0);
    R_tsort_I(valueV.data(), orderV.data(), 1, Count());
}

void SortedColumn::Load(const double* const* featureVV, const int* rowV, int column) {
    constexpr int kUnused = 0;  // sizes: only single values are read
    Load(engine::Matrix(featureVV, kUnused, kUnused), rowV, column);
}

bool SortedColumn::IsScanned() const {
    return !valueV.empty() && valueV.front() < valueV.back() + engine::kGap;
}

// Loop invariant: after the update in step i, gradL and wgtL are the sums over the i + 1 smallest
// values and gradR and wgtR those over the others.
//
// The order of the sums is part of the model. Deliberately, gradR is the node's sum less each
// gradient in turn, not the sum of the gradients on the right: the rounding errors differ.
void ScanColumn(const SortedColumn& column, const RegressionNode& node, CandidateSplit at,
                CandidateSplit& best) {
    double gradL = 0.0;
    int wgtL = 0;
    double gradR = node.gradAll;
    int wgtR = node.wgtAll;
    for (int i = 0; i + 1 < column.Count(); ++i) {
        const size_t id = column.Position(i);
        gradL += node.gradientV[id];
        wgtL += node.weightV[id];
        gradR -= node.gradientV[id];
        wgtR -= node.weightV[id];
        const bool fCandidate =
            wgtL > 0 && wgtR > 0 && engine::IsSeparable(column.Value(i), column.Value(i + 1));
        if (!fCandidate) continue;
        at.score = gradL * gradL / wgtL + gradR * gradR / wgtR;
        // A NaN score compares false, so it never wins.
        if (at.score > best.score) {
            at.countL = i + 1;
            column.SetThreshold(i, at);
            best = at;
        }
    }
}

// Loop invariant: after the update in step i, leftV and rightV count the classes of the i + 1
// smallest values and of the others; squaresL and squaresR are the sums of the squared counts. A
// count that grows from c - 1 to c adds 2c - 1 to its sum; one that falls from c + 1 to c takes
// 2c + 1 away. Integer sums are exact, so their order does not matter.
//
// A split is possible between any two distinct values: IsSeparable is for regression only.
void ScanColumn(const SortedColumn& column, const ClassificationNode& node, CandidateSplit at,
                CandidateSplit& best) {
    std::vector<int64_t> leftV(static_cast<size_t>(node.numClass), 0);
    std::vector<int64_t> rightV(node.statClassAll, node.statClassAll + node.numClass);
    int64_t squaresL = 0;
    int64_t squaresR = 0;
    for (const int64_t count : rightV) squaresR += count * count;
    const int numRows = column.Count();
    for (int i = 0; i + 1 < numRows; ++i) {
        const size_t cls = static_cast<size_t>(node.labelV[column.Position(i)]);
        squaresL += 2 * ++leftV[cls] - 1;
        squaresR -= 2 * --rightV[cls] + 1;
        if (!(column.Value(i + 1) > column.Value(i))) continue;
        at.countL = i + 1;
        at.score = static_cast<double>(squaresL) / at.countL +
                   static_cast<double>(squaresR) / (numRows - at.countL);
        // The balance decides only between equal scores.
        if (at.score < best.score) continue;
        at.balance = std::fabs(static_cast<double>(at.countL) / numRows - 0.5);
        if (at.score > best.score || at.balance < best.balance) {
            column.SetThreshold(i, at);
            best = at;
        }
    }
}

}  // namespace sylvora
