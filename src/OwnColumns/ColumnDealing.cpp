// Sketches of values, and the dealing of columns; see ColumnDealing.h.
#include "ColumnDealing.h"

#include <algorithm>
#include <cstring>
#include <functional>
#include <numeric>
#include <queue>
#include <utility>

namespace sylvora {

// The bit is a multiplicative hash. The two zeros are one value.
void ValueSketch::Add(double value) {
    constexpr std::uint64_t kGolden = 0x9E3779B97F4A7C15;
    const double number = value + 0.0;
    std::uint64_t bits = 0;
    std::memcpy(&bits, &number, sizeof bits);
    bits ^= bits >> 32;
    const std::uint64_t bit = bits * kGolden >> 54;
    wordV[bit / 64] |= std::uint64_t{1} << bit % 64;
}

void ValueSketch::Add(const ValueSketch& other) {
    for (size_t i = 0; i < wordV.size(); ++i) wordV[i] |= other.wordV[i];
}

int ValueSketch::NumSet() const {
    int count = 0;
    for (const std::uint64_t word : wordV) count += __builtin_popcountll(word);
    return count;
}

// A constant column takes next to no time, but as much memory as any other.
int CostOfColumn(int numSet) {
    constexpr int kUnit = 4;
    if (numSet <= 1) return kUnit / 4;
    if (numSet <= 8) return kUnit;
    if (numSet <= 32) return kUnit + 1;
    return numSet <= 256 ? kUnit * 3 : kUnit * 6;
}

std::vector<int> DealColumns(const std::vector<int>& costV, int numRanks) {
    std::vector<int> orderV(costV.size());
    std::iota(orderV.begin(), orderV.end(), 0);
    std::stable_sort(orderV.begin(), orderV.end(), [&costV](int a, int b) {
        return costV[static_cast<size_t>(a)] > costV[static_cast<size_t>(b)];
    });
    typedef std::pair<std::int64_t, int> Load;  // the cost of a rank's columns so far, and the rank
    std::priority_queue<Load, std::vector<Load>, std::greater<Load>> loads;
    for (int rank = 0; rank < numRanks; ++rank) loads.push({0, rank});
    std::vector<int> ownerV(costV.size());
    for (const int column : orderV) {
        const Load least = loads.top();
        loads.pop();
        ownerV[static_cast<size_t>(column)] = least.second;
        loads.push({least.first + costV[static_cast<size_t>(column)], least.second});
    }
    return ownerV;
}

}  // namespace sylvora
