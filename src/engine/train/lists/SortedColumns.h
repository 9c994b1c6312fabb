// Sorted lists: the rows of a node in the order of a column's values. There are two kinds:
//
//   KeptLists    Sorted before a run, and kept sorted while a tree grows: splitting a node stably
//                partitions its lists (Mehta, Agrawal and Rissanen 1996, SLIQ). No node sorts, but
//                every column is partitioned.
//   SortedLists  Made at each node, for the sampled columns. Pays where few columns are sampled.
//
// An entry of a list (ColumnOrders.h) has a row's position in the tree's row index. Splitting a
// node moves its rows to new positions, so that all data of a node's rows stay contiguous.
#ifndef SYLVORA_ENGINE_TRAIN_LISTS_SORTEDCOLUMNS_H
#define SYLVORA_ENGINE_TRAIN_LISTS_SORTEDCOLUMNS_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <utility>
#include <vector>

#include "ColumnOrders.h"
#include "base/LargeArray.h"
#include "base/WorkerPool.h"

namespace sylvora {
namespace engine {

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

    // Lists for one training at a time: KeptLists if `orders` are lists, otherwise SortedLists.
    static std::unique_ptr<SortedColumns> Make(std::shared_ptr<const ColumnOrders> orders);

    const Matrix& Data() const { return orders->Data(); }
    // As ColumnOrders has them.
    bool HasNan() const { return orders->HasNan(); }
    bool AllSeparable(int column) const { return orders->AllSeparable(column); }

    // Whether no split is in a column. Then it has no list.
    bool IsConstant(int column) const { return orders->IsConstant(column); }

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

    explicit SortedColumns(std::shared_ptr<const ColumnOrders> columnOrders)
        : orders(std::move(columnOrders)) {}

  protected:
    const std::shared_ptr<const ColumnOrders> orders;
};

// Takes 4 bytes per value of the tree's rows, beside the orders, but none for constant columns.
class KeptLists : public SortedColumns {
  public:
    explicit KeptLists(std::shared_ptr<const ColumnOrders> columnOrders);

    void Take(const int* indexV, int num, WorkerPool& pool) override;
    bool AreKept() const override { return true; }
    const Entry* List(int column, const NodeRows& rows, ListBuffers&, Entry*) const override {
        return entryV.data() + Offset(column) + static_cast<size_t>(rows.begin);
    }
    void Partition(int column, const NodeRows& rows, const uint32_t* toV, int middle,
                   Entry* other) override;

  private:
    void TakeColumn(int column);
    size_t Offset(int column) const { return listOfV[static_cast<size_t>(column)] * stride; }

    // Entries from one column's list to the next.
    size_t stride = 0;
    // By column: its number among those that are not constant.
    std::vector<size_t> listOfV;
    size_t numLists = 0;
    // By that number: the nodes' lists, at their positions.
    LargeArray<Entry> entryV;
    // By row of the data; kAbsent if not in the tree.
    LargeArray<uint32_t> positionV;
};

// Takes no memory beside the orders.
class SortedLists : public SortedColumns {
  public:
    using SortedColumns::SortedColumns;

    void Take(const int*, int, WorkerPool&) override {}
    bool AreKept() const override { return false; }
    const Entry* List(int column, const NodeRows& rows, ListBuffers& buffers,
                      Entry* made) const override;
    void Partition(int, const NodeRows&, const uint32_t*, int, Entry*) override {}
};

}  // namespace engine
}  // namespace sylvora

#endif  // SYLVORA_ENGINE_TRAIN_LISTS_SORTEDCOLUMNS_H
