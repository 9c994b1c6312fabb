// The partition of a node's rows, with the outcome of the plain form's two cursors: the k-th row
// out of place in the left part changes places with the k-th row out of place in the right part.
#ifndef SYLVORA_ENGINE_ROWPARTITION_H
#define SYLVORA_ENGINE_ROWPARTITION_H

#include <climits>
#include <cstdint>
#include <vector>

#include "Columns.h"
#include "GrownTree.h"
#include "TreeRows.h"
#include "WorkerPool.h"

namespace sylvora {
namespace engine {

class RowPartition {
  public:
    // With a pool, long slices are shared out among its workers.
    RowPartition(const Columns& columns, WorkerPool* workers) : data(columns), pool(workers) {}

    // Turns "rank at most lastRank goes left" into a split point for the slice [begin, begin +
    // count) and notes in fLeftV what goes where.
    SplitPoint MarkByRank(TreeRows& rows, int begin, int count, int column, uint32_t lastRank);

    // The same for a split point that is known; fSlicesTrue is set.
    void MarkByValue(TreeRows& rows, int begin, int count, SplitPoint& split);

    // Moves the rows as last marked: in the plain order, and, where a son is open to be searched
    // and the rows are kept so, in the ascending one.
    void Move(TreeRows& rows, int begin, int count, const SplitPoint& split, bool fOpenSons);

  private:
    struct Neighbour {
        int rank;
        int row;
    };
    // What a stretch of rows says of a cut: the highest rank left of it, the lowest right of it.
    struct Marked {
        Neighbour low = {-1, 0};
        Neighbour high = {INT_MAX, 0};
        int countL = 0;
    };
    struct ByteBlock;
    // The sides of a cut by rank: a row's byte decides, but for one.
    struct Sides {
        const uint8_t* bytes;  // null: the cut is not by rank
        const uint32_t* ranks;
        int pastSure;  // bytes below go left
        int unsure;    // the byte that leaves it to the rank; -1: none does
        int lastRank;

        bool IsLeft(int row) const {
            const int byte = bytes[row];
            return byte == unsure ? static_cast<int>(ranks[row]) <= lastRank : byte < pastSure;
        }
    };

    template <typename Task>
    void ForChunks(int count, const Task& task);
    static Sides SidesOf(const Column& column, uint32_t lastRank);
    Marked Mark(TreeRows& rows, int begin, int end) const;
    void SeeBytes(const ByteBlock& block, const int* rowV, int count, Marked& marked) const;
    void SeeRanks(ByteBlock& block, const int* rowV, int count, Marked& marked) const;
    void MoveInPlainOrder(TreeRows& rows, int begin, int count, int countL);
    int ListMisplaced(const TreeRows& rows, int begin, int count, uint8_t fLeft,
                      std::vector<int>& placeV);
    template <typename IsLeft>
    void MoveInAscendingOrder(TreeRows& rows, int begin, int count, int countL,
                              const IsLeft& isLeft);

    const Columns& data;
    WorkerPool* pool;
    Sides sides = {};
    std::vector<int> wrongLeftV, wrongRightV;
    std::vector<Marked> markedV;  // by chunk
    std::vector<int> countV;      // by chunk
};

}  // namespace engine
}  // namespace sylvora

#endif  // SYLVORA_ENGINE_ROWPARTITION_H
