// Lists of rows in the order of columns; see RowLists.h.
#include "RowLists.h"

#include <algorithm>
#include <atomic>

#include "Columns.h"
#include "ValueOrder.h"

namespace sylvora {
namespace engine {
namespace {

constexpr uint32_t kAbsent = kRise - 1;
constexpr int kLineEntries = 64 / sizeof(Entry);
constexpr int kAhead = 6 * kLineEntries;

}  // namespace

ColumnOrders::ColumnOrders(const double* const* rows, int numRow, int numColumn, WorkerPool& pool)
    : rowV(rows),
      numRows(numRow),
      orderVV(static_cast<size_t>(numColumn)),
      fCleanV(static_cast<size_t>(numColumn), 1) {
    std::atomic<bool> fFoundNan{false};
    pool.For(numColumn, [&](int column, int) {
        if (!SortColumn(column)) fFoundNan = true;
    });
    fNan = fFoundNan;
}

// False when the column holds a NaN.
bool ColumnOrders::SortColumn(int column) {
    ValueOrder sorted;
    if (!sorted.Load(rowV, numRows, column)) return false;
    LargeArray<Entry>& orderV = orderVV[static_cast<size_t>(column)];
    orderV.resize(sorted.Count());
    double previous = 0.0;
    for (size_t i = 0; i < sorted.Count(); ++i) {
        const size_t row = sorted.Row(i);
        const double value = rowV[row][column];
        const bool fRise = i == 0 || !sorted.IsEqualToPrevious(i);
        orderV[i] = static_cast<Entry>(row) | (fRise ? kRise : 0);
        if (i > 0 && fRise && !IsSeparable(previous, value)) {
            fCleanV[static_cast<size_t>(column)] = 0;
        }
        previous = value;
    }
    return true;
}

void RowLists::Take(const int* indexV, int num, WorkerPool& pool) {
    // An odd number of cache lines apart, so that the same stretch of all columns does not compete
    // for one place in the cache; with room for the entry that Part writes past the end.
    const size_t numLines = static_cast<size_t>(num / kLineEntries) + 1;
    stride = (numLines | 1) * kLineEntries;
    entryV.resize(stride * static_cast<size_t>(orders.NumColumns()));
    positionV.assign(static_cast<size_t>(orders.NumRows()), kAbsent);
    for (int i = 0; i < num; ++i) {
        positionV[static_cast<size_t>(indexV[i])] = static_cast<uint32_t>(i);
    }
    pool.For(orders.NumColumns(), [&](int column, int) { TakeColumn(column); });
}

// An entry that is left out hands its rise on to the next one that is not.
void RowLists::TakeColumn(int column) {
    Entry* to = entryV.data() + static_cast<size_t>(column) * stride;
    Entry rise = 0;
    for (const Entry entry : orders.Of(column)) {
        const uint32_t position = positionV[PositionOf(entry)];
        rise |= entry & kRise;
        *to = position | rise;
        const bool fPresent = position != kAbsent;
        to += fPresent;
        rise = fPresent ? 0 : rise;
    }
}

// Both parts are written at every step, one of them for good: there is nothing to predict. Writing
// to the front is safe because no more entries have been written than read.
void RowLists::Part(int column, int begin, int count, const uint32_t* toV, int middle,
                    Entry* other) {
    Entry* const list =
        entryV.data() + static_cast<size_t>(column) * stride + static_cast<size_t>(begin);
    const uint32_t* const toOf = toV - begin;
    const uint32_t firstRight = static_cast<uint32_t>(middle);
    // The next node's stretch follows in each column: too many runs for the processor to foresee.
    for (int i = kLineEntries; i < std::min(count, kAhead) + kLineEntries; i += kLineEntries) {
        __builtin_prefetch(list + count + i);
    }
    Entry* left = list;
    Entry* right = other;
    Entry riseL = 0;
    Entry riseR = 0;
    for (int i = 0; i < count; ++i) {
        const Entry entry = list[i];
        const uint32_t to = toOf[PositionOf(entry)];
        const bool fLeft = to < firstRight;
        riseL |= entry & kRise;
        riseR |= entry & kRise;
        *left = to | riseL;
        *right = to | riseR;
        left += fLeft;
        right += !fLeft;
        riseL = fLeft ? 0 : riseL;
        riseR = fLeft ? riseR : 0;
    }
    std::copy(other, right, left);
}

}  // namespace engine
}  // namespace sylvora
