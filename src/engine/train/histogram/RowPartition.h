// The partition of a node's rows, with the outcome of the plain form's two cursors: the k-th row
// out of place in the left part changes places with the k-th row out of place in the right part.
#ifndef SYLVORA_ENGINE_TRAIN_HISTOGRAM_ROWPARTITION_H
#define SYLVORA_ENGINE_TRAIN_HISTOGRAM_ROWPARTITION_H

#include <climits>
#include <cstdint>
#include <vector>

#include "BinnedColumns.h"
#include "TreeRows.h"
#include "base/Chunks.h"
#include "base/WorkerPool.h"
#include "engine/train/GrownTree.h"

namespace sylvora {
namespace engine {

class RowPartition {
  public:
    RowPartition(const BinnedColumns& columns, WorkerPool& workers, int rowsOfChunk)
        : data(columns), pool(workers), chunkRows(rowsOfChunk) {}

    // Whether idle workers may join in what follows, in chunks of rows.
    void SetShared(bool share) { fShared = share; }

    // Turns "rank at most lastRank goes left" into a split point for the slice [begin, begin +
    // count) and notes in fLeftV what goes where.
    SplitPoint MarkByRank(TreeRows& rows, int begin, int count, int column, uint32_t lastRank);

    // The same for a split point that is known; fSlicesTrue is set.
    void MarkByValue(TreeRows& rows, int begin, int count, SplitPoint& split);

    // Moves the rows as last marked, first in the plain order, then in the ascending one, which
    // must be kept.
    void MoveInPlainOrder(TreeRows& rows, int begin, int count, int countL);
    void MoveInAscendingOrder(TreeRows& rows, int begin, int count, const SplitPoint& split);

  private:
    struct Neighbour {
        int rank;
        int row;
        int byte;
    };
    // What a stretch of rows says of a cut: the highest rank left of it, the lowest right of it.
    struct Marked {
        Neighbour low = {-1, 0, -1};
        Neighbour high = {INT_MAX, 0, 256};
        int countL = 0;
    };
    struct ByteBlock;
    class Misplaced;
    // The sides of a cut by rank: a row's byte decides, but for one.
    struct Sides {
        const uint8_t* bytes;   // null: the cut is not by rank
        const RowRanks* ranks;  // null: the byte is the rank
        int pastSure;           // bytes below go left
        int unsure;             // the byte that leaves it to the rank; -1: none does
        int lastRank;

        // Of a row of a wide column that has this byte.
        int RankOf(int row, int byte) const {
            return static_cast<int>(ranks->At(static_cast<size_t>(row), static_cast<size_t>(byte)));
        }
    };

    Chunks ChunksOf(int count) const;
    template <typename Task>
    void ForChunks(int count, const Task& task);
    static Sides SidesOf(const Column& column, uint32_t lastRank);
    Marked Mark(TreeRows& rows, int begin, int end) const;
    void SeeBytes(const ByteBlock& block, const int* rowV, int count, Marked& marked) const;
    void SeeRanks(ByteBlock& block, const int* rowV, int count, Marked& marked) const;
    void CountMisplaced(const TreeRows& rows, int begin, int count, uint8_t fWrong,
                        std::vector<int>& beginV);
    template <typename MarkBlock>
    void MoveAscending(TreeRows& rows, int begin, int count, int countL,
                       const MarkBlock& markBlock);

    const BinnedColumns& data;
    WorkerPool& pool;
    const int chunkRows;
    bool fShared = false;
    Sides sides = {};
    std::vector<Marked> markedV;                           // by chunk
    std::vector<int> leftBeginV, wrongLeftV, wrongRightV;  // numbers before each chunk
};

}  // namespace engine
}  // namespace sylvora

#endif  // SYLVORA_ENGINE_TRAIN_HISTOGRAM_ROWPARTITION_H
