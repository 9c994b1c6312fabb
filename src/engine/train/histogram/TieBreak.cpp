// Reference scores of single splits; see TieBreak.h.
#include "TieBreak.h"

#include <numeric>

#include "Sort.h"

namespace sylvora {
namespace engine {

Candidate TieBreak::Choose(const GrownNode& node, const RowSlice& rows,
                           const std::vector<Candidate>& candidateV) {
    const Candidate* best = nullptr;
    double bestScore = 0.0;
    for (const Candidate& candidate : candidateV) {
        Sort(candidate.column, rows);
        const double score = ReferenceScore(node, rows, candidate.lastRank);
        if (best != nullptr && !(score > bestScore)) continue;
        best = &candidate;
        bestScore = score;
    }
    Candidate chosen = *best;
    chosen.score = bestScore;
    return chosen;
}

// R_tsort_I only compares, so ranks end up in the same order as the values would.
void TieBreak::Sort(int id, const RowSlice& rows) {
    const Column& column = data.At(id);
    const size_t count = static_cast<size_t>(rows.count);
    rankV.resize(count);
    orderV.resize(count);
    std::iota(orderV.begin(), orderV.end(), 0);
    if (column.fNarrow) {
        const uint8_t* codes = data.GroupOf(column).codeV.data();
        const uint8_t* binOfCodeV = data.BinsOfCodes(column);
        for (size_t i = 0; i < count; ++i) rankV[i] = binOfCodeV[codes[rows.rowV[i]]];
    } else {
        for (size_t i = 0; i < count; ++i) rankV[i] = data.Rank(id, rows.rowV[i]);
    }
    R_tsort_I(rankV.data(), orderV.data(), 1, rows.count);
}

// The sums and their order are those of ScanColumn in src/Node/SplitScan.cpp.
double TieBreak::ReferenceScore(const GrownNode& node, const RowSlice& rows,
                                uint32_t lastRank) const {
    double gradL = 0.0;
    int wgtL = 0;
    double gradR = node.gradAll;
    for (size_t i = 0; i < rankV.size() && rankV[i] <= lastRank; ++i) {
        const size_t at = static_cast<size_t>(orderV[i]);
        gradL += rows.gradV[at];
        gradR -= rows.gradV[at];
        wgtL += rows.weightV != nullptr ? rows.weightV[at] : 1;
    }
    const int wgtR = node.wgtAll - wgtL;
    return gradL * gradL / wgtL + gradR * gradR / wgtR;
}

}  // namespace engine
}  // namespace sylvora
