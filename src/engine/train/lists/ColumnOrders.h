// The rows of the data in the order of each column, made once and shared by trainings.
#ifndef SYLVORA_ENGINE_TRAIN_LISTS_COLUMNORDERS_H
#define SYLVORA_ENGINE_TRAIN_LISTS_COLUMNORDERS_H

#include <cstddef>
#include <cstdint>
#include <vector>

#include "base/LargeArray.h"
#include "base/WorkerPool.h"
#include "engine/train/Matrix.h"
#include "engine/train/ValueOrder.h"

namespace sylvora {
namespace engine {

// An entry of a list of rows. Its highest bit is set if the row's value is above the previous
// entry's: the list "rises" there, so a split may lie between the two. The first entry's bit has no
// meaning.
typedef uint32_t Entry;
constexpr Entry kRise = Entry{1} << 31;

inline uint32_t PositionOf(Entry entry) {
    return entry & ~kRise;
}
inline bool Rises(Entry entry) {
    return (entry & kRise) != 0;
}

// 4 bytes per value of the columns that are not constant. Immutable once made, so any number of
// threads may use it. The caller's values must outlive it. Constructors throw std::bad_alloc.
class ColumnOrders {
  public:
    enum class Form {
        kLists,  // all rows, as entries, in ascending order of values; rows of equal value ascend
        kRanks   // by row: the rank of its value; ranks may have gaps
    };

    ColumnOrders(const Matrix& data, Form wanted, WorkerPool& pool);
    // The orders of a matrix that has the rows rowV[0], rowV[1], ... of the matrix of `whole`, made
    // without sorting.
    ColumnOrders(const ColumnOrders& whole, const Matrix& data, const std::vector<int>& rowV,
                 WorkerPool& pool);

    const Matrix& Data() const { return matrix; }
    bool AreLists() const { return form == Form::kLists; }
    // Whether a column holds a NaN. Then there is no order, and nothing else may be used.
    bool HasNan() const { return fNan; }
    // Whether a regression split may lie between any two distinct values of the column.
    bool AllSeparable(int column) const { return fAllSeparableV[static_cast<size_t>(column)] != 0; }
    // Whether all rows have the same value. Such a column has no order: no split is in it.
    bool IsConstant(int column) const { return orderVV[static_cast<size_t>(column)].empty(); }
    const LargeArray<uint32_t>& Of(size_t column) const { return orderVV[column]; }

  private:
    void SetOrder(const ValueOrder& sorted, LargeArray<uint32_t>& orderV) const;
    static bool IsAllSeparable(const ValueOrder& sorted);

    const Matrix matrix;
    const Form form;
    bool fNan = false;
    std::vector<uint8_t> fAllSeparableV;
    std::vector<LargeArray<uint32_t>> orderVV;  // by column; empty if it is constant
};

}  // namespace engine
}  // namespace sylvora

#endif  // SYLVORA_ENGINE_TRAIN_LISTS_COLUMNORDERS_H
