// Scores and bounds from histograms; see BinScan.h. docs/engine-training.md derives the bound.
#include "BinScan.h"

#include <emmintrin.h>

#include <algorithm>
#include <cmath>

namespace sylvora {
namespace engine {
namespace {

// Covers the rounding of a bound many times over.
constexpr double kInflate = 1.0 + 1e-9;
constexpr double kTiny = 1e-300;  // avoids 0 / 0 in a term whose numerator is 0

// Returns the best score of a split after any bin, and sets maxAbsSum to the largest |prefix sum|.
// `sums` and `weights` are the sums up to and including each bin. Splits with an empty side are
// skipped: their score is taken as -1.
double BestOfPrefixes(const double* sums, const double* weights, int count, const NodeTotals& node,
                      double& maxAbsSum) {
    const __m128d total = _mm_set1_pd(node.sum);
    const __m128d weight = _mm_set1_pd(node.weight);
    const __m128d zero = _mm_setzero_pd();
    const __m128d one = _mm_set1_pd(1.0);
    const __m128d none = _mm_set1_pd(-1.0);
    const __m128d signMask = _mm_set1_pd(-0.0);
    __m128d best = none;
    __m128d largest = zero;
    // Two prefixes at a time; an odd number is padded with an empty one.
    for (int i = 0; i < count; i += 2) {
        const __m128d g = _mm_loadu_pd(sums + i);
        const __m128d w = _mm_loadu_pd(weights + i);
        const __m128d rest = _mm_sub_pd(total, g);
        const __m128d restWeight = _mm_sub_pd(weight, w);
        const __m128d valid = _mm_and_pd(_mm_cmpgt_pd(w, zero), _mm_cmpgt_pd(restWeight, zero));
        const __m128d left = _mm_div_pd(_mm_mul_pd(g, g), _mm_max_pd(w, one));
        const __m128d right = _mm_div_pd(_mm_mul_pd(rest, rest), _mm_max_pd(restWeight, one));
        const __m128d score = _mm_add_pd(left, right);
        best = _mm_max_pd(best, _mm_or_pd(_mm_and_pd(valid, score), _mm_andnot_pd(valid, none)));
        largest = _mm_max_pd(largest, _mm_andnot_pd(signMask, g));
    }
    double bestV[2], largestV[2];
    _mm_storeu_pd(bestV, best);
    _mm_storeu_pd(largestV, largest);
    maxAbsSum = std::max(largestV[0], largestV[1]);
    return std::max(bestV[0], bestV[1]);
}

// The sums and weights of both sides at the corners of the region inside a run: [0] top, [1]
// bottom.
struct Corners {
    __m128d left, leftWeight, right, rightWeight;
};

// The variables are named as in docs/engine-training.md: the rows before the run have the sums (g0,
// w0), the run itself (s, c), and h bounds |gradient| / weight.
Corners CornersOf(const FixedPoint& fixed, const NodeTotals& node, const Cell& before,
                  const Cell& inside) {
    const double g0 = fixed.Sum(before);
    const double w0 = fixed.Weight(before);
    const double c = fixed.Weight(inside);
    const double s = fixed.Sum(inside);
    const double a = std::min(fixed.AbsBound(inside), fixed.maxAbsGradPerWeight * c);
    const double p = 0.5 * (a + s);
    const double n = 0.5 * (a - s);
    const __m128d x = _mm_setr_pd(p, -n);
    const __m128d inverseH = _mm_set1_pd(fixed.weightPerAbsGrad);
    return {_mm_add_pd(_mm_set1_pd(g0), x),
            _mm_add_pd(_mm_set1_pd(w0), _mm_mul_pd(_mm_setr_pd(p, n), inverseH)),
            _mm_sub_pd(_mm_set1_pd(node.sum - g0), x),
            _mm_add_pd(_mm_set1_pd(node.weight - w0 - c), _mm_mul_pd(_mm_setr_pd(n, p), inverseH))};
}

}  // namespace

double BinScan::InsideBound(const NodeTotals& node, const Cell& before, const Cell& inside) const {
    const Corners at = CornersOf(fixed, node, before, inside);
    const __m128d tiny = _mm_set1_pd(kTiny);
    const __m128d scores =
        _mm_add_pd(_mm_div_pd(_mm_mul_pd(at.left, at.left), _mm_max_pd(at.leftWeight, tiny)),
                   _mm_div_pd(_mm_mul_pd(at.right, at.right), _mm_max_pd(at.rightWeight, tiny)));
    return std::max(scores[0], scores[1]) * kInflate;
}

// Multiplied by both weights, so there is no division. If one of them is 0, so is its sum, and the
// result is true.
bool BinScan::MayReach(double minScore, const NodeTotals& node, const Cell& before,
                       const Cell& inside) const {
    const Corners at = CornersOf(fixed, node, before, inside);
    const __m128d sums = _mm_add_pd(_mm_mul_pd(_mm_mul_pd(at.left, at.left), at.rightWeight),
                                    _mm_mul_pd(_mm_mul_pd(at.right, at.right), at.leftWeight));
    const __m128d least =
        _mm_mul_pd(_mm_set1_pd(minScore), _mm_mul_pd(at.leftWeight, at.rightWeight));
    return _mm_movemask_pd(_mm_cmpge_pd(_mm_mul_pd(sums, _mm_set1_pd(kInflate)), least)) != 0;
}

// One pass computes the prefix sums and the largest bin; the scores then need only the prefixes.
void BinScan::Scan(int id, const Histogram& histogram, const NodeTotals& node,
                   ColumnSummary& summary) const {
    const Column& column = data.At(id);
    const int numBins = histogram.NumBins(column);
    const Cell* cells = histogram.Of(column);
    summary.prefixV.resize(static_cast<size_t>(numBins) + 1);
    Cell prefix;
    uint64_t largestAbs = 0;
    for (int bin = 0; bin < numBins; ++bin) {
        summary.prefixV[static_cast<size_t>(bin)] = prefix;
        prefix += cells[bin];
        largestAbs = std::max(largestAbs, cells[bin].packed >> fixed.weightBits);
    }
    summary.prefixV[static_cast<size_t>(numBins)] = prefix;
    summary.best = BestBoundary(numBins, node, summary);
    summary.maxAbsSum += static_cast<double>(largestAbs) * fixed.absUnit + std::fabs(node.sum);
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

// Treats every bin boundary as a candidate split, which is wrong for an exact column with
// inseparable neighbours; Scan then recomputes the result.
double BinScan::BestBoundary(int numBins, const NodeTotals& node, ColumnSummary& summary) const {
    constexpr int kBlock = 64;
    double sumV[kBlock], weightV[kBlock];  // prefix sums as doubles
    double best = -1.0;
    summary.maxAbsSum = 0.0;
    for (int begin = 0; begin < numBins; begin += kBlock) {
        const int count = std::min(kBlock, numBins - begin);
        const Cell* prefixes = summary.prefixV.data() + begin + 1;
        for (int i = 0; i < count; ++i) {
            sumV[i] = fixed.Sum(prefixes[i]);
            weightV[i] = fixed.Weight(prefixes[i]);
        }
        if (count % 2 != 0) sumV[count] = weightV[count] = 0.0;
        double maxAbsSum = 0.0;
        best = std::max(best, BestOfPrefixes(sumV, weightV, count, node, maxAbsSum));
        summary.maxAbsSum = std::max(summary.maxAbsSum, maxAbsSum);
    }
    return best;
}

// A run gets a bound of -1 if it is empty or holds a single rank: nothing can be split there.
void BinScan::BoundRuns(const Column& column, const Histogram& histogram, const NodeTotals& node,
                        ColumnSummary& summary) const {
    const int numBins = histogram.NumBins(column);
    for (int begin = 0; begin < numBins; begin += ColumnSummary::kRunBins) {
        const int end = std::min(begin + ColumnSummary::kRunBins, numBins);
        const Cell& before = summary.prefixV[static_cast<size_t>(begin)];
        Cell inside = summary.prefixV[static_cast<size_t>(end)];
        inside -= before;
        const bool fMayHoldSplit =
            inside.packed != 0 &&
            histogram.FirstRank(column, end) - histogram.FirstRank(column, begin) > 1;
        const double bound = fMayHoldSplit ? InsideBound(node, before, inside) : -1.0;
        summary.runBoundV.push_back(bound);
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

// Checks the run's bound first, which prunes most bins at an eighth of the cost.
void BinScan::AppendCandidateBins(int id, const Histogram& histogram, const NodeTotals& node,
                                  const ColumnSummary& summary, double minScore,
                                  std::vector<int>& binV) const {
    const Column& column = data.At(id);
    const int numBins = histogram.NumBins(column);
    for (size_t run = 0; run < summary.runBoundV.size(); ++run) {
        if (summary.runBoundV[run] < minScore) continue;
        const int begin = static_cast<int>(run) * ColumnSummary::kRunBins;
        const int end = std::min(begin + ColumnSummary::kRunBins, numBins);
        for (int bin = begin; bin < end; ++bin) {
            const Cell& before = summary.prefixV[static_cast<size_t>(bin)];
            Cell inside = summary.prefixV[static_cast<size_t>(bin) + 1];
            inside -= before;
            if (!HasTwoRows(inside)) continue;
            // A single value, such as that of an absent feature, cannot be split.
            const uint32_t numRanks =
                histogram.FirstRank(column, bin + 1) - histogram.FirstRank(column, bin);
            if (numRanks < 2) continue;
            if (MayReach(minScore, node, before, inside)) binV.push_back(bin);
        }
    }
}

}  // namespace engine
}  // namespace sylvora
