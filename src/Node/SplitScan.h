// The scan of one column of a node: every cut between neighbouring values, the best one kept. All
// searches, threaded or not, go through here.
#ifndef SYLVORA_NODE_SPLITSCAN_H
#define SYLVORA_NODE_SPLITSCAN_H

#include <cstddef>
#include <vector>

#include "engine/train/NarrowSplit.h"

namespace sylvora {

// The best cut so far, as a scan starts with it when there is none.
struct Cut {
    double score = -1.0;
    int slot = -1;  // place of the column in the node's sample
    int column = -1;
    double threshold = -1.0;  // midpoint between the neighbouring values
    bool fNarrow = false;     // see engine/NarrowSplit.h
    int countL = 0;           // rows at or below the threshold
    double balance = 0.0;     // |left share - 0.5|; classification only
};

// A node's values of one column in ascending order. The buffers are reused from column to column.
class SortedColumn {
  public:
    explicit SortedColumn(int numRows);

    // Gathers column `column` of the rows rowV[0..numRows) and sorts it.
    void Load(const double* const* featureVV, const int* rowV, int column);

    int Count() const { return static_cast<int>(valueV.size()); }
    double Value(int i) const { return valueV[static_cast<size_t>(i)]; }
    // The place in the node of the i-th smallest value.
    size_t Place(int i) const { return static_cast<size_t>(orderV[static_cast<size_t>(i)]); }
    // Whether the column is scanned. Always, for ordered values that are not huge: a constant
    // column merely offers no cut.
    bool IsScanned() const;
    // Puts the threshold of a cut between the i-th smallest value and the next.
    void SetThreshold(int i, Cut& cut) const {
        cut.threshold = (Value(i) + Value(i + 1)) * 0.5;
        cut.fNarrow = engine::IsNarrow(Value(i), Value(i + 1));
    }

  private:
    std::vector<double> valueV;
    std::vector<int> orderV;
};

// What is known of a regression node; gradients and weights by place in the node.
struct RegressionNode {
    const double* gradientV;
    const int* weightV;
    double gradAll;
    int wgtAll;
};

// What is known of a classification node; labels by place in the node, counts by class.
struct ClassificationNode {
    const double* labelV;
    const int* statClassAll;
    int numClass;
};

// Improve `best` with the cuts of the sorted column in `slot`. A cut must be strictly better (for
// classification: or equally good and better balanced), so the leftmost of equals stays.
void ScanColumn(const SortedColumn& column, const RegressionNode& node, Cut at, Cut& best);
void ScanColumn(const SortedColumn& column, const ClassificationNode& node, Cut at, Cut& best);

}  // namespace sylvora

#endif  // SYLVORA_NODE_SPLITSCAN_H
