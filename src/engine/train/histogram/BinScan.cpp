// Scores and bounds from histograms; see BinScan.h. The derivation of the bound is in
// docs/engine-training.md.
#include "BinScan.h"

#include <emmintrin.h>

#include <algorithm>
#include <cmath>

namespace sylvora {
namespace engine {
namespace {

// Bounds are computed in doubles; this covers their rounding many times over.
constexpr double kInflate = 1.0 + 1e-9;
constexpr double kTiny = 1e-300;  // keeps 0 / 0 out of a term whose numerator is 0

// The largest score of the cuts behind each bin, and the largest |sum|. Cuts with nothing on one
// side are left out.
double BestOfPrefixes(const double* sums, const double* weights, int count, const NodeTotals& node,
                      double& largestSum) {
    const __m128d total = _mm_set1_pd(node.sum);
    const __m128d weight = _mm_set1_pd(node.weight);
    const __m128d zero = _mm_setzero_pd();
    const __m128d one = _mm_set1_pd(1.0);
    const __m128d none = _mm_set1_pd(-1.0);
    const __m128d signMask = _mm_set1_pd(-0.0);
    __m128d best = none;
    __m128d largest = zero;
    for (int i = 0; i < count; i += 2) {  // the arrays are padded with empty prefixes
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
    largestSum = std::max(largestV[0], largestV[1]);
    return std::max(bestV[0], bestV[1]);
}

}  // namespace

double BinScan::InsideBound(const NodeTotals& node, const Cell& before, const Cell& inside) const {
    const double g0 = fixed.Sum(before);
    const double w0 = fixed.Weight(before);
    const double count = fixed.Weight(inside);
    const double s = fixed.Sum(inside);
    const double a = std::min(fixed.AbsBound(inside), fixed.largest * count);
    const double perLargest = fixed.largest > 0.0 ? 1.0 / fixed.largest : 0.0;
    const double p = 0.5 * (a + s);
    const double n = 0.5 * (a - s);
    const double r0 = node.sum - g0;
    const double v0 = node.weight - w0 - count;
    const auto term = [](double sum, double weight) { return sum * sum / std::max(weight, kTiny); };
    const double top = term(g0 + p, w0 + p * perLargest) + term(r0 - p, v0 + n * perLargest);
    const double bottom = term(g0 - n, w0 + n * perLargest) + term(r0 + n, v0 + p * perLargest);
    return std::max(top, bottom) * kInflate;
}

void BinScan::Look(int id, const Histogram& histogram, const NodeTotals& node,
                   ColumnView& view) const {
    const Column& column = data.At(id);
    const int numBins = histogram.NumBins(column);
    const Cell* cells = histogram.Of(column);
    view.prefixV.resize(static_cast<size_t>(numBins) + 1);
    Cell prefix;
    uint64_t largestAbs = 0;
    for (int bin = 0; bin < numBins; ++bin) {
        view.prefixV[static_cast<size_t>(bin)] = prefix;
        prefix += cells[bin];
        largestAbs = std::max(largestAbs, cells[bin].packed >> fixed.weightBits);
    }
    view.prefixV[static_cast<size_t>(numBins)] = prefix;
    view.best = BestInexact(numBins, node, view);
    view.largestSum += static_cast<double>(largestAbs) * fixed.absUnit + std::fabs(node.sum);
    view.bound = -1.0;
    view.runBoundV.clear();
    if (!column.fExact) {
        LookAtRuns(column, histogram, node, view);
    } else if (!column.fClean) {
        view.best = -1.0;
        VisitCuts(column, numBins, node, view,
                  [&view](double score, int) { view.best = std::max(view.best, score); });
    }
}

// Takes every boundary for a cut, which a column that is exact but not clean must not.
double BinScan::BestInexact(int numBins, const NodeTotals& node, ColumnView& view) const {
    const size_t count = static_cast<size_t>(numBins);
    std::vector<double> sumV(count + 2), weightV(count + 2);  // prefixes as reals
    for (size_t bin = 0; bin < count; ++bin) {
        sumV[bin] = fixed.Sum(view.prefixV[bin + 1]);
        weightV[bin] = fixed.Weight(view.prefixV[bin + 1]);
    }
    return BestOfPrefixes(sumV.data(), weightV.data(), numBins, node, view.largestSum);
}

void BinScan::LookAtRuns(const Column& column, const Histogram& histogram, const NodeTotals& node,
                         ColumnView& view) const {
    const int numBins = histogram.NumBins(column);
    for (int begin = 0; begin < numBins; begin += ColumnView::kRunBins) {
        const int end = std::min(begin + ColumnView::kRunBins, numBins);
        const Cell& before = view.prefixV[static_cast<size_t>(begin)];
        Cell inside = view.prefixV[static_cast<size_t>(end)];
        inside -= before;
        const bool fCuts =
            inside.packed != 0 &&
            histogram.FirstRank(column, end) - histogram.FirstRank(column, begin) > 1;
        const double bound = fCuts ? InsideBound(node, before, inside) : -1.0;
        view.runBoundV.push_back(bound);
        view.bound = std::max(view.bound, bound);
    }
}

// Calls visit(score, bin) for the cut behind each bin that has rows, where there is one.
template <typename Visit>
void BinScan::VisitCuts(const Column& column, int numBins, const NodeTotals& node,
                        const ColumnView& view, const Visit& visit) const {
    const auto holdsRows = [&view](int bin) {
        const size_t b = static_cast<size_t>(bin);
        return view.prefixV[b].packed != view.prefixV[b + 1].packed;
    };
    int last = -1;  // the last bin with rows so far
    for (int bin = 0; bin < numBins; ++bin) {
        if (!holdsRows(bin)) continue;
        const bool fSeparable = !column.fExact || column.fClean || last < 0 ||
                                IsSeparable(column.binValueV[static_cast<size_t>(last)],
                                            column.binValueV[static_cast<size_t>(bin)]);
        if (last >= 0 && fSeparable) {
            const Cell& left = view.prefixV[static_cast<size_t>(last) + 1];
            visit(CutScore(node, fixed.Sum(left), fixed.Weight(left)), last);
        }
        last = bin;
    }
}

void BinScan::AppendCuts(int slot, int id, const Histogram& histogram, const NodeTotals& node,
                         const ColumnView& view, double least,
                         std::vector<Candidate>& candidateV) const {
    const Column& column = data.At(id);
    VisitCuts(column, histogram.NumBins(column), node, view, [&](double score, int bin) {
        if (!(score >= least)) return;
        candidateV.push_back({score, slot, id, histogram.FirstRank(column, bin + 1) - 1,
                              view.prefixV[static_cast<size_t>(bin) + 1]});
    });
}

void BinScan::AppendLiveBins(int id, const Histogram& histogram, const NodeTotals& node,
                             const ColumnView& view, double least, std::vector<int>& binV) const {
    const Column& column = data.At(id);
    const int numBins = histogram.NumBins(column);
    for (size_t run = 0; run < view.runBoundV.size(); ++run) {
        if (view.runBoundV[run] < least) continue;
        const int begin = static_cast<int>(run) * ColumnView::kRunBins;
        const int end = std::min(begin + ColumnView::kRunBins, numBins);
        for (int bin = begin; bin < end; ++bin) {
            const Cell& before = view.prefixV[static_cast<size_t>(bin)];
            Cell inside = view.prefixV[static_cast<size_t>(bin) + 1];
            inside -= before;
            if (!HasTwoRows(inside)) continue;
            // One value that many rows share, such as an absent feature, has no cut inside.
            const uint32_t numRanks =
                histogram.FirstRank(column, bin + 1) - histogram.FirstRank(column, bin);
            if (numRanks < 2) continue;
            if (InsideBound(node, before, inside) >= least) binV.push_back(bin);
        }
    }
}

}  // namespace engine
}  // namespace sylvora
