// What a node's histogram says about the cuts of one column: the exact scores of the cuts between
// bins, and upper bounds for those inside them.
#ifndef SYLVORA_ENGINE_TRAIN_HISTOGRAM_BINSCAN_H
#define SYLVORA_ENGINE_TRAIN_HISTOGRAM_BINSCAN_H

#include <cstdint>
#include <vector>

#include "BinnedColumns.h"
#include "Histogram.h"
#include "engine/train/FixedPoint.h"

namespace sylvora {
namespace engine {

// The sums over a node.
struct NodeTotals {
    Cell cell;
    double sum;  // of the gradients
    double weight;
};

// A cut: the rows of rank `lastRank` and below go left.
struct Candidate {
    double score;
    int slot;
    int column;
    uint32_t lastRank;
    Cell left;  // the sums over these rows
};

// Score of a cut with the sums (sum, weight) on the left.
inline double CutScore(const NodeTotals& node, double sum, double weight) {
    const double rest = node.sum - sum;
    return sum * sum / weight + rest * rest / (node.weight - weight);
}

// The first look at a column: its best cut between bins, and for columns with several values to a
// bin an upper bound for the cuts inside each run of kRunBins bins.
struct ColumnView {
    static constexpr int kRunBins = 8;

    double best = -1.0;       // best score of a cut between bins; -1 if there is none
    double largestSum = 0.0;  // no sum from either end is larger in size
    double bound = -1.0;      // no cut inside a bin scores more
    std::vector<double> runBoundV;
    std::vector<Cell> prefixV;  // sums before each bin, then the total
};

// For any number of threads.
class BinScan {
  public:
    BinScan(const BinnedColumns& columns, const FixedPoint& fixedPoint)
        : data(columns), fixed(fixedPoint) {}

    // Looks at a column of a node with the given histogram and totals.
    void Look(int column, const Histogram& histogram, const NodeTotals& node,
              ColumnView& view) const;

    // Appends the cuts between bins that score at least `least`.
    void AppendCuts(int slot, int column, const Histogram& histogram, const NodeTotals& node,
                    const ColumnView& view, double least, std::vector<Candidate>& candidateV) const;

    // Appends the bins that may hold a cut that scores at least `least`.
    void AppendLiveBins(int column, const Histogram& histogram, const NodeTotals& node,
                        const ColumnView& view, double least, std::vector<int>& binV) const;

    // No cut inside a run of values scores more, given the sums before and over it.
    double InsideBound(const NodeTotals& node, const Cell& before, const Cell& inside) const;

    // Whether the rows of a cell can be cut at all: weights are at least 1, so two rows weigh 2.
    bool HasTwoRows(const Cell& inside) const { return fixed.Weight(inside) >= 2.0; }

  private:
    void LookAtRuns(const Column& column, const Histogram& histogram, const NodeTotals& node,
                    ColumnView& view) const;
    double BestInexact(int numBins, const NodeTotals& node, ColumnView& view) const;
    template <typename Visit>
    void VisitCuts(const Column& column, int numBins, const NodeTotals& node,
                   const ColumnView& view, const Visit& visit) const;

    const BinnedColumns& data;
    const FixedPoint& fixed;
};

}  // namespace engine
}  // namespace sylvora

#endif  // SYLVORA_ENGINE_TRAIN_HISTOGRAM_BINSCAN_H
