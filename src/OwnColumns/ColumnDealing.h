// Which rank owns which column.
#ifndef SYLVORA_OWNCOLUMNS_COLUMNDEALING_H
#define SYLVORA_OWNCOLUMNS_COLUMNDEALING_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace sylvora {

// About how many distinct values a column has: each value sets one of 1024 bits.
class ValueSketch {
  public:
    static constexpr int kNumBits = 1024;

    void Add(double value);
    void Add(const ValueSketch& other);
    int NumSet() const;

  private:
    std::array<std::uint64_t, kNumBits / 64> wordV{};
};

// What a training spends on a column, in units of a quarter of the time for a column of two values;
// `numSet` is that of its sketch. From measurements, see docs/scale-out.md.
int CostOfColumn(int numSet);

// Deals out columns: the costliest first, each to the rank with the least so far. Ties go to the
// lower column and the lower rank. Returns the rank of each column.
std::vector<int> DealColumns(const std::vector<int>& costV, int numRanks);

}  // namespace sylvora

#endif  // SYLVORA_OWNCOLUMNS_COLUMNDEALING_H
