// The ranks of a wide column's rows, stored as offsets from the first rank of the row's 8-bit code.
// Offsets mostly fit 16 bits; callers have the code anyway.
#ifndef SYLVORA_ENGINE_TRAIN_HISTOGRAM_ROWRANKS_H
#define SYLVORA_ENGINE_TRAIN_HISTOGRAM_ROWRANKS_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

#include "base/LargeArray.h"

namespace sylvora {
namespace engine {

// Filled by one thread; after that, any number of threads may read.
class RowRanks {
  public:
    RowRanks() = default;
    // For `numRows` rows, to be filled by Set. codeFirstRankV holds the first rank of each code,
    // then the number of ranks. If offsets take more than `numNearBits` bits (at most 16), they are
    // stored in two parts of up to 16 bits.
    RowRanks(std::vector<uint32_t> codeFirstRankV, size_t numRows, int numNearBits)
        : firstRankV(std::move(codeFirstRankV)), nearBits(numNearBits), nearV(numRows) {
        uint32_t most = 0;  // the most ranks of a code
        for (size_t code = 0; code + 1 < firstRankV.size(); ++code) {
            most = std::max(most, firstRankV[code + 1] - firstRankV[code]);
        }
        if (most > uint32_t{1} << nearBits) farV.resize(numRows);
        while ((most >> nearBits) > 0xffff) ++nearBits;  // leaves at most 16 bits to the far part
    }

    // Stores a row's rank. `code` must be the row's 8-bit code.
    void Set(size_t row, size_t code, uint32_t rank) {
        const uint32_t distance = rank - firstRankV[code];
        nearV[row] = static_cast<uint16_t>(distance & ((1u << nearBits) - 1));
        if (!farV.empty()) farV[row] = static_cast<uint16_t>(distance >> nearBits);
    }

    // The ranks of the rows rowV[0], rowV[1], ...
    RowRanks Of(const std::vector<int>& rowV) const {
        RowRanks some;
        some.firstRankV = firstRankV;
        some.nearBits = nearBits;
        const auto take = [&rowV](const LargeArray<uint16_t>& from, LargeArray<uint16_t>& to) {
            to.resize(from.empty() ? 0 : rowV.size());
            for (size_t i = 0; i < to.size(); ++i) to[i] = from[static_cast<size_t>(rowV[i])];
        };
        take(nearV, some.nearV);
        take(farV, some.farV);
        return some;
    }

    // The rank of a row, given its code.
    uint32_t At(size_t row, size_t code) const {
        const uint32_t rank = firstRankV[code] + nearV[row];
        return farV.empty() ? rank : rank + (uint32_t{farV[row]} << nearBits);
    }
    // The same for many rows. The loops do nothing else, so many loads overlap.
    void Gather(const int* rowV, const uint8_t* codeV, int count, uint32_t* rankV) const {
        for (int i = 0; i < count; ++i) rankV[i] = firstRankV[codeV[i]] + nearV.data()[rowV[i]];
        for (int i = 0; i < count && !farV.empty(); ++i) {
            rankV[i] += uint32_t{farV.data()[rowV[i]]} << nearBits;
        }
    }
    // Prefetches the low bits, which suffice for most columns.
    void Prefetch(int row) const { __builtin_prefetch(nearV.data() + row); }

    // Whether all rows have equal ranks, for columns of the same rows and rankBits.
    bool operator==(const RowRanks& other) const {
        return firstRankV == other.firstRankV && nearV == other.nearV && farV == other.farV;
    }

  private:
    std::vector<uint32_t> firstRankV;  // by code
    int nearBits = 0;
    // By row: the low bits of the offset.
    LargeArray<uint16_t> nearV;
    // By row: the high bits; empty if there are none.
    LargeArray<uint16_t> farV;
};

}  // namespace engine
}  // namespace sylvora

#endif  // SYLVORA_ENGINE_TRAIN_HISTOGRAM_ROWRANKS_H
