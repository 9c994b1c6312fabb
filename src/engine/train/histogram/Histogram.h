// Histograms of a node: per bin of each column, the sums over the node's rows.
#ifndef SYLVORA_ENGINE_TRAIN_HISTOGRAM_HISTOGRAM_H
#define SYLVORA_ENGINE_TRAIN_HISTOGRAM_HISTOGRAM_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "BinnedColumns.h"
#include "engine/train/FixedPoint.h"

namespace sylvora {
namespace engine {

// One cell per bin, column after column. A coarse histogram joins 2^shift neighbouring bins of each
// column that is not exact.
struct Histogram {
    std::vector<Cell> cellV;
    // The resolution: 0 is the finest.
    int shift = 0;

    // A column's cells, NumBins(column) of them.
    const Cell* Of(const Column& column) const { return cellV.data() + FirstCell(column); }
    Cell* Of(const Column& column) { return cellV.data() + FirstCell(column); }
    size_t FirstCell(const Column& column) const {
        return column.firstCellV[static_cast<size_t>(shift)];
    }
    // The number of bins that the column has at this resolution.
    int NumBins(const Column& column) const { return column.NumBins(shift); }
    // Whether all neighbouring values inside a bin are separable.
    bool AllSeparable(const Column& column, int bin) const {
        const int last = column.fExact ? bin + 1 : std::min((bin + 1) << shift, column.numBins);
        for (int b = column.fExact ? bin : bin << shift; b < last; ++b) {
            if (column.fSeparableBinV[static_cast<size_t>(b)] == 0) return false;
        }
        return true;
    }
    // The first rank of a bin at this resolution. For bin NumBins(column), the number of ranks.
    uint32_t FirstRank(const Column& column, int bin) const {
        if (column.fExact) return static_cast<uint32_t>(bin);
        const size_t fine = static_cast<size_t>(bin) << shift;
        const size_t last = static_cast<size_t>(column.numBins);
        return column.binFirstRankV[fine < last ? fine : last];
    }
};

}  // namespace engine
}  // namespace sylvora

#endif  // SYLVORA_ENGINE_TRAIN_HISTOGRAM_HISTOGRAM_H
