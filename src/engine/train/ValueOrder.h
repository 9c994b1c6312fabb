// The rows of a column in the order of its values.
#ifndef SYLVORA_ENGINE_TRAIN_VALUEORDER_H
#define SYLVORA_ENGINE_TRAIN_VALUEORDER_H

#include <cstddef>
#include <cstdint>

#include "base/LargeArray.h"

namespace sylvora {
namespace engine {

// Sorts one column at a time; -0.0 and 0.0 are one value. Sorting is by the high halves of the
// values' keys first, which mostly settle it; only where they agree are the low halves looked at.
// Takes 20 bytes per row, which are used again for the next column.
class ValueOrder {
  public:
    // Sorts column `column` of the matrix `rowV`; false when it holds a NaN, which has no place.
    bool Load(const double* const* rowV, int numRows, int column);

    size_t Count() const { return itemV.size(); }
    // The row with the i-th smallest value; equal values are in the order of their rows.
    size_t Row(size_t i) const { return static_cast<uint32_t>(itemV[i]); }
    // That value; 0.0 for -0.0. Cheaper than to look it up in the matrix.
    double Value(size_t i) const;
    bool IsEqualToPrevious(size_t i) const { return keyV[i] == keyV[i - 1]; }

  private:
    void SortLowHalves();

    LargeArray<uint64_t> itemV;  // high half of the key, row
    LargeArray<uint64_t> keyV;   // in order; room to work in until then
    LargeArray<uint32_t> lowV;   // low half, by row
};

}  // namespace engine
}  // namespace sylvora

#endif  // SYLVORA_ENGINE_TRAIN_VALUEORDER_H
