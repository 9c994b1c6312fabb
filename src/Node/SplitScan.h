// The scan of one column of a node: tries the candidate splits between neighbouring values and
// keeps the best. All searches of Node, threaded or not, and the engine's reference search use it.
//
// Nothing here is shared between threads: each worker has its own column and its own best split.
#ifndef SYLVORA_NODE_SPLITSCAN_H
#define SYLVORA_NODE_SPLITSCAN_H

#include <cstddef>
#include <vector>

#include "engine/train/Matrix.h"
#include "engine/train/NarrowSplit.h"

namespace sylvora {

// A candidate split of a node. The defaults mean that there is none.
struct CandidateSplit {
    double score = -1.0;
    int slot = -1;            // position of the column in the node's sample
    int column = -1;          // 0-based column
    double threshold = -1.0;  // midpoint of the two neighbouring values
    bool fNarrow = false;     // see engine/train/NarrowSplit.h
    int countL = 0;           // rows with a value at or below the threshold
    double balance = 0.0;     // |left fraction of the rows - 0.5|; classification only
};

// The values of one column in the rows of a node, in ascending order. Owns its buffers, which are
// reused from column to column.
class SortedColumn {
  public:
    explicit SortedColumn(int numRows);

    // Gathers `column` from the rows rowV[0, numRows) and sorts it. featureVV[row][column].
    void Load(const double* const* featureVV, const int* rowV, int column);
    void Load(const engine::Matrix& matrix, const int* rowV, int column);

    int Count() const { return static_cast<int>(valueV.size()); }
    double Value(int i) const { return valueV[static_cast<size_t>(i)]; }
    // The position in the node's slice of the row with the i-th smallest value.
    size_t Position(int i) const { return static_cast<size_t>(orderV[static_cast<size_t>(i)]); }
    // Whether to scan the column. True unless it is empty, begins or ends with NaN, or is constant
    // and so large that adding kGap changes nothing. Other constant columns are scanned, without
    // any candidate.
    bool IsScanned() const;
    // Sets the threshold of `split` to the midpoint of the i-th smallest value and the next. The
    // midpoint may overflow, or round to one of the two values.
    void SetThreshold(int i, CandidateSplit& split) const {
        split.threshold = (Value(i) + Value(i + 1)) * 0.5;
        split.fNarrow = engine::IsNarrow(Value(i), Value(i + 1));
    }

  private:
    std::vector<double> valueV;  // sorted
    std::vector<int> orderV;     // positions in the slice, in the same order
};

// The data of a regression node. Arrays are borrowed and indexed by position in the slice.
struct RegressionNode {
    const double* gradientV;
    const int* weightV;
    double gradAll;  // sum of the gradients, in slice order
    int wgtAll;      // sum of the weights
};

// The data of a classification node. Arrays are borrowed; labels are indexed by position in the
// slice, counts by class.
struct ClassificationNode {
    const double* labelV;
    const int* statClassAll;
    int numClass;
};

// Replaces `best` by the best candidate of the column, if that is better. `at` has the slot and the
// column of the candidates. A candidate must have a strictly larger score, or for classification an
// equal score and a strictly smaller balance. So of equal candidates the first one stays.
void ScanColumn(const SortedColumn& column, const RegressionNode& node, CandidateSplit at,
                CandidateSplit& best);
void ScanColumn(const SortedColumn& column, const ClassificationNode& node, CandidateSplit at,
                CandidateSplit& best);

}  // namespace sylvora

#endif  // SYLVORA_NODE_SPLITSCAN_H
