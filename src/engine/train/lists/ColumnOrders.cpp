// Sorting the columns, and the orders of some of the rows; see ColumnOrders.h.
#include "ColumnOrders.h"

#include <algorithm>
#include <atomic>

#include "engine/train/ColumnSorting.h"
#include "engine/train/Separable.h"

namespace sylvora {
namespace engine {
namespace {

// The rows of a subset, by the row of the whole that they are.
class SubsetRows {
  public:
    SubsetRows(const std::vector<int>& rowV, int numWhole)
        : endV(static_cast<size_t>(numWhole) + 1, 0), memberV(rowV.size()) {
        for (const int row : rowV) ++endV[static_cast<size_t>(row) + 1];
        for (size_t row = 1; row < endV.size(); ++row) endV[row] += endV[row - 1];
        // endV[row] is the place of the next member of `row`; afterwards, the end of its members.
        for (size_t i = 0; i < rowV.size(); ++i) {
            memberV[endV[static_cast<size_t>(rowV[i])]++] = static_cast<uint32_t>(i);
        }
    }
    // Appends the members of a row, in ascending order.
    void Append(uint32_t row, std::vector<uint32_t>& toV) const {
        const uint32_t begin = row == 0 ? 0 : endV[row - 1];
        for (uint32_t i = begin; i < endV[row]; ++i) toV.push_back(memberV[i]);
    }

  private:
    std::vector<uint32_t> endV;
    std::vector<uint32_t> memberV;
};

}  // namespace

ColumnOrders::ColumnOrders(const Matrix& data, Form wanted, WorkerPool& pool)
    : matrix(data),
      form(wanted),
      fAllSeparableV(static_cast<size_t>(data.NumColumns()), 1),
      orderVV(static_cast<size_t>(data.NumColumns())) {
    std::atomic<bool> fFoundNan{false};
    std::vector<ValueOrder> sortedV(static_cast<size_t>(pool.NumWorkers()));
    ForSortedColumns(pool, matrix.NumColumns(), [&](int column, int worker) {
        if (matrix.IsConstant(column)) return;
        ValueOrder& sorted = sortedV[static_cast<size_t>(worker)];
        if (!sorted.Load(matrix, column)) {
            fFoundNan = true;
            return;
        }
        fAllSeparableV[static_cast<size_t>(column)] = IsAllSeparable(sorted);
        SetOrder(sorted, orderVV[static_cast<size_t>(column)]);
    });
    fNan = fFoundNan;
}

void ColumnOrders::SetOrder(const ValueOrder& sorted, LargeArray<uint32_t>& orderV) const {
    orderV.resize(sorted.Count());
    uint32_t rank = 0;
    for (size_t i = 0; i < orderV.size(); ++i) {
        const bool fRise = i > 0 && !sorted.IsEqualToPrevious(i);
        rank += fRise;
        if (AreLists()) {
            orderV[i] = static_cast<Entry>(sorted.Row(i)) | (fRise ? kRise : 0);
        } else {
            orderV[sorted.Row(i)] = rank;
        }
    }
}

// Whether all neighbouring distinct values of a column are separable.
bool ColumnOrders::IsAllSeparable(const ValueOrder& sorted) {
    if (sorted.Count() == 0) return true;
    double previous = sorted.Value(0);
    for (size_t i = 1; i < sorted.Count(); ++i) {
        const double value = sorted.Value(i);
        if (!sorted.IsEqualToPrevious(i) && !IsSeparable(previous, value)) return false;
        previous = value;
    }
    return true;
}

// Lists: each run of equal values of the whole becomes a run of its members here, in ascending
// order of rows.
ColumnOrders::ColumnOrders(const ColumnOrders& whole, const Matrix& data,
                           const std::vector<int>& rowV, WorkerPool& pool)
    : matrix(data),
      form(whole.form),
      fNan(whole.fNan),
      fAllSeparableV(whole.fAllSeparableV),
      orderVV(whole.orderVV.size()) {
    if (fNan) return;
    const SubsetRows members(rowV, whole.matrix.NumRows());
    pool.For(matrix.NumColumns(), [&](int column, int) {
        if (whole.IsConstant(column)) return;
        const LargeArray<uint32_t>& from = whole.Of(static_cast<size_t>(column));
        LargeArray<uint32_t>& to = orderVV[static_cast<size_t>(column)];
        to.resize(rowV.size());
        if (!AreLists()) {
            for (size_t i = 0; i < to.size(); ++i) to[i] = from[static_cast<size_t>(rowV[i])];
            return;
        }
        std::vector<uint32_t> runV;
        size_t numDone = 0;
        for (size_t begin = 0, end = 0; begin < from.size(); begin = end) {
            runV.clear();
            do members.Append(PositionOf(from[end]), runV);
            while (++end < from.size() && !Rises(from[end]));
            if (!std::is_sorted(runV.begin(), runV.end())) std::sort(runV.begin(), runV.end());
            for (size_t i = 0; i < runV.size(); ++i) {
                to[numDone] = runV[i] | (i == 0 && numDone > 0 ? kRise : 0);
                ++numDone;
            }
        }
    });
}

}  // namespace engine
}  // namespace sylvora
