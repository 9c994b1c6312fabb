// The training data, coded once per run: every comparison of two values of a column becomes one of
// two small integers, and every histogram a look-up by such an integer.
//
// Words. The rank of a value is its place among the column's distinct values (-0.0 and 0.0 are one
// value). A bin is a run of ranks. A column with few distinct values has one bin per value
// ("exact"); otherwise bins hold several values and cover more rows in the middle than at the ends:
// the share of a bin grows like the square root of the rows on its shorter side, as does the noise
// of a sum over them.
// The byte of a row in a column is its bin, or the bin's highest eight bits: what most look-ups by
// column read, as it takes the least memory.
//
// Two neighbouring values a < b are separable when b > a + 1e-10, the condition of a regression
// cut. No bin ends between two values that are not, so every bin boundary is a cut in every node. A
// column whose neighbouring values are all separable is "clean".
#ifndef SYLVORA_ENGINE_TRAIN_HISTOGRAM_BINNEDCOLUMNS_H
#define SYLVORA_ENGINE_TRAIN_HISTOGRAM_BINNEDCOLUMNS_H

#include <algorithm>
#include <cstdint>
#include <vector>

#include "RowRanks.h"
#include "base/LargeArray.h"
#include "base/WorkerPool.h"
#include "engine/train/Separable.h"
#include "engine/train/Tuning.h"

namespace sylvora {
namespace engine {

struct Column {
    int numBins = 0;
    bool fExact = false;  // one bin per distinct value
    bool fClean = false;
    bool fNarrow = false;  // codes in one byte
    int place = 0;         // column of the narrow or the wide row matrix
    int twin = 0;          // the first column with the same ranks, this one where there is none
    std::vector<size_t> firstCellV;       // by shift: of the column in a node's histogram
    std::vector<uint32_t> binFirstRankV;  // numBins + 1 entries
    std::vector<uint8_t> fCleanBinV;      // per bin: all neighbours inside are separable
    std::vector<double> binValueV;        // per bin: the lowest value; of an empty one, the next
    int byteShift = 0;                    // 2^byteShift bins share a byte
    LargeArray<uint8_t> byteV;            // the byte per row; of a narrow column, bin and rank too
    RowRanks ranks;                       // wide columns: the rank per row

    // Bins when 2^shift neighbouring ones are joined to one, which exact columns have none of.
    int NumBins(int shift) const { return fExact ? numBins : ((numBins - 1) >> shift) + 1; }

    // The byte of the rows of a rank.
    int ByteOf(uint32_t rank) const {
        const auto past = std::upper_bound(binFirstRankV.begin(), binFirstRankV.end(), rank);
        return static_cast<int>(past - binFirstRankV.begin() - 1) >> byteShift;
    }
};

// Row-major codes, padded with zeros so that rows can be read in pieces of 16 bytes; so can what
// begins at the last code.
template <typename Code>
struct RowCodes {
    size_t stride = 0;  // codes per row
    LargeArray<Code> codeV;

    const Code* Row(int row) const { return codeV.data() + static_cast<size_t>(row) * stride; }
};

class BinnedColumns {
  public:
    // Codes the matrix `rowV` (numRow rows of numColumn values) with at most mostBins bins per
    // column, besides those around values that many rows share. Throws std::bad_alloc.
    BinnedColumns(const double* const* rowV, int numRow, int numColumn, const Tuning& tuning,
                  WorkerPool& pool);

    int NumRows() const { return numRows; }
    int NumColumns() const { return static_cast<int>(columnV.size()); }
    const Column& At(int column) const { return columnV[static_cast<size_t>(column)]; }
    double Value(int row, int column) const { return rowV[row][column]; }
    // A column holds a NaN, which has no rank: the codes must not be used.
    bool HasNan() const { return fNan; }
    // Whether a column has several values in a bin.
    bool HasInexact() const {
        return std::any_of(columnV.begin(), columnV.end(),
                           [](const Column& c) { return !c.fExact; });
    }
    // About as many bins has a column with more values than that.
    int MostBins() const { return maxBins; }
    // Cells of a histogram whose bins are joined by 2^shift, at most MostBins.
    size_t NumCells(int shift) const { return numCellsV[static_cast<size_t>(shift)]; }
    const std::vector<int>& NarrowColumns() const { return narrowV; }
    const std::vector<int>& WideColumns() const { return wideV; }
    const RowCodes<uint8_t>& NarrowRows() const { return narrowRows; }
    const RowCodes<uint16_t>& WideRows() const { return wideRows; }

    uint32_t Rank(int column, int row) const {
        const Column& c = At(column);
        const uint8_t byte = c.byteV[static_cast<size_t>(row)];
        return c.fNarrow ? byte : c.ranks.At(static_cast<size_t>(row), byte);
    }

  private:
    struct Room;

    std::vector<uint64_t> CodeColumns(int rankBits, WorkerPool& pool);
    bool CodeColumn(int column, int rankBits, Room& room);
    void PlaceColumns();
    void FillRowCodes(WorkerPool& pool);
    uint64_t HashRanks(int column) const;
    void FindTwins(const std::vector<uint64_t>& hashV);

    const double* const* rowV;
    int numRows;
    int maxBins;
    bool fNan = false;
    std::vector<size_t> numCellsV;  // by shift
    std::vector<Column> columnV;
    std::vector<int> narrowV, wideV;  // columns by place
    RowCodes<uint8_t> narrowRows;
    RowCodes<uint16_t> wideRows;
};

}  // namespace engine
}  // namespace sylvora

#endif  // SYLVORA_ENGINE_TRAIN_HISTOGRAM_BINNEDCOLUMNS_H
