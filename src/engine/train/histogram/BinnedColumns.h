// The training data as small integers, coded once per run. Comparing two values of a column becomes
// comparing two integers, and filling a histogram a table look-up.
//
// The rank of a value is its index among the column's distinct values in ascending order (-0.0 and
// 0.0 are one value). A bin is a run of ranks. A column with few distinct values has one bin per
// value ("exact"). Otherwise a bin holds several values, and more rows in the middle of the column
// than at its ends: its share of the rows grows with the square root of the rows on the shorter
// side, as does the noise of their sum.
//
// The 8-bit code of a row in a column is its bin, or the highest eight bits of its bin number. Most
// look-ups by column read only this code, because it takes the least memory. A column is narrow if
// its bins fit 8 bits without loss, otherwise wide.
//
// Two neighbouring values are separable if a regression split may lie between them (Separable.h).
// Invariant: no bin ends between inseparable values, so every bin boundary is a candidate split in
// every node.
#ifndef SYLVORA_ENGINE_TRAIN_HISTOGRAM_BINNEDCOLUMNS_H
#define SYLVORA_ENGINE_TRAIN_HISTOGRAM_BINNEDCOLUMNS_H

#include <algorithm>
#include <cstdint>
#include <vector>

#include "RowRanks.h"
#include "base/LargeArray.h"
#include "base/WorkerPool.h"
#include "engine/train/Matrix.h"
#include "engine/train/Separable.h"
#include "engine/train/Tuning.h"

namespace sylvora {
namespace engine {

// A coded column, but for the codes of its rows.
struct ColumnShape {
    int numBins = 0;
    // One bin per distinct value.
    bool fExact = false;
    // Whether all neighbouring values are separable.
    bool fAllSeparable = false;
    // code8V holds whole bin numbers.
    bool fNarrow = false;
    // The column number in the narrow or the wide row codes.
    int codeIndex = 0;
    // The first column with the same ranks, perhaps this one.
    int firstDuplicate = 0;
    // By shift: the column's first cell in a node's histogram.
    std::vector<size_t> firstCellV;
    // numBins + 1 entries, the last the number of ranks.
    std::vector<uint32_t> binFirstRankV;
    // By bin: all neighbours inside are separable.
    std::vector<uint8_t> fSeparableBinV;
    // By bin: the lowest value; of an empty bin, the next value.
    std::vector<double> binValueV;
    // 2^code8Shift bins share an 8-bit code.
    int code8Shift = 0;
    // The number of bins when 2^shift neighbours are joined. Bins of exact columns are never
    // joined.
    int NumBins(int shift) const { return fExact ? numBins : ((numBins - 1) >> shift) + 1; }

    // The 8-bit code of a rank.
    int Code8Of(uint32_t rank) const {
        const auto past = std::upper_bound(binFirstRankV.begin(), binFirstRankV.end(), rank);
        return static_cast<int>(past - binFirstRankV.begin() - 1) >> code8Shift;
    }
};

struct Column : ColumnShape {
    // By row: the 8-bit code; in a narrow column bin and rank, too.
    LargeArray<uint8_t> code8V;
    // Wide columns: the rank per row.
    RowRanks ranks;

    // The column of the rows rowV[0], rowV[1], ...
    Column Of(const std::vector<int>& rowV) const;
};

// Bin numbers, row by row. Rows are padded with zeros to whole 16 bytes. 16 bytes may be read from
// any code on, past the end too.
template <typename Code>
struct RowCodes {
    size_t stride = 0;  // codes per row
    LargeArray<Code> codeV;

    static constexpr size_t kSlack = 16;

    const Code* Row(int row) const { return codeV.data() + static_cast<size_t>(row) * stride; }
    // Zeroed codes for `numRows` rows.
    void Resize(size_t numRows) { codeV.resize(numRows * stride + kSlack); }
    // Copies the codes of the rows rowV[0], rowV[1], ... of `whole`.
    void Take(const RowCodes& whole, const std::vector<int>& rowV) {
        stride = whole.stride;
        Resize(rowV.size());
        for (size_t i = 0; i < rowV.size(); ++i) {
            std::copy_n(whole.Row(rowV[i]), stride, codeV.data() + i * stride);
        }
    }
};

// Immutable once made, so any number of threads may use it.
class BinnedColumns {
  public:
    // Codes a matrix, whose values must stay valid and unchanged. Columns get at most
    // tuning.mostBins bins, and a few more around heavy values. The workers of `pool` share the
    // work. Throws std::bad_alloc.
    BinnedColumns(const Matrix& matrix, const Tuning& tuning, WorkerPool& pool);
    // Codes a matrix that has the rows rowV[0], rowV[1], ... of the matrix of `whole`, by copying
    // its codes. Bins and ranks stay those of `whole`, so some may have no rows.
    BinnedColumns(const BinnedColumns& whole, const Matrix& matrix, const std::vector<int>& rowV,
                  WorkerPool& pool);

    int NumRows() const { return values.NumRows(); }
    int NumColumns() const { return static_cast<int>(columnV.size()); }
    const Column& At(int column) const { return columnV[static_cast<size_t>(column)]; }
    double Value(int row, int column) const { return values.At(row, column); }
    // Whether a column holds a NaN, which has no rank. Then the codes must not be used.
    bool HasNan() const { return fNan; }
    // Whether any column has several values in a bin.
    bool HasInexact() const {
        return std::any_of(columnV.begin(), columnV.end(),
                           [](const Column& c) { return !c.fExact; });
    }
    // The approximate number of bins of a column with more distinct values than that.
    int MostBins() const { return maxBins; }
    // The number of cells of a histogram with 2^shift bins joined, 2^shift <= MostBins().
    size_t NumCells(int shift) const { return numCellsV[static_cast<size_t>(shift)]; }
    // The columns of the row codes, by codeIndex.
    const std::vector<int>& NarrowColumns() const { return narrowV; }
    const std::vector<int>& WideColumns() const { return wideV; }
    // The bin numbers of all rows.
    const RowCodes<uint8_t>& NarrowRows() const { return narrowRows; }
    const RowCodes<uint16_t>& WideRows() const { return wideRows; }

    // The rank of a row in a column.
    uint32_t Rank(int column, int row) const {
        const Column& c = At(column);
        const uint8_t code = c.code8V[static_cast<size_t>(row)];
        return c.fNarrow ? code : c.ranks.At(static_cast<size_t>(row), code);
    }

  private:
    // What a worker needs to code a column.
    struct CodingBuffers;

    std::vector<uint64_t> CodeColumns(int rankBits, WorkerPool& pool);
    bool CodeColumn(int column, int rankBits, CodingBuffers& buffers);
    void LayOutColumns();
    void FillRowCodes(WorkerPool& pool);
    uint64_t HashRanks(int column) const;
    void FindDuplicates(const std::vector<uint64_t>& hashV);

    const Matrix values;
    int maxBins;
    bool fNan = false;
    std::vector<size_t> numCellsV;  // by shift
    std::vector<Column> columnV;
    std::vector<int> narrowV, wideV;  // columns by codeIndex
    RowCodes<uint8_t> narrowRows;
    RowCodes<uint16_t> wideRows;
};

}  // namespace engine
}  // namespace sylvora

#endif  // SYLVORA_ENGINE_TRAIN_HISTOGRAM_BINNEDCOLUMNS_H
