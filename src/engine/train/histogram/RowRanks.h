// The ranks of a wide column's rows, for readers that have a row's byte at hand: then the distance
// from the first rank of the byte says all, and mostly fits two bytes.
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

class RowRanks {
  public:
    RowRanks() = default;
    // For `numRows` rows, all still to be set. byteFirstV has the first rank of each byte, then the
    // number of ranks. Distances of more than `numNearBits` bits, at most 16, are kept in two parts
    // of up to 16 bits.
    RowRanks(std::vector<uint32_t> byteFirstV, size_t numRows, int numNearBits)
        : firstV(std::move(byteFirstV)), nearBits(numNearBits), nearV(numRows) {
        uint32_t most = 0;  // ranks of a byte
        for (size_t byte = 0; byte + 1 < firstV.size(); ++byte) {
            most = std::max(most, firstV[byte + 1] - firstV[byte]);
        }
        if (most > uint32_t{1} << nearBits) farV.resize(numRows);
        while ((most >> nearBits) > 0xffff) ++nearBits;  // which few bits may leave to the far part
    }

    void Set(size_t row, size_t byte, uint32_t rank) {
        const uint32_t distance = rank - firstV[byte];
        nearV[row] = static_cast<uint16_t>(distance & ((1u << nearBits) - 1));
        if (!farV.empty()) farV[row] = static_cast<uint16_t>(distance >> nearBits);
    }

    // The rank of a row that has this byte.
    uint32_t At(size_t row, size_t byte) const {
        const uint32_t rank = firstV[byte] + nearV[row];
        return farV.empty() ? rank : rank + (uint32_t{farV[row]} << nearBits);
    }
    // The same for rows that lie here and there. With nothing else to do in the loop, many of them
    // are on their way at once.
    void Gather(const int* rowV, const uint8_t* byteV, int count, uint32_t* rankV) const {
        for (int i = 0; i < count; ++i) rankV[i] = firstV[byteV[i]] + nearV.data()[rowV[i]];
        for (int i = 0; i < count && !farV.empty(); ++i) {
            rankV[i] += uint32_t{farV.data()[rowV[i]]} << nearBits;
        }
    }
    void Prefetch(int row) const { __builtin_prefetch(nearV.data() + row); }

    bool operator==(const RowRanks& other) const {
        return firstV == other.firstV && nearV == other.nearV && farV == other.farV;
    }

  private:
    std::vector<uint32_t> firstV;  // by byte
    int nearBits = 0;
    LargeArray<uint16_t> nearV;  // by row: the lowest bits of the distance
    LargeArray<uint16_t> farV;   // the others; empty where there are none
};

}  // namespace engine
}  // namespace sylvora

#endif  // SYLVORA_ENGINE_TRAIN_HISTOGRAM_ROWRANKS_H
