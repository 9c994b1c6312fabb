// The partition of a node's rows, with the outcome of the plain form's two cursors: the k-th row
// out of place in the left part changes places with the k-th row out of place in the right part.
#ifndef SYLVORA_ENGINE_ROWPARTITION_H
#define SYLVORA_ENGINE_ROWPARTITION_H

#include <climits>
#include <cstdint>
#include <vector>

#include "Columns.h"
#include "LargeArray.h"
#include "PlainSearch.h"
#include "WorkerPool.h"

namespace sylvora {
namespace engine {

// A tree's sampled rows in the order of its row index, with their gradients and weights. Weights
// are empty when all are 1.
struct TreeRows {
    LargeArray<int> indexV;
    LargeArray<double> gradV;
    LargeArray<int> weightV;
    LargeArray<uint8_t> fLeftV;  // scratch: which side a row belongs to
};

class RowPartition {
  public:
    // With a pool, long slices are shared out among its workers.
    RowPartition(const Columns& columns, WorkerPool* workers) : data(columns), pool(workers) {}

    // Turns "rank at most lastRank goes left" into a split point for the rows [begin, begin +
    // count) and notes in fLeftV what goes where.
    SplitPoint MarkByRank(TreeRows& rows, int begin, int count, int column, uint32_t lastRank);

    // The same for a split point that is known; fSlicesTrue is set.
    void MarkByValue(TreeRows& rows, int begin, int count, SplitPoint& split);

    // Moves the rows as marked.
    void Move(TreeRows& rows, int begin, int count, int countL);

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

    template <typename Task>
    void ForChunks(int count, const Task& task);
    Marked Mark(TreeRows& rows, int begin, int end, int column, uint32_t lastRank) const;
    int ListMisplaced(const TreeRows& rows, int begin, int count, uint8_t fLeft,
                      std::vector<int>& placeV);

    const Columns& data;
    WorkerPool* pool;
    std::vector<int> wrongLeftV, wrongRightV;
    std::vector<Marked> markedV;  // by chunk
    std::vector<int> countV;      // by chunk
};

}  // namespace engine
}  // namespace sylvora

#endif  // SYLVORA_ENGINE_ROWPARTITION_H
