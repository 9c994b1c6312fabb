// The partition of a node's rows, with the outcome of the plain form's two cursors: the k-th row
// out of place in the left part changes places with the k-th row out of place in the right part.
#ifndef SYLVORA_ENGINE_ROWPARTITION_H
#define SYLVORA_ENGINE_ROWPARTITION_H

#include <cstdint>
#include <vector>

#include "Columns.h"

namespace sylvora {
namespace engine {

// A tree's sampled rows in the order of its row index, with their gradients and weights. Weights
// are empty when all are 1.
struct TreeRows {
    std::vector<int> indexV;
    std::vector<double> gradV;
    std::vector<int> weightV;
    std::vector<uint8_t> fLeftV;  // scratch: which side a row belongs to
};

// A cut with its threshold, as the plain form records it.
struct SplitPoint {
    int column = -1;
    double threshold = -1.0;
    int countL = 0;
    bool fSlicesTrue = true;  // rows at or below the threshold are exactly those of the left part
};

class RowPartition {
  public:
    explicit RowPartition(const Columns& columns) : data(columns) {}

    // Turns "rank at most lastRank goes left" into a split point for the rows [begin, begin +
    // count) and notes in fLeftV what goes where.
    SplitPoint MarkByRank(TreeRows& rows, int begin, int count, int column, uint32_t lastRank);

    // The same for a split point that is known; fSlicesTrue is set.
    void MarkByValue(TreeRows& rows, int begin, int count, SplitPoint& split);

    // Moves the rows as marked.
    void Move(TreeRows& rows, int begin, int count, int countL);

  private:
    template <typename Rank>
    SplitPoint Mark(TreeRows& rows, int begin, int count, const Rank* rankV, uint32_t lastRank,
                    int column);

    const Columns& data;
    std::vector<int> wrongLeftV, wrongRightV;
};

}  // namespace engine
}  // namespace sylvora

#endif  // SYLVORA_ENGINE_ROWPARTITION_H
