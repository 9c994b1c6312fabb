// Refines the bins that may hold the best split: a second, finer histogram of these bins alone, so
// that few rows are left to sort.
#ifndef SYLVORA_ENGINE_TRAIN_HISTOGRAM_FINESCAN_H
#define SYLVORA_ENGINE_TRAIN_HISTOGRAM_FINESCAN_H

#include <cstdint>
#include <vector>

#include "Histogram.h"
#include "ScanKernels.h"
#include "base/LargeArray.h"
#include "engine/train/FixedPoint.h"
#include "engine/train/RowSets.h"

namespace sylvora {
namespace engine {

// A bin being refined: the ranks [first, past), with the sums before it and up to its end, divided
// into sub-bins of equal numbers of ranks.
struct FineBin {
    uint32_t first;
    uint32_t past;
    Cell before;
    Cell behind;
    // If not all neighbours are separable, the bin is one sub-bin.
    bool fAllSeparable;
    // Set by FineScan::Count: the sub-bins are numbered through all bins, and a number after each
    // bin is left out.
    size_t firstSubBin = 0;
    size_t numSubBins = 1;
    double subBinsPerRank = 0.0;

    // The sub-bin of a rank, which must be in [first, past).
    size_t SubBinOf(uint32_t rank) const {
        return firstSubBin + static_cast<size_t>((rank - first) * subBinsPerRank);
    }
    // The highest rank of a sub-bin.
    uint32_t LastRank(size_t subBin) const;
};

// One column of one node at a time; not thread-safe.
class FineScan {
  public:
    explicit FineScan(const FixedPoint& fixedPoint) : fixed(fixedPoint) {}

    // Divides the bins (ascending, disjoint, not empty) into sub-bins and counts the rows of the
    // keys into them. Drops keys of ranks outside of the bins. Items of keys are rows of the data.
    void Count(std::vector<FineBin>& bins, const RowSet& rows, LargeArray<uint64_t>& keyV);

    // Of the last Count, by number: the sums before the sub-bin; the number left out after a bin
    // has the sums before and over the bin. Then zeros, as ScanKernels need them.
    const Cell* Prefixes() const { return prefixV.data(); }
    // All numbers, with those left out.
    int NumNumbers() const { return static_cast<int>(cellV.size()); }

    // Calls visit(bin, subBin) for the numbers in [from, from + 64) whose bits are set, in order,
    // but for empty sub-bins and numbers left out. `bin` is the first bin, or what the last call
    // left.
    template <typename Visit>
    void ForSubBins(uint64_t mask, int from, const FineBin*& bin, const Visit& visit) const {
        for (; mask != 0; mask &= mask - 1) {
            const size_t subBin = static_cast<size_t>(from + __builtin_ctzll(mask));
            if (cellV[subBin].packed == 0) continue;
            while (subBin >= bin->firstSubBin + bin->numSubBins) ++bin;
            visit(*bin, subBin);
        }
    }

    // Drops the keys of sub-bins whose bits in maskV, 64 numbers per word, are 0.
    void Keep(const std::vector<uint64_t>& maskV, LargeArray<uint64_t>& keyV) const;

  private:
    void DivideBins(std::vector<FineBin>& bins);
    void AddRows(const RowSet& rows, const LargeArray<uint64_t>& keyV);
    void AddUp(const std::vector<FineBin>& bins);

    const FixedPoint& fixed;
    std::vector<Cell> cellV;  // by number
    std::vector<Cell> prefixV;
    LargeArray<uint32_t> subBinV;  // by key
    // By (rank - lowest) / 2^step: the first bin that ends beyond that rank.
    std::vector<uint16_t> binAtV;
    // The first rank of the first bin.
    uint32_t lowest = 0;
    int step = 0;
};

}  // namespace engine
}  // namespace sylvora

#endif  // SYLVORA_ENGINE_TRAIN_HISTOGRAM_FINESCAN_H
