// Scores and bounds from histograms; see BinScan.h. docs/engine-training.md derives the bound.
#include "BinScan.h"

#include <algorithm>
#include <cmath>

#include "base/Switch.h"

namespace sylvora {
namespace engine {

BinScan::BinScan(const BinnedColumns& columns, const FixedPoint& fixedPoint)
    : data(columns), fixed(fixedPoint), kernels(kScanKernels.Choose(ForcedKernel())) {}

ScanFigures BinScan::FiguresOf(const NodeTotals& node) const {
    return {node.sum,
            node.weight,
            fixed.unit,
            fixed.absUnit,
            fixed.maxAbsGradPerWeight,
            fixed.weightPerAbsGrad,
            fixed.weightBits};
}

void BinScan::Scan(int id, const Histogram& histogram, const NodeTotals& node,
                   ColumnSummary& summary) const {
    const Column& column = data.At(id);
    const int numBins = histogram.NumBins(column);
    const double largestAbs = AddUp(column, histogram, summary);
    summary.best =
        kernels.best(FiguresOf(node), summary.prefixV.data() + 1, numBins, &summary.maxAbsSum);
    summary.maxAbsSum += largestAbs + std::fabs(node.sum);
    summary.bound = -1.0;
    summary.runBoundV.clear();
    if (!column.fExact) {
        BoundRuns(column, histogram, node, summary);
    } else if (!column.fAllSeparable) {
        summary.best = -1.0;
        // An exact column with inseparable neighbours: only some boundaries are candidates.
        VisitBoundaries(column, numBins, node, summary, [&summary](double score, int) {
            summary.best = std::max(summary.best, score);
        });
    }
}

// Sets the sums before each bin, and returns the largest sum of |gradient| of a bin.
double BinScan::AddUp(const Column& column, const Histogram& histogram,
                      ColumnSummary& summary) const {
    const Cell* const cells = histogram.Of(column);
    const size_t numBins = static_cast<size_t>(histogram.NumBins(column));
    summary.prefixV.resize(numBins + 1 + ScanKernels::kSlack);
    Cell* const prefixes = summary.prefixV.data();
    Cell prefix;
    uint64_t largest = 0;
    for (size_t bin = 0; bin < numBins; ++bin) {
        prefixes[bin] = prefix;
        prefix += cells[bin];
        largest = std::max(largest, cells[bin].packed);
    }
    prefixes[numBins] = prefix;
    std::fill_n(prefixes + numBins + 1, ScanKernels::kSlack, Cell());
    return static_cast<double>(largest >> fixed.weightBits) * fixed.absUnit;
}

// A run gets a bound of -1 if it holds at most one row or a single rank: nothing can be split
// there.
void BinScan::BoundRuns(const Column& column, const Histogram& histogram, const NodeTotals& node,
                        ColumnSummary& summary) const {
    const int numBins = histogram.NumBins(column);
    const int numRuns = (numBins - 1) / ColumnSummary::kRunBins + 1;
    const size_t room = static_cast<size_t>(numRuns) + 1 + ScanKernels::kSlack;
    summary.runPrefixV.resize(room);
    summary.runBoundV.resize(room);
    const auto beginOf = [numBins](int run) {
        return std::min(run * ColumnSummary::kRunBins, numBins);
    };
    for (int run = 0; run <= numRuns; ++run) {
        summary.runPrefixV[static_cast<size_t>(run)] =
            summary.prefixV[static_cast<size_t>(beginOf(run))];
    }
    kernels.bounds(FiguresOf(node), summary.runPrefixV.data(), numRuns, summary.runBoundV.data());
    summary.runBoundV.resize(static_cast<size_t>(numRuns));
    for (int run = 0; run < numRuns; ++run) {
        double& bound = summary.runBoundV[static_cast<size_t>(run)];
        if (bound <= summary.bound) continue;
        const uint32_t numRanks = histogram.FirstRank(column, beginOf(run + 1)) -
                                  histogram.FirstRank(column, beginOf(run));
        if (numRanks < 2) bound = -1.0;
        summary.bound = std::max(summary.bound, bound);
    }
}

// Calls visit(score, bin) for each non-empty bin but the last, if a split may lie between it and
// the next non-empty bin.
template <typename Visit>
void BinScan::VisitBoundaries(const Column& column, int numBins, const NodeTotals& node,
                              const ColumnSummary& summary, const Visit& visit) const {
    const auto holdsRows = [&summary](int bin) {
        const size_t b = static_cast<size_t>(bin);
        return summary.prefixV[b].packed != summary.prefixV[b + 1].packed;
    };
    // The last non-empty bin so far.
    int last = -1;
    // Empty bins are skipped, so a split lies between two bins that hold rows of this node.
    for (int bin = 0; bin < numBins; ++bin) {
        if (!holdsRows(bin)) continue;
        const bool fSeparable = !column.fExact || column.fAllSeparable || last < 0 ||
                                IsSeparable(column.binValueV[static_cast<size_t>(last)],
                                            column.binValueV[static_cast<size_t>(bin)]);
        if (last >= 0 && fSeparable) {
            const Cell& left = summary.prefixV[static_cast<size_t>(last) + 1];
            visit(SplitScore(node, fixed.Sum(left), fixed.Weight(left)), last);
        }
        last = bin;
    }
}

// The last rank on the left is the last rank of the bin, even if no row of the node has it.
void BinScan::AppendCandidates(const SlotColumn& at, const Histogram& histogram,
                               const NodeTotals& node, const ColumnSummary& summary,
                               double minScore, std::vector<Candidate>& candidateV) const {
    const Column& column = data.At(at.column);
    VisitBoundaries(column, histogram.NumBins(column), node, summary, [&](double score, int bin) {
        if (!(score >= minScore)) return;
        candidateV.push_back({score, at.slot, at.column, histogram.FirstRank(column, bin + 1) - 1,
                              summary.prefixV[static_cast<size_t>(bin) + 1]});
    });
}

// Checks the bounds of runs first, which prunes most bins at an eighth of the cost; then as many
// bins at once as a kernel takes, from the first to the last run that is left.
void BinScan::AppendCandidateBins(int id, const Histogram& histogram, const NodeTotals& node,
                                  const ColumnSummary& summary, double minScore,
                                  std::vector<int>& binV) const {
    constexpr int kRuns = ScanKernels::kMost / ColumnSummary::kRunBins;
    const Column& column = data.At(id);
    const int numBins = histogram.NumBins(column);
    const int numRuns = static_cast<int>(summary.runBoundV.size());
    const double* const bounds = summary.runBoundV.data();
    const ScanFigures figures = FiguresOf(node);
    for (int run = 0; run < numRuns; ++run) {
        if (bounds[run] < minScore) continue;
        const int first = run;
        int last = run;
        for (; run < numRuns && run < first + kRuns; ++run) {
            if (bounds[run] >= minScore) last = run;
        }
        run = last;
        const int begin = first * ColumnSummary::kRunBins;
        const int end = std::min((last + 1) * ColumnSummary::kRunBins, numBins);
        uint64_t mask =
            kernels.mayReach(figures, summary.prefixV.data() + begin, end - begin, minScore);
        for (; mask != 0; mask &= mask - 1) {
            const int bin = begin + __builtin_ctzll(mask);
            // A single value, such as that of an absent feature, cannot be split.
            if (histogram.FirstRank(column, bin + 1) - histogram.FirstRank(column, bin) > 1) {
                binV.push_back(bin);
            }
        }
    }
}

}  // namespace engine
}  // namespace sylvora
