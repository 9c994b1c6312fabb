// Sorts the rows of a column by value.
#ifndef SYLVORA_ENGINE_TRAIN_VALUEORDER_H
#define SYLVORA_ENGINE_TRAIN_VALUEORDER_H

#include <cstddef>
#include <cstdint>

#include "Matrix.h"
#include "base/LargeArray.h"

namespace sylvora {
namespace engine {

// Sorts one column at a time. -0.0 and 0.0 count as one value. Sorts by the high 32 bits of each
// value's key first, which nearly always decides, and by the low 32 bits only within equal high
// bits. Takes 20 bytes per row and reuses them for the next column. Not thread-safe: each worker
// has its own.
class ValueOrder {
  public:
    // Sorts a column. Returns false if it holds a NaN, which has no order.
    bool Load(const Matrix& matrix, int column);

    size_t Count() const { return itemV.size(); }
    // The row with the i-th smallest value. Rows of equal value ascend.
    size_t Row(size_t i) const { return static_cast<uint32_t>(itemV[i]); }
    // The i-th smallest value; 0.0 for -0.0. Decoded from its key, which is cheaper than reading
    // the matrix.
    double Value(size_t i) const;
    bool IsEqualToPrevious(size_t i) const { return keyV[i] == keyV[i - 1]; }

  private:
    void SortLowHalves();

    // (high half of the key, row), sorted.
    LargeArray<uint64_t> itemV;
    // Whole keys, sorted; during the sort, a buffer.
    LargeArray<uint64_t> keyV;
    // Low half of the key, by row.
    LargeArray<uint32_t> lowV;
};

}  // namespace engine
}  // namespace sylvora

#endif  // SYLVORA_ENGINE_TRAIN_VALUEORDER_H
