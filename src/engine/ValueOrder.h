// The rows of a column in the order of its values.
#ifndef SYLVORA_ENGINE_VALUEORDER_H
#define SYLVORA_ENGINE_VALUEORDER_H

#include <cstddef>
#include <cstdint>
#include <vector>

namespace sylvora {
namespace engine {

// Sorts one column at a time; -0.0 and 0.0 are one value. Sorting is by the high halves of the
// values' keys first, which mostly settle it; only where they agree are the low halves looked at.
class ValueOrder {
  public:
    // Sorts column `column` of the matrix `rowV`; false when it holds a NaN, which has no place.
    bool Load(const double* const* rowV, int numRows, int column);

    size_t Count() const { return itemV.size(); }
    // The row with the i-th smallest value; equal values are in the order of their rows.
    size_t Row(size_t i) const { return static_cast<uint32_t>(itemV[i]); }
    // That value; 0.0 for -0.0. Cheaper than to look it up in the matrix.
    double Value(size_t i) const;
    bool IsEqualToPrevious(size_t i) const {
        return (itemV[i] >> 32) == (itemV[i - 1] >> 32) && lowV[Row(i)] == lowV[Row(i - 1)];
    }

  private:
    void SortLowHalves();

    std::vector<uint64_t> itemV;  // high half of the key, row
    std::vector<uint64_t> otherV;
    std::vector<uint32_t> lowV;  // low half, by row
};

}  // namespace engine
}  // namespace sylvora

#endif  // SYLVORA_ENGINE_VALUEORDER_H
