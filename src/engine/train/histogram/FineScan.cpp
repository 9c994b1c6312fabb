// The second histogram; see FineScan.h.
#include "FineScan.h"

#include <algorithm>

#include "engine/train/KeySort.h"

namespace sylvora {
namespace engine {
namespace {

constexpr double kRowsPerSubBin = 24;
constexpr uint32_t kSteps = 4096;
constexpr int kBlockKeys = 256;

}  // namespace

// A binary search: SubBinOf ascends with the rank.
uint32_t FineBin::LastRank(size_t subBin) const {
    uint32_t low = first;
    uint32_t high = past;
    // Invariant: `low` is in the sub-bin or before it, `high` after it.
    while (high - low > 1) {
        const uint32_t middle = low + (high - low) / 2;
        (SubBinOf(middle) <= subBin ? low : high) = middle;
    }
    return low;
}

// Compacts keyV in place: never more keys have been kept than read. Then keyV and subBinV run
// parallel.
void FineScan::Count(std::vector<FineBin>& bins, const RowSet& rows, LargeArray<uint64_t>& keyV) {
    DivideBins(bins);
    subBinV.resize(keyV.size());
    size_t numKept = 0;
    for (const uint64_t key : keyV) {
        const uint32_t rank = RankOf(key);
        if (rank < lowest || rank >= bins.back().past) continue;
        size_t at = binAtV[(rank - lowest) >> step];
        while (rank >= bins[at].past) ++at;
        if (rank < bins[at].first) continue;
        subBinV[numKept] = static_cast<uint32_t>(bins[at].SubBinOf(rank));
        keyV[numKept++] = key;
    }
    keyV.resize(numKept);
    AddRows(rows, keyV);
    AddUp(bins);
}

// Divides the bins into sub-bins, and fills binAtV.
void FineScan::DivideBins(std::vector<FineBin>& bins) {
    size_t numSubBins = 0;
    // A sub-bin for each kRowsPerSubBin rows, weights counted as rows, but no more than ranks.
    for (FineBin& bin : bins) {
        Cell inside = bin.behind;
        inside -= bin.before;
        const double ranks = bin.past - bin.first;
        const double subBins = std::min(fixed.Weight(inside) / kRowsPerSubBin, ranks);
        bin.firstSubBin = numSubBins;
        bin.numSubBins = bin.fAllSeparable ? static_cast<size_t>(subBins) + 1 : 1;
        // Slightly below the quotient, so that the last rank maps to the last sub-bin.
        bin.subBinsPerRank = static_cast<double>(bin.numSubBins) * (1.0 - 1e-12) / ranks;
        numSubBins += bin.numSubBins + 1;
    }
    cellV.assign(numSubBins, Cell());
    lowest = bins.front().first;
    const uint32_t range = bins.back().past - lowest;
    step = 0;
    while ((range >> step) >= kSteps) ++step;
    binAtV.resize((range >> step) + 1);
    uint16_t bin = 0;
    // Bins are ascending, so `bin` never decreases.
    for (size_t s = 0; s < binAtV.size(); ++s) {
        while (bins[bin].past <= lowest + (static_cast<uint32_t>(s) << step) &&
               bin + 1u < bins.size()) {
            ++bin;
        }
        binAtV[s] = bin;
    }
}

// Adds the rows of the keys to their sub-bins.
void FineScan::AddRows(const RowSet& rows, const LargeArray<uint64_t>& keyV) {
    int rowV[kBlockKeys];
    Cell blockV[kBlockKeys];
    // Converts a block of rows at a time, so that the gathers overlap.
    for (size_t begin = 0; begin < keyV.size(); begin += kBlockKeys) {
        const int count = static_cast<int>(std::min<size_t>(kBlockKeys, keyV.size() - begin));
        for (int i = 0; i < count; ++i) rowV[i] = ItemOf(keyV[begin + static_cast<size_t>(i)]);
        rows.CellsOf(rowV, count, fixed, blockV);
        for (int i = 0; i < count; ++i) {
            cellV[subBinV[begin + static_cast<size_t>(i)]] += blockV[i];
        }
    }
}

void FineScan::AddUp(const std::vector<FineBin>& bins) {
    prefixV.assign(cellV.size() + 1 + ScanKernels::kSlack, Cell());
    for (const FineBin& bin : bins) {
        Cell prefix = bin.before;
        // Also after the last sub-bin, whose successor's number is left out.
        for (size_t k = bin.firstSubBin; k <= bin.firstSubBin + bin.numSubBins; ++k) {
            prefixV[k] = prefix;
            prefix += cellV[k];
        }
    }
}

// Compacts in place, without a branch. subBinV then no longer matches keyV.
void FineScan::Keep(const std::vector<uint64_t>& maskV, LargeArray<uint64_t>& keyV) const {
    size_t numKept = 0;
    for (size_t i = 0; i < keyV.size(); ++i) {
        keyV[numKept] = keyV[i];
        numKept += maskV[subBinV[i] / 64] >> (subBinV[i] % 64) & 1;
    }
    keyV.resize(numKept);
}

}  // namespace engine
}  // namespace sylvora
