// Scores the candidate splits of one column from a node's histogram: exact scores for splits
// between bins, upper bounds for splits inside bins.
#ifndef SYLVORA_ENGINE_TRAIN_HISTOGRAM_BINSCAN_H
#define SYLVORA_ENGINE_TRAIN_HISTOGRAM_BINSCAN_H

#include <cstdint>
#include <vector>

#include "BinnedColumns.h"
#include "Histogram.h"
#include "ScanKernels.h"
#include "engine/train/FixedPoint.h"

namespace sylvora {
namespace engine {

// The sums over a node's rows, as integers and as doubles.
struct NodeTotals {
    Cell cell;
    double sum;  // of the gradients
    double weight;
};

// A column among those that a node samples.
struct SlotColumn {
    int slot;
    int column;
};

// A candidate split: rows of rank `lastRank` and below go left.
struct Candidate {
    double score;
    int slot = -1;
    int column;
    uint32_t lastRank;
    // The sums over the rows on the left.
    Cell left;
    // How far the score may be from the reference implementation's score of this split.
    double error = 0.0;

    double Most() const { return score + error; }
    double Least() const { return score - error; }
};

// The score of a split with the sums (sum, weight) on its left.
inline double SplitScore(const NodeTotals& node, double sum, double weight) {
    const double rest = node.sum - sum;
    return sum * sum / weight + rest * rest / (node.weight - weight);
}

// The result of a first scan of a column. Columns with several values per bin also get an upper
// bound for the splits inside each run of kRunBins bins.
struct ColumnSummary {
    static constexpr int kRunBins = 8;

    // The best score of a split between bins; -1 if there is none.
    double best = -1.0;
    // M: no sum of rows from either end is larger in size.
    double maxAbsSum = 0.0;
    // No split inside a bin scores more; -1 if there is none.
    double bound = -1.0;
    // By run: no split inside a bin of the run scores more.
    std::vector<double> runBoundV;
    // The sums before each bin, then the total, then zeros.
    std::vector<Cell> prefixV;
    // The same for runs.
    std::vector<Cell> runPrefixV;
};

// Stateless but for its references; thread-safe.
class BinScan {
  public:
    BinScan(const BinnedColumns& columns, const FixedPoint& fixedPoint);

    // Scans a column of a node with the given histogram and totals.
    void Scan(int column, const Histogram& histogram, const NodeTotals& node,
              ColumnSummary& summary) const;

    // Appends the splits between bins that score at least `minScore`.
    void AppendCandidates(const SlotColumn& at, const Histogram& histogram, const NodeTotals& node,
                          const ColumnSummary& summary, double minScore,
                          std::vector<Candidate>& candidateV) const;

    // Appends the bins that may hold a split that scores at least `minScore`.
    void AppendCandidateBins(int column, const Histogram& histogram, const NodeTotals& node,
                             const ColumnSummary& summary, double minScore,
                             std::vector<int>& binV) const;

    // The kernels, and what they need of a node.
    const ScanKernels& Kernels() const { return kernels; }
    ScanFigures FiguresOf(const NodeTotals& node) const;

  private:
    // The parts of Scan.
    double AddUp(const Column& column, const Histogram& histogram, ColumnSummary& summary) const;
    void BoundRuns(const Column& column, const Histogram& histogram, const NodeTotals& node,
                   ColumnSummary& summary) const;
    template <typename Visit>
    void VisitBoundaries(const Column& column, int numBins, const NodeTotals& node,
                         const ColumnSummary& summary, const Visit& visit) const;

    const BinnedColumns& data;
    const FixedPoint& fixed;
    const ScanKernels& kernels;
};

}  // namespace engine
}  // namespace sylvora

#endif  // SYLVORA_ENGINE_TRAIN_HISTOGRAM_BINSCAN_H
