// The finer histogram; see FineScan.h.
#include "FineScan.h"

#include <algorithm>

#include "engine/train/KeySort.h"

namespace sylvora {
namespace engine {
namespace {

constexpr double kRowsPerPiece = 24;
constexpr uint32_t kSteps = 4096;
constexpr int kBlockKeys = 256;

}  // namespace

uint32_t FineBin::LastRank(size_t piece) const {
    uint32_t low = first;  // in `piece` or before it
    uint32_t high = past;  // behind it
    while (high - low > 1) {
        const uint32_t middle = low + (high - low) / 2;
        (PieceOf(middle) <= piece ? low : high) = middle;
    }
    return low;
}

void FineScan::Count(std::vector<FineBin>& bins, const RowSet& rows, LargeArray<uint64_t>& keyV) {
    CutBins(bins);
    pieceV.resize(keyV.size());
    size_t numKept = 0;
    for (const uint64_t key : keyV) {
        const uint32_t rank = RankOf(key);
        if (rank < lowest || rank >= bins.back().past) continue;
        size_t at = binAtV[(rank - lowest) >> step];
        while (rank >= bins[at].past) ++at;
        if (rank < bins[at].first) continue;
        pieceV[numKept] = static_cast<uint32_t>(bins[at].PieceOf(rank));
        keyV[numKept++] = key;
    }
    keyV.resize(numKept);
    AddRows(rows, keyV);
}

// Cuts the bins into pieces and prepares to look them up by rank.
void FineScan::CutBins(std::vector<FineBin>& bins) {
    size_t numPieces = 0;
    for (FineBin& bin : bins) {
        Cell inside = bin.behind;
        inside -= bin.before;
        const double ranks = bin.past - bin.first;
        const double pieces = std::min(fixed.Weight(inside) / kRowsPerPiece, ranks);
        bin.firstPiece = numPieces;
        bin.numPieces = bin.fClean ? static_cast<size_t>(pieces) + 1 : 1;
        // A hair less, so that the last rank stays in the last piece.
        bin.piecesPerRank = static_cast<double>(bin.numPieces) * (1.0 - 1e-12) / ranks;
        numPieces += bin.numPieces;
    }
    cellV.assign(numPieces, Cell());
    lowest = bins.front().first;
    const uint32_t range = bins.back().past - lowest;
    step = 0;
    while ((range >> step) >= kSteps) ++step;
    binAtV.resize((range >> step) + 1);
    uint16_t bin = 0;
    for (size_t s = 0; s < binAtV.size(); ++s) {
        while (bins[bin].past <= lowest + (static_cast<uint32_t>(s) << step) &&
               bin + 1u < bins.size()) {
            ++bin;
        }
        binAtV[s] = bin;
    }
}

// Adds the rows of the keys to their pieces.
void FineScan::AddRows(const RowSet& rows, const LargeArray<uint64_t>& keyV) {
    int rowV[kBlockKeys];
    Cell blockV[kBlockKeys];
    for (size_t begin = 0; begin < keyV.size(); begin += kBlockKeys) {
        const int count = static_cast<int>(std::min<size_t>(kBlockKeys, keyV.size() - begin));
        for (int i = 0; i < count; ++i) rowV[i] = ItemOf(keyV[begin + static_cast<size_t>(i)]);
        rows.CellsOf(rowV, count, fixed, blockV);
        for (int i = 0; i < count; ++i) {
            cellV[pieceV[begin + static_cast<size_t>(i)]] += blockV[i];
        }
    }
}

void FineScan::Keep(const std::vector<uint8_t>& fKeepV, LargeArray<uint64_t>& keyV) const {
    size_t numKept = 0;
    for (size_t i = 0; i < keyV.size(); ++i) {
        keyV[numKept] = keyV[i];
        numKept += fKeepV[pieceV[i]];
    }
    keyV.resize(numKept);
}

}  // namespace engine
}  // namespace sylvora
