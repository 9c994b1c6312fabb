// The histograms of the nodes of a growing tree; the second half of HistogramGrower.h.
//
// Histograms come by subtraction where that pays: the smaller child is counted, and the larger
// child's histogram is the parent's less the smaller's. Otherwise a node counts its sampled columns
// in a histogram of its own, which may be coarser.
#include <algorithm>
#include <utility>

#include "HistogramGrower.h"
#include "OpenNode.h"

namespace sylvora {
namespace engine {

// Counts the sampled columns of a node, or the narrow ones of them, in the worker's own histogram.
// Other cells are stale. Returns null if there is no such column.
const Histogram* HistogramGrower::CountOwn(const OpenNode& open, const RowSet& nodeRows,
                                           bool fNarrowOnly, Worker& worker) {
    worker.columnV.clear();
    for (const int id : open.columnV) {
        const Column& column = data.At(id);
        if (!column.IsConstant() && (column.fNarrow || !fNarrowOnly)) worker.columnV.push_back(id);
    }
    if (worker.columnV.empty()) return nullptr;
    Histogram& own = worker.own;
    own.shift = binChoice.ShiftFor(nodeRows.count);
    own.cellV.resize(std::max(own.cellV.size(), data.NumCells(own.shift)));
    for (const int id : worker.columnV) {
        std::fill_n(own.Of(data.At(id)), own.NumBins(data.At(id)), Cell());
    }
    worker.filler.Add(nodeRows, fixed, worker.columnV, own);
    return &own;
}

// The additions per row when a node counts its own histogram, on average: a group takes one if any
// of its columns is sampled.
double HistogramGrower::NumSampledCodes() const {
    const double share = static_cast<double>(limits.numSelFea) / data.NumColumns();
    const size_t numGroups = data.Groups().size();
    double sampled = share * (data.NumCodes() - static_cast<int>(numGroups));
    for (const ColumnGroup& group : data.Groups()) {
        double noneSampled = 1.0;
        for (size_t i = 0; i < group.columnV.size(); ++i) noneSampled *= 1.0 - share;
        sampled += 1.0 - noneSampled;
    }
    return sampled;
}

// Whether the histogram of a node is worth sharing between its children: whether that saves more
// additions of rows than it costs to clear, join and subtract cells, in the time of an addition.
bool HistogramGrower::PaysToShare(const OpenNode& open, int shift) const {
    const GrownNode* const children = open.children;
    // Shared, the smaller child is counted in all columns.
    double saved = -1.0 * std::min(children[0].countDoc, children[1].countDoc) * data.NumCodes();
    // A large node is counted by several workers only if it shares.
    const double numCodes = open.numTogether > 0 ? data.NumCodes() : numSampledCodes;
    for (size_t k = 0; k < 2; ++k) {
        if (limits.MaySplit(children[k]) && children[k].countDoc > tuning.smallNode) {
            saved += numCodes * children[k].countDoc;
        }
    }
    return saved > static_cast<double>(data.NumCells(shift)) * tuning.cellCost;
}

// Counts the smaller child and subtracts it from the parent's histogram, after coarsening to what
// suits the larger child. Releases the histogram if the children do better without.
void HistogramGrower::ShareHistogram(OpenNode& open, Worker& worker) {
    const size_t smaller = open.children[0].countDoc <= open.children[1].countDoc ? 0 : 1;
    const size_t larger = 1 - smaller;
    if (open.split.column < 0 || !open.histogram) return;
    const int shift =
        std::max(open.histogram->shift, binChoice.ShiftFor(open.children[larger].countDoc));
    if (!PaysToShare(open, shift)) return histogramPool.Release(std::move(open.histogram));
    histogramPool.Coarsen(*open.histogram, shift);
    const RowSet counted =
        rows.NextLevelSlice(open.children[smaller].startDoc, open.children[smaller].countDoc);
    const bool fShared = open.numTogether > 0 && counted.count >= tuning.chunkRows;
    open.childHistogramV[smaller] = fShared ? histogramPool.CountShared(counted, shift)
                                            : histogramPool.Count(counted, shift, worker.filler);
    open.childHistogramV[larger] = std::move(open.histogram);
    histogramPool.Subtract(*open.childHistogramV[larger], *open.childHistogramV[smaller]);
}

}  // namespace engine
}  // namespace sylvora
