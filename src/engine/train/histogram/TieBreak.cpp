// Reference scores of single splits; see TieBreak.h.
#include "TieBreak.h"

#include "engine/train/KeySort.h"
#include "engine/train/ReferenceOrder.h"

namespace sylvora {
namespace engine {

Candidate TieBreak::Choose(const GrownNode& node, const RowSlice& rows,
                           const std::vector<Candidate>& candidateV) {
    const Candidate* best = nullptr;
    double bestScore = 0.0;
    for (const Candidate& candidate : candidateV) {
        const int numLeft = SortLeft(candidate, rows);
        const double score = ReferenceScore(node, rows, numLeft);
        if (best != nullptr && !(score > bestScore)) continue;
        best = &candidate;
        bestScore = score;
    }
    Candidate chosen = *best;
    chosen.score = bestScore;
    return chosen;
}

// Brings the candidate's left rows into the reference order, and returns their number.
int TieBreak::SortLeft(const Candidate& candidate, const RowSlice& rows) {
    const Column& column = data.At(candidate.column);
    keyV.resize(static_cast<size_t>(rows.count + kReferenceOrderSlack));
    int numLeft = 0;
    const auto set = [&](int i, uint32_t rank) {
        keyV[static_cast<size_t>(i)] = KeyOf(rank, i);
        numLeft += rank <= candidate.lastRank;
    };
    if (column.fNarrow) {
        const uint8_t* codes = data.GroupOf(column).codeV.data();
        const uint8_t* binOfCodeV = data.BinsOfCodes(column);
        for (int i = 0; i < rows.count; ++i) set(i, binOfCodeV[codes[rows.rowV[i]]]);
    } else {
        for (int i = 0; i < rows.count; ++i) set(i, data.Rank(candidate.column, rows.rowV[i]));
    }
    SortFirst(keyV.data(), rows.count, numLeft);
    return numLeft;
}

// The sums and their order are those of ScanColumn in src/Node/SplitScan.cpp.
double TieBreak::ReferenceScore(const GrownNode& node, const RowSlice& rows, int numLeft) const {
    double gradL = 0.0;
    int wgtL = 0;
    double gradR = node.gradAll;
    for (int i = 0; i < numLeft; ++i) {
        const size_t at = static_cast<size_t>(ItemOf(keyV[static_cast<size_t>(i)]));
        gradL += rows.gradV[at];
        gradR -= rows.gradV[at];
        wgtL += rows.weightV != nullptr ? rows.weightV[at] : 1;
    }
    const int wgtR = node.wgtAll - wgtL;
    return gradL * gradL / wgtL + gradR * gradR / wgtR;
}

}  // namespace engine
}  // namespace sylvora
