// Partitions a node's rows between its children, in the order in which the two cursors of the
// reference implementation leave them (RowExchange.h).
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

// Each worker has its own. With SetShared(true), idle workers join in chunks of rows. Call a Mark
// method or TakeMarks, then MoveInReferenceOrder, then, if needed, MoveInAscendingOrder, for one
// node at a time. A slice is [begin, begin + count).
class RowPartition {
  public:
    RowPartition(const BinnedColumns& columns, WorkerPool& workers, int rowsOfChunk)
        : data(columns), pool(workers), chunkRows(rowsOfChunk) {}

    // Whether idle workers may join in the following calls.
    void SetShared(bool share) { fShared = share; }

    // Marks the rows of rank lastRank or below as left in rows.fLeftV, and returns the split with
    // its threshold. Both sides must have rows.
    SplitPoint MarkByRank(TreeRows& rows, int begin, int count, int column, uint32_t lastRank);

    // Marks by value for a split that is known, and sets its fSlicesMatchThreshold.
    void MarkByValue(TreeRows& rows, int begin, int count, SplitPoint& split);

    // Takes the marks in rows.fLeftV as they are: of another worker, or of another rank. Needs
    // rows.fLeftOfRowV.
    void TakeMarks(TreeRows& rows, int begin, int count);

    // Moves the rows as last marked. The ascending order must be moved second, and only if it is
    // kept.
    void MoveInReferenceOrder(TreeRows& rows, int begin, int count, int countL);
    void MoveInAscendingOrder(TreeRows& rows, int begin, int count, const SplitPoint& split);

  private:
    // A row next to the split, with its rank and 8-bit code.
    struct Neighbour {
        int rank;
        int row;
        int code;
    };
    // For a chunk of rows, the neighbours of the split: the highest rank on its left and the lowest
    // on its right.
    struct Marked {
        Neighbour low = {-1, 0, -1};
        Neighbour high = {INT_MAX, 0, 256};
        int countL = 0;
    };
    // The codes of up to kBlockRows rows; see RowPartition.cpp.
    struct CodeBlock;
    // How 8-bit codes decide the sides of a split by rank. At most one code is undecided: it holds
    // ranks of both sides.
    struct Sides {
        // Null if the split is not by rank.
        const uint8_t* codes;
        // Of a column in a group of several: the bins of the codes, which then decide instead.
        const uint8_t* binOfCodeV;
        // Null if the code or the bin is the rank.
        const RowRanks* ranks;
        // Codes below this one go left.
        int pastLeft;
        // The code whose rows need their rank; -1 if none.
        int undecidedCode;
        // The highest rank that goes left.
        int lastRank;

        // The rank of a row of a wide column, given its code.
        int RankOf(int row, int code) const {
            return static_cast<int>(ranks->At(static_cast<size_t>(row), static_cast<size_t>(code)));
        }
    };

    // Work on a slice, by one worker or by chunks.
    Chunks ChunksOf(int count) const;
    template <typename Task>
    void ForChunks(int count, const Task& task);
    Sides SidesOf(const Column& column, uint32_t lastRank) const;
    Marked Mark(TreeRows& rows, int begin, int end) const;
    void UpdateNeighbours(const CodeBlock& block, const int* rowV, int count, Marked& marked) const;
    void DecideByRank(CodeBlock& block, const int* rowV, int count, Marked& marked) const;
    void CountMisplaced(const TreeRows& rows, int begin, int count, uint8_t fWrong,
                        std::vector<int>& beginV);
    template <typename MarkBlock>
    void MoveAscending(TreeRows& rows, int begin, int count, int countL,
                       const MarkBlock& markBlock);

    const BinnedColumns& data;
    WorkerPool& pool;
    const int chunkRows;
    bool fShared = false;
    // Of the last Mark call; MoveInAscendingOrder needs them.
    Sides sides = {};
    bool fMarksOfRows = false;    // rows.fLeftOfRowV has the marks
    std::vector<Marked> markedV;  // by chunk
    // Counts of left and of misplaced rows: before each chunk, then the total.
    std::vector<int> leftBeginV, wrongLeftV, wrongRightV;
};

}  // namespace engine
}  // namespace sylvora

#endif  // SYLVORA_ENGINE_TRAIN_HISTOGRAM_ROWPARTITION_H
