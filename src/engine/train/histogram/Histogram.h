// Histograms of a node: per bin of each column, the sums over the node's rows.
#ifndef SYLVORA_ENGINE_TRAIN_HISTOGRAM_HISTOGRAM_H
#define SYLVORA_ENGINE_TRAIN_HISTOGRAM_HISTOGRAM_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "BinnedColumns.h"
#include "engine/train/FixedPoint.h"
#include "engine/train/RowSets.h"

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

// Fills histograms block by block. The row-major codes of a block are transposed to columns, unless
// the rows are consecutive. Two columns at a time are then added, with each row's cell in a
// register. Not thread-safe: each worker has its own.
class HistogramFiller {
  public:
    explicit HistogramFiller(const BinnedColumns& data);

    // Adds the rows to the cells of the given columns. Fastest for ascending rows.
    void Add(const RowSet& rows, const FixedPoint& fixed, const std::vector<int>& columns,
             Histogram& histogram);

  private:
    void LoadCells(const RowSet& rows, int begin, int count, const FixedPoint& fixed);
    template <typename Code>
    void Transpose(const RowCodes<Code>& codes, const int* rowV, int count, Code* tile);
    void AddBlock(const int* rowV, int count, const std::vector<int>& columns,
                  Histogram& histogram);
    template <typename Code, typename CodesOf>
    void AddColumns(int count, const std::vector<int>& columns, const CodesOf& codesOf,
                    Histogram& histogram);

    const BinnedColumns& data;
    const int blockRows;  // rows per block
    // Codes from one column of a tile to the next; no power of two, which would map all columns to
    // the same cache sets.
    const size_t tileStride;
    // The cells of the block's rows, then kPadRows zeros.
    std::vector<Cell> cellV;
    // Second cells of the columns being added; zeros between uses.
    std::vector<Cell> oddV;
    // The transposed codes of a block.
    std::vector<uint8_t> narrowTile;
    std::vector<uint16_t> wideTile;
};

}  // namespace engine
}  // namespace sylvora

#endif  // SYLVORA_ENGINE_TRAIN_HISTOGRAM_HISTOGRAM_H
