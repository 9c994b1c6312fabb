// Filling of histograms; see HistogramFiller.h.
#include "HistogramFiller.h"

#include <emmintrin.h>

#include <algorithm>
#include <cstring>
#include <utility>

#include "base/Switch.h"

namespace sylvora {
namespace engine {
namespace {

constexpr int kBlockRows = 8192;
static_assert(kBlockRows <= kMostPlaces, "a place in a block is stored in 16 bits");
// Bounds the memory of a tile; see ChooseBlockRows.
constexpr size_t kMostTileCodes = size_t{1} << 26;
constexpr int kPadRows = 8;          // zero cells after a block: 8-bit codes per word
constexpr size_t kTogether = 2;      // targets added side by side
constexpr int kMostOddCells = 1024;  // more would not fit the L1 cache

// The rows per block, a multiple of eight: at most all rows, and fewer if rows are very wide.
int ChooseBlockRows(const BinnedColumns& data) {
    constexpr size_t kFewRows = 64;
    const size_t width = std::max(data.GroupRows().stride + data.WideRows().stride, size_t{1});
    const size_t mostRows = std::max(kMostTileCodes / width / 8 * 8, kFewRows);
    const int numRows = (std::min(data.NumRows(), kBlockRows) + 7) / 8 * 8;
    return static_cast<int>(std::min(static_cast<size_t>(numRows), mostRows));
}

// Whether the row numbers ascend by one.
bool IsRun(const int* rowV, int count) {
    for (int i = 1; i < count; ++i) {
        if (rowV[i] != rowV[0] + i) return false;
    }
    return true;
}

// Adds both words of a cell with one instruction. Cells are aligned to 16 bytes.
inline void AddCell(Cell* target, __m128i cell) {
    __m128i* at = reinterpret_cast<__m128i*>(target);
    _mm_store_si128(at, _mm_add_epi64(_mm_load_si128(at), cell));
}

// One column of a tile, and its cells. Rows at odd positions of the block may go to a second set of
// cells: for a frequent value, successive additions to one cell would wait for each other.
template <typename Code>
struct TileColumn {
    const Code* codes;
    Cell* cells;
    Cell* oddCells;
    int shift;
};

// Loads as many codes as fit a word, and shifts each to the coarse bin.
template <typename Code>
inline uint64_t CodesAt(const TileColumn<Code>& column, int row) {
    constexpr uint64_t kEachOne = ~uint64_t{0} / static_cast<Code>(~Code{0});
    uint64_t codes;
    std::memcpy(&codes, column.codes + row, sizeof codes);
    const uint64_t mask = static_cast<Code>(~Code{0}) >> column.shift;
    return (codes >> column.shift) & kEachOne * mask;
}

template <typename Code>
inline Code NextCode(uint64_t& codes) {
    const Code code = static_cast<Code>(codes);
    codes >>= 8 * sizeof(Code);
    return code;
}

// Adds the cells of the block's rows to kColumns columns side by side. Reads codes past the last
// row up to a whole word; the cells there are zero.
template <size_t kColumns, typename Code>
void AddTogether(const Cell* cells, int count, const TileColumn<Code>* columns) {
    constexpr int kWordRows = sizeof(uint64_t) / sizeof(Code);
    TileColumn<Code> columnV[kColumns];
    std::copy_n(columns, kColumns, columnV);
    // Each pass of the outer loop takes one word of codes per column.
    for (int i = 0; i < count; i += kWordRows) {
        uint64_t codesV[kColumns];
        for (size_t j = 0; j < kColumns; ++j) codesV[j] = CodesAt(columnV[j], i);
        for (int k = i; k < i + kWordRows; k += 2) {
            const __m128i even = _mm_load_si128(reinterpret_cast<const __m128i*>(cells + k));
            const __m128i odd = _mm_load_si128(reinterpret_cast<const __m128i*>(cells + k + 1));
            for (size_t j = 0; j < kColumns; ++j) {
                AddCell(columnV[j].cells + NextCode<Code>(codesV[j]), even);
            }
            for (size_t j = 0; j < kColumns; ++j) {
                AddCell(columnV[j].oddCells + NextCode<Code>(codesV[j]), odd);
            }
        }
    }
}

}  // namespace

HistogramFiller::HistogramFiller(const BinnedColumns& columns)
    : data(columns),
      blockRows(ChooseBlockRows(data)),
      cellV(static_cast<size_t>(blockRows + kPadRows)),
      oddV(kTogether * kMostOddCells),
      groupTile(data.GroupRows(), blockRows),
      wideTile(data.WideRows(), blockRows),
      findOtherCodes(&kFindOtherCodes.Choose(ForcedKernel())),
      otherV(static_cast<size_t>(blockRows + kOtherSlack)),
      fTargetV(data.Groups().size()),
      cellsOfColumnV(static_cast<size_t>(data.NumColumns())) {
    size_t numJoint = 0;
    for (const ColumnGroup& group : data.Groups()) {
        firstJointV.push_back(numJoint);
        if (group.IsJoint()) numJoint += static_cast<size_t>(group.numCodes);
    }
    jointV.resize(numJoint);
}

// Converts the block's gradients to cells; reads them in order where the set has its own.
void HistogramFiller::LoadCells(const RowSet& rows, int begin, int count, const FixedPoint& fixed) {
    if (rows.ownGradV == nullptr) {
        return rows.CellsOf(rows.rowV + begin, count, fixed, cellV.data());
    }
    fixed.ToCells(rows.ownGradV + begin,
                  rows.weightV != nullptr ? rows.ownWeightV + begin : nullptr, count, cellV.data());
}

// The filler's buffers hold one block, so memory does not grow with the node.
void HistogramFiller::Add(const RowSet& rows, const FixedPoint& fixed,
                          const std::vector<int>& columns, Histogram& histogram) {
    ChooseTargets(columns, histogram);
    for (int begin = 0, count; begin < rows.count; begin += count) {
        count = std::min(blockRows, rows.count - begin);
        LoadCells(rows, begin, count, fixed);
        AddBlock(rows.rowV + begin, count);
    }
    SpreadJointCells(columns, histogram);
}

// A group of one column, whose codes are the bins, is counted straight into the histogram.
void HistogramFiller::ChooseTargets(const std::vector<int>& columns, Histogram& histogram) {
    groupTargetV.clear();
    wideTargetV.clear();
    frequentTargetV.clear();
    std::fill(fTargetV.begin(), fTargetV.end(), uint8_t{0});
    for (const int id : columns) {
        const Column& column = data.At(id);
        if (column.IsConstant()) continue;
        const size_t index = static_cast<size_t>(column.codeIndex);
        if (!column.fNarrow) {
            const int shift = column.fExact ? 0 : histogram.shift;
            const bool fFrequent = column.frequentBin >= 0;
            (fFrequent ? frequentTargetV : wideTargetV)
                .push_back({column.codeIndex, histogram.Of(column), histogram.NumBins(column),
                            shift, fFrequent ? column.frequentBin >> shift : -1});
        } else if (fTargetV[index] == 0) {
            const ColumnGroup& group = data.GroupOf(column);
            Cell* const cells =
                group.IsJoint() ? &jointV[firstJointV[index]] : histogram.Of(column);
            groupTargetV.push_back({column.codeIndex, cells, group.numCodes, 0});
            fTargetV[index] = 1;
        }
    }
}

// If the rows are consecutive, the groups' codes are already contiguous and need no transposing.
void HistogramFiller::AddBlock(const int* rowV, int count) {
    std::fill_n(cellV.begin() + count, kPadRows, Cell());
    if (groupTargetV.empty()) {
        // No codes are needed.
    } else if (IsRun(rowV, count) && rowV[0] + count <= data.NumRows() - kPadRows) {
        AddTargets<uint8_t>(count, groupTargetV, [&](int index) {
            return data.Groups()[static_cast<size_t>(index)].codeV.data() + rowV[0];
        });
    } else {
        groupTile.Load(rowV, count);
        AddTargets<uint8_t>(count, groupTargetV, [&](int index) { return groupTile.At(index); });
    }
    if (wideTargetV.empty() && frequentTargetV.empty()) return;
    wideTile.Load(rowV, count);
    AddTargets<uint16_t>(count, wideTargetV, [&](int index) { return wideTile.At(index); });
    if (frequentTargetV.empty()) return;
    Cell total;
    for (int i = 0; i < count; ++i) total += cellV[static_cast<size_t>(i)];
    for (const Target& target : frequentTargetV) AddOthers(count, target, total);
}

// Adds the rows that are not in the target's frequent bin; that bin gets what they leave of the
// block's total.
void HistogramFiller::AddOthers(int count, const Target& target, const Cell& blockTotal) {
    const int num = findOtherCodes(wideTile.At(target.codeIndex), count, target.shift,
                                   static_cast<uint16_t>(target.frequentBin), otherV.data());
    __m128i added = _mm_setzero_si128();
    for (const OtherCode* other = otherV.data(); other < otherV.data() + num; ++other) {
        const __m128i cell =
            _mm_load_si128(reinterpret_cast<const __m128i*>(cellV.data() + other->place));
        AddCell(target.cells + other->bin, cell);
        added = _mm_add_epi64(added, cell);
    }
    Cell others;
    _mm_store_si128(reinterpret_cast<__m128i*>(&others), added);
    Cell& frequent = target.cells[target.frequentBin];
    frequent += blockTotal;
    frequent -= others;
}

// Adds the block to targets, whose codes codesOf(codeIndex) returns.
template <typename Code, typename CodesOf>
void HistogramFiller::AddTargets(int count, const std::vector<Target>& targetV,
                                 const CodesOf& codesOf) {
    // An odd target at the end is added alone.
    for (size_t j = 0; j < targetV.size(); j += kTogether) {
        const size_t num = std::min(kTogether, targetV.size() - j);
        TileColumn<Code> columnV[kTogether];
        for (size_t k = 0; k < num; ++k) {
            const Target& target = targetV[j + k];
            const bool fOdd = target.numBins <= kMostOddCells;
            columnV[k] = {codesOf(target.codeIndex), target.cells,
                          fOdd ? oddV.data() + k * kMostOddCells : target.cells, target.shift};
        }
        if (num == kTogether) {
            AddTogether<kTogether>(cellV.data(), count, columnV);
        } else {
            AddTogether<1>(cellV.data(), count, columnV);
        }
        // Merges the second cells into the first, and leaves them zero for the next targets.
        for (size_t k = 0; k < num; ++k) {
            if (columnV[k].oddCells == columnV[k].cells) continue;
            for (int bin = 0; bin < targetV[j + k].numBins; ++bin) {
                columnV[k].cells[bin] += columnV[k].oddCells[bin];
                columnV[k].oddCells[bin] = Cell();
            }
        }
    }
}

// Adds the cells of the groups' codes to those of the columns, and leaves them zero.
void HistogramFiller::SpreadJointCells(const std::vector<int>& columns, Histogram& histogram) {
    for (const int id : columns) {
        const Column& column = data.At(id);
        if (!column.fNarrow || column.IsConstant()) continue;
        cellsOfColumnV[static_cast<size_t>(id)] = histogram.Of(column);
    }
    for (const Target& target : groupTargetV) {
        const ColumnGroup& group = data.Groups()[static_cast<size_t>(target.codeIndex)];
        if (!group.IsJoint()) continue;
        memberCellV.clear();
        for (const int id : group.columnV) {
            memberCellV.push_back(std::exchange(cellsOfColumnV[static_cast<size_t>(id)], nullptr));
        }
        SpreadGroup(group, target.cells);
        std::fill_n(target.cells, group.numCodes, Cell());
    }
}

// Each code's cell goes to its rare bins. A member's frequent bin gets the sum over all codes less
// what its rare bins got. Words may wrap meanwhile; the sums are right in the end.
void HistogramFiller::SpreadGroup(const GroupShape& group, const Cell* joint) {
    Cell total;
    for (size_t code = 0; code < static_cast<size_t>(group.numCodes); ++code) {
        if (joint[code].packed == 0) continue;  // no rows: weights are at least 1
        total += joint[code];
        for (size_t r = group.firstRareV[code]; r < group.firstRareV[code + 1]; ++r) {
            const GroupShape::RareBin& rare = group.rareBinV[r];
            Cell* const cells = memberCellV[rare.member];
            if (cells == nullptr) continue;
            cells[rare.bin] += joint[code];
            cells[group.frequentBinV[rare.member]] -= joint[code];
        }
    }
    for (size_t m = 0; m < memberCellV.size(); ++m) {
        if (memberCellV[m] != nullptr) memberCellV[m][group.frequentBinV[m]] += total;
    }
}

}  // namespace engine
}  // namespace sylvora
