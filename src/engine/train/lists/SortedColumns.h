// The lists that a tree grows on: a node's rows in the order of a column's values. There are two
// ways to have them:
//
//   KeptLists    sorted once per run and kept sorted while a tree grows: when a node is split, its
//                lists are parted without changing the order within the parts (Mehta, Agrawal and
//                Rissanen 1996, SLIQ). No node sorts anything, but all columns are parted.
//   SortedLists  made afresh for the columns that a node has drawn: for draws of few columns.
//
// Words. An entry is the position of a row in the tree's row index, and in its highest bit whether
// the row's value is above that of the entry before ("rises"): a cut can be there. The bit of a
// list's first entry means nothing. A row's position changes when its node is split; in return, all
// that is known of a node's rows lies together in memory.
#ifndef SYLVORA_ENGINE_TRAIN_LISTS_SORTEDCOLUMNS_H
#define SYLVORA_ENGINE_TRAIN_LISTS_SORTEDCOLUMNS_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "base/LargeArray.h"
#include "base/WorkerPool.h"
#include "engine/train/ValueOrder.h"

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

// The training data: numRow rows of numColumn values each, the caller's.
struct Matrix {
    const double* const* rowV;
    int numRows;
    int numColumns;
};

// A node's rows: those at the positions [begin, begin + count).
struct NodeRows {
    const std::vector<int>& rowV;  // the data's row at each position
    int begin;
    int count;
};

// Room for making a list.
struct ListRoom {
    std::vector<uint64_t> keyV;
    std::vector<uint64_t> otherV;
};

// Thread safety: List and Part may be called by several workers at once, Part for different columns
// or nodes.
class SortedColumns {
  public:
    virtual ~SortedColumns() = default;

    // Sorts the columns. Throws std::bad_alloc.
    static std::unique_ptr<SortedColumns> Make(const Matrix& data, bool fKept, WorkerPool& pool);

    const Matrix& Data() const { return matrix; }
    // A column holds a NaN: there is no order, and the lists must not be used.
    bool HasNan() const { return fNan; }
    // Whether a regression cut may come between any two distinct values of the column.
    bool IsClean(int column) const { return fCleanV[static_cast<size_t>(column)] != 0; }

    // Begins a tree on the rows indexV[0..num), no row twice.
    virtual void Take(const int* indexV, int num, WorkerPool& pool) = 0;
    virtual bool AreKept() const = 0;
    // A column's list of a node. Where lists are not kept it is made in `made`, which has room for
    // as many entries as there are rows.
    virtual const Entry* List(int column, const NodeRows& rows, ListRoom& room,
                              Entry* made) const = 0;
    // Parts a column's kept list of a node: rows that go to positions below `middle` come to the
    // front. The row at position begin + i goes to toV[i]. `other` is room for count + 1 entries.
    virtual void Part(int column, const NodeRows& rows, const uint32_t* toV, int middle,
                      Entry* other) = 0;

  protected:
    explicit SortedColumns(const Matrix& data)
        : matrix(data), fCleanV(static_cast<size_t>(data.numColumns), 1) {}

    // Calls visit(column, sorted) for each column, several at once.
    template <typename Visit>
    void SortColumns(WorkerPool& pool, const Visit& visit);

  private:
    static bool IsCleanOrder(const ValueOrder& sorted);

    const Matrix matrix;
    bool fNan = false;
    std::vector<uint8_t> fCleanV;
};

// 4 bytes per value of the data, and 4 per value of the tree's rows.
class KeptLists : public SortedColumns {
  public:
    KeptLists(const Matrix& data, WorkerPool& pool);

    void Take(const int* indexV, int num, WorkerPool& pool) override;
    bool AreKept() const override { return true; }
    const Entry* List(int column, const NodeRows& rows, ListRoom&, Entry*) const override {
        return entryV.data() + static_cast<size_t>(column) * stride +
               static_cast<size_t>(rows.begin);
    }
    void Part(int column, const NodeRows& rows, const uint32_t* toV, int middle,
              Entry* other) override;

  private:
    void TakeColumn(int column);

    std::vector<LargeArray<Entry>> orderVV;  // by column: all rows of the data, by their numbers
    size_t stride = 0;                       // entries from one column's list to the next
    LargeArray<Entry> entryV;                // by column
    LargeArray<uint32_t> positionV;  // by row of the data; the highest where the tree lacks it
};

// 4 bytes per value of the data.
class SortedLists : public SortedColumns {
  public:
    SortedLists(const Matrix& data, WorkerPool& pool);

    void Take(const int*, int, WorkerPool&) override {}
    bool AreKept() const override { return false; }
    const Entry* List(int column, const NodeRows& rows, ListRoom& room, Entry* made) const override;
    void Part(int, const NodeRows&, const uint32_t*, int, Entry*) override {}

  private:
    std::vector<LargeArray<uint32_t>> rankVV;  // by column and row: place among distinct values
};

}  // namespace engine
}  // namespace sylvora

#endif  // SYLVORA_ENGINE_TRAIN_LISTS_SORTEDCOLUMNS_H
