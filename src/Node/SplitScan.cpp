// The scan of one column; see SplitScan.h.
#include "SplitScan.h"

#include <cmath>
#include <cstdint>
#include <numeric>

#include "../Sort.h"
#include "engine/train/Separable.h"

namespace sylvora {
SortedColumn::SortedColumn(int numRows)
    : valueV(static_cast<size_t>(numRows)), orderV(static_cast<size_t>(numRows)) {}

void SortedColumn::Load(const double* const* featureVV, const int* rowV, int column) {
    for (size_t i = 0; i < valueV.size(); ++i) valueV[i] = featureVV[rowV[i]][column];
    std::iota(orderV.begin(), orderV.end(), 0);
    R_tsort_I(valueV.data(), orderV.data(), 1, Count());
}

bool SortedColumn::IsScanned() const {
    return !valueV.empty() && valueV.front() < valueV.back() + engine::kGap;
}

// The order of these sums is part of the model: gradR shrinks from the node's own sum rather than
// being added up from the right.
void ScanColumn(const SortedColumn& column, const RegressionNode& node, Cut at, Cut& best) {
    double gradL = 0.0;
    int wgtL = 0;
    double gradR = node.gradAll;
    int wgtR = node.wgtAll;
    for (int i = 0; i + 1 < column.Count(); ++i) {
        const size_t id = column.Place(i);
        gradL += node.gradientV[id];
        wgtL += node.weightV[id];
        gradR -= node.gradientV[id];
        wgtR -= node.weightV[id];
        const bool fCandidate =
            wgtL > 0 && wgtR > 0 && engine::IsSeparable(column.Value(i), column.Value(i + 1));
        if (!fCandidate) continue;
        at.score = gradL * gradL / wgtL + gradR * gradR / wgtR;
        if (at.score > best.score) {
            at.countL = i + 1;
            column.SetThreshold(i, at);
            best = at;
        }
    }
}

void ScanColumn(const SortedColumn& column, const ClassificationNode& node, Cut at, Cut& best) {
    std::vector<int64_t> leftV(static_cast<size_t>(node.numClass), 0);
    std::vector<int64_t> rightV(node.statClassAll, node.statClassAll + node.numClass);
    int64_t squaresL = 0;
    int64_t squaresR = 0;
    for (const int64_t count : rightV) squaresR += count * count;
    const int numRows = column.Count();
    for (int i = 0; i + 1 < numRows; ++i) {
        const size_t cls = static_cast<size_t>(node.labelV[column.Place(i)]);
        squaresL += 2 * ++leftV[cls] - 1;
        squaresR -= 2 * --rightV[cls] + 1;
        if (!(column.Value(i + 1) > column.Value(i))) continue;
        at.countL = i + 1;
        at.score = static_cast<double>(squaresL) / at.countL +
                   static_cast<double>(squaresR) / (numRows - at.countL);
        if (at.score < best.score) continue;
        at.balance = std::fabs(static_cast<double>(at.countL) / numRows - 0.5);
        if (at.score > best.score || at.balance < best.balance) {
            column.SetThreshold(i, at);
            best = at;
        }
    }
}

}  // namespace sylvora
