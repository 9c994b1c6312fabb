// Sorted once per run, kept sorted while a tree grows: for each column a list of a node's rows in
// the order of the column's values. When a node is split, its lists are parted without changing the
// order within the parts (Mehta, Agrawal and Rissanen 1996, SLIQ), so that no node sorts anything.
//
// Words. An entry is a row's number, and in its highest bit whether the row's value is above that
// of the entry before ("rises"): a cut can be there. The bit of a list's first entry means nothing.
// In a tree a row goes by its position in the tree's row index. That changes whenever its node is
// split; in return, all that is known of a node's rows lies together in memory.
#ifndef SYLVORA_ENGINE_ROWLISTS_H
#define SYLVORA_ENGINE_ROWLISTS_H

#include <cstddef>
#include <cstdint>
#include <vector>

#include "LargeArray.h"
#include "WorkerPool.h"

namespace sylvora {
namespace engine {

typedef uint32_t Entry;
constexpr Entry kRise = Entry{1} << 31;

inline uint32_t PositionOf(Entry entry) {
    return entry & ~kRise;
}
inline bool Rises(Entry entry) {
    return (entry & kRise) != 0;
}

// All rows of the training data in the order of each column: 4 bytes per value.
class ColumnOrders {
  public:
    // Sorts the columns of the matrix `rowV` (numRow rows of numColumn values). Throws
    // std::bad_alloc.
    ColumnOrders(const double* const* rowV, int numRow, int numColumn, WorkerPool& pool);

    int NumRows() const { return numRows; }
    int NumColumns() const { return static_cast<int>(orderVV.size()); }
    // A column holds a NaN: there is no order.
    bool HasNan() const { return fNan; }
    // Entries by row of the data.
    const LargeArray<Entry>& Of(int column) const { return orderVV[static_cast<size_t>(column)]; }
    // Whether a regression cut may come between any two distinct values of the column.
    bool IsClean(int column) const { return fCleanV[static_cast<size_t>(column)] != 0; }
    double Value(int row, int column) const { return rowV[row][column]; }

  private:
    bool SortColumn(int column);

    const double* const* rowV;
    int numRows;
    bool fNan = false;
    std::vector<LargeArray<Entry>> orderVV;
    std::vector<uint8_t> fCleanV;
};

// The lists of one tree. Those of a node are the stretch of its slice.
class RowLists {
  public:
    explicit RowLists(const ColumnOrders& columnOrders) : orders(columnOrders) {}

    // Lists the rows indexV[0..num), no row twice.
    void Take(const int* indexV, int num, WorkerPool& pool);

    // A column's list of the node whose slice begins at `begin`.
    const Entry* Of(int column, int begin) const {
        return entryV.data() + static_cast<size_t>(column) * stride + static_cast<size_t>(begin);
    }

    // Parts the stretch [begin, begin + count) of a column: rows that go to positions below
    // `middle` to the front, the others behind them. The row at position begin + i goes to toV[i].
    // `other` is room for count + 1 entries.
    void Part(int column, int begin, int count, const uint32_t* toV, int middle, Entry* other);

  private:
    void TakeColumn(int column);

    const ColumnOrders& orders;
    size_t stride = 0;               // entries from one column's list to the next
    LargeArray<Entry> entryV;        // by column
    LargeArray<uint32_t> positionV;  // by row of the data; the highest where the tree lacks it
};

}  // namespace engine
}  // namespace sylvora

#endif  // SYLVORA_ENGINE_ROWLISTS_H
