// The training data as small integers, coded once per run. Comparing two values of a column becomes
// comparing two integers, and filling a histogram a table look-up.
//
// The rank of a value is its index among the column's distinct values in ascending order (-0.0 and
// 0.0 are one value). A bin is a run of ranks. A column with few distinct values has one bin per
// value ("exact"). Otherwise a bin holds several values, and more rows in the middle of the column
// than at its ends: its share of the rows grows with the square root of the rows on the shorter
// side, as does the noise of their sum.
//
// A column is narrow if its bins fit 8 bits without loss, otherwise wide. Narrow columns are stored
// in groups that share an 8-bit code per row (ColumnGroups.h). The 8-bit code of a row in a wide
// column stands for one of 256 groups of neighbouring bins. Most look-ups by column read only 8-bit
// codes, because they take the least memory.
//
// Two neighbouring values are separable if a regression split may lie between them (Separable.h).
// Invariant: no bin ends between inseparable values, so every bin boundary is a candidate split in
// every node.
#ifndef SYLVORA_ENGINE_TRAIN_HISTOGRAM_BINNEDCOLUMNS_H
#define SYLVORA_ENGINE_TRAIN_HISTOGRAM_BINNEDCOLUMNS_H

#include <algorithm>
#include <cstdint>
#include <vector>

#include "ColumnGroups.h"
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
    // At most 256 bins, all exact. The bins of the rows are in a group, unless the column is
    // constant.
    bool fNarrow = false;
    // The position in a row of the row codes: of a narrow column its group, of a wide one its
    // number among the wide columns.
    int codeIndex = 0;
    // A narrow column's number among the columns of its group.
    int member = 0;
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
    // Of a wide column: the bin that nearly all rows have, or -1.
    int frequentBin = -1;
    // The number of bins when 2^shift neighbours are joined. Bins of exact columns are never
    // joined.
    int NumBins(int shift) const { return fExact ? numBins : ((numBins - 1) >> shift) + 1; }

    // Whether all rows have the same value. Nothing is stored by row then, and no split is in the
    // column.
    bool IsConstant() const { return fExact && numBins == 1; }

    // The 8-bit code of a bin: the bin, or if there are more, one of 256 groups of neighbours.
    int Code8OfBin(int bin) const {
        const int64_t scaled = int64_t{bin} * kGroupCodes;
        return numBins <= kGroupCodes ? bin : static_cast<int>(scaled / numBins);
    }
    // The 8-bit code of a rank.
    int Code8Of(uint32_t rank) const {
        const auto past = std::upper_bound(binFirstRankV.begin(), binFirstRankV.end(), rank);
        return Code8OfBin(static_cast<int>(past - binFirstRankV.begin() - 1));
    }
};

struct Column : ColumnShape {
    // By row: the 8-bit code. Empty in a narrow column, whose bins are in the group.
    LargeArray<uint8_t> code8V;
    // By row: the rank. Empty in a narrow column.
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
    // The codes of a row: groups of narrow columns, and wide columns.
    int NumCodes() const { return static_cast<int>(groupV.size() + wideV.size()); }
    // The columns that are not constant.
    const std::vector<int>& VaryingColumns() const { return varyingV; }
    // The group of a narrow column, and the bins of the group's codes in the column. Not of a
    // constant one.
    const ColumnGroup& GroupOf(const Column& column) const {
        return groupV[static_cast<size_t>(column.codeIndex)];
    }
    const uint8_t* BinsOfCodes(const Column& column) const {
        return GroupOf(column).BinsOfCodes(static_cast<size_t>(column.member));
    }
    // By codeIndex.
    const std::vector<ColumnGroup>& Groups() const { return groupV; }
    // By row: the codes of the groups, and the bin numbers of the wide columns.
    const RowCodes<uint8_t>& GroupRows() const { return groupRows; }
    const RowCodes<uint16_t>& WideRows() const { return wideRows; }

    // The rank of a row in a column.
    uint32_t Rank(int column, int row) const {
        const Column& c = At(column);
        const size_t r = static_cast<size_t>(row);
        if (c.IsConstant()) return 0;
        if (c.fNarrow) return BinsOfCodes(c)[GroupOf(c).codeV[r]];
        return c.ranks.At(r, c.code8V[r]);
    }

  private:
    // What a worker needs to code a column.
    struct CodingBuffers;

    std::vector<uint64_t> CodeColumns(int rankBits, WorkerPool& pool);
    bool CodeColumn(int column, int rankBits, CodingBuffers& buffers);
    uint64_t HashRanks(const Column& column) const;
    void FindDuplicates(const std::vector<uint64_t>& hashV);
    void GroupNarrowColumns(WorkerPool& pool);
    void LayOutColumns();
    void FillRowCodes(WorkerPool& pool);

    const Matrix values;
    int maxBins;
    bool fNan = false;
    std::vector<size_t> numCellsV;  // by shift
    std::vector<Column> columnV;
    std::vector<ColumnGroup> groupV;
    std::vector<int> wideV;  // columns by codeIndex
    std::vector<int> varyingV;
    RowCodes<uint8_t> groupRows;
    RowCodes<uint16_t> wideRows;
};

}  // namespace engine
}  // namespace sylvora

#endif  // SYLVORA_ENGINE_TRAIN_HISTOGRAM_BINNEDCOLUMNS_H
