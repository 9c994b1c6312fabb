// Sorted lists: the rows of a node in the order of a column's values. There are two kinds:
//
//   KeptLists    Sorted once per run, and kept sorted while a tree grows: splitting a node stably
//                partitions its lists (Mehta, Agrawal and Rissanen 1996, SLIQ). No node sorts, but
//                every column is partitioned.
//   SortedLists  Made at each node, for the sampled columns. Pays where few columns are sampled.
//
// An entry of a list is a row's position in the tree's row index. Its highest bit is set if the
// row's value is above the previous entry's (the list "rises" there, so a split may lie between the
// two). The first entry's bit has no meaning. Splitting a node moves its rows to new positions, so
// that all data of a node's rows stay contiguous.
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

// The training data: numRows rows of numColumns values. The caller owns them.
struct Matrix {
    const double* const* rowV;
    int numRows;
    int numColumns;
};

// A node's rows: positions [begin, begin + count) of the tree's row index.
struct NodeRows {
    // By position: the row of the data.
    const std::vector<int>& rowV;
    int begin;
    int count;
};

// A worker's buffers for making a list.
struct ListBuffers {
    std::vector<uint64_t> keyV;
    std::vector<uint64_t> otherV;
};

// Thread safety: List and Partition may be called by several workers at once, Partition for
// different columns or nodes.
class SortedColumns {
  public:
    virtual ~SortedColumns() = default;

    // Sorts the columns. The caller's matrix must outlive the result. Throws std::bad_alloc.
    static std::unique_ptr<SortedColumns> Make(const Matrix& data, bool fKept, WorkerPool& pool);

    const Matrix& Data() const { return matrix; }
    // Whether a column holds a NaN. Then there is no order, and the lists must not be used.
    bool HasNan() const { return fNan; }
    // Whether a regression split may lie between any two distinct values of the column.
    bool AllSeparable(int column) const { return fAllSeparableV[static_cast<size_t>(column)] != 0; }

    // Starts a tree on the rows indexV[0..num), all distinct.
    virtual void Take(const int* indexV, int num, WorkerPool& pool) = 0;
    virtual bool AreKept() const = 0;
    // Returns a node's list of a column. KeptLists returns its own; it is valid until the node is
    // partitioned. SortedLists fills `made`, of rows.count entries, and returns it.
    virtual const Entry* List(int column, const NodeRows& rows, ListBuffers& buffers,
                              Entry* made) const = 0;
    // Stably partitions a node's list of a column: entries that move to a position below `middle`
    // come first. The row at position rows.begin + i moves to toV[i]. `other` is a buffer of
    // rows.count + 1 entries.
    virtual void Partition(int column, const NodeRows& rows, const uint32_t* toV, int middle,
                           Entry* other) = 0;

  protected:
    explicit SortedColumns(const Matrix& data)
        : matrix(data), fAllSeparableV(static_cast<size_t>(data.numColumns), 1) {}

    // Calls visit(column, sorted) for each column, from several workers at once.
    template <typename Visit>
    void SortColumns(WorkerPool& pool, const Visit& visit);

  private:
    static bool IsAllSeparable(const ValueOrder& sorted);

    const Matrix matrix;
    bool fNan = false;
    std::vector<uint8_t> fAllSeparableV;
};

// Takes 4 bytes per value of the data, and 4 per value of the tree's rows.
class KeptLists : public SortedColumns {
  public:
    KeptLists(const Matrix& data, WorkerPool& pool);

    void Take(const int* indexV, int num, WorkerPool& pool) override;
    bool AreKept() const override { return true; }
    const Entry* List(int column, const NodeRows& rows, ListBuffers&, Entry*) const override {
        return entryV.data() + static_cast<size_t>(column) * stride +
               static_cast<size_t>(rows.begin);
    }
    void Partition(int column, const NodeRows& rows, const uint32_t* toV, int middle,
                   Entry* other) override;

  private:
    void TakeColumn(int column);

    // By column: all rows of the data, by row number.
    std::vector<LargeArray<Entry>> orderVV;
    // Entries from one column's list to the next.
    size_t stride = 0;
    // By column: the nodes' lists, at their positions.
    LargeArray<Entry> entryV;
    // By row of the data; kAbsent if not in the tree.
    LargeArray<uint32_t> positionV;
};

// Takes 4 bytes per value of the data.
class SortedLists : public SortedColumns {
  public:
    SortedLists(const Matrix& data, WorkerPool& pool);

    void Take(const int*, int, WorkerPool&) override {}
    bool AreKept() const override { return false; }
    const Entry* List(int column, const NodeRows& rows, ListBuffers& buffers,
                      Entry* made) const override;
    void Partition(int, const NodeRows&, const uint32_t*, int, Entry*) override {}

  private:
    std::vector<LargeArray<uint32_t>> rankVV;  // by column and row
};

}  // namespace engine
}  // namespace sylvora

#endif  // SYLVORA_ENGINE_TRAIN_LISTS_SORTEDCOLUMNS_H
