// Fills histograms with the rows of a node.
#ifndef SYLVORA_ENGINE_TRAIN_HISTOGRAM_HISTOGRAMFILLER_H
#define SYLVORA_ENGINE_TRAIN_HISTOGRAM_HISTOGRAMFILLER_H

#include <cstdint>
#include <vector>

#include "BinnedColumns.h"
#include "CodeTile.h"
#include "Histogram.h"
#include "OtherCodes.h"
#include "engine/train/FixedPoint.h"
#include "engine/train/RowSets.h"

namespace sylvora {
namespace engine {

// Works block by block. The row-major codes of a block are transposed to columns, unless the rows
// are consecutive. Two columns, or groups of narrow columns, at a time are then added, with each
// row's cell in a register. In a wide column where nearly all rows share a bin, only the others are
// added; the frequent bin gets what they leave of the block's sum. Not thread-safe: each worker has
// its own.
class HistogramFiller {
  public:
    explicit HistogramFiller(const BinnedColumns& data);

    // Adds the rows to the cells of the given columns. Fastest for ascending rows.
    void Add(const RowSet& rows, const FixedPoint& fixed, const std::vector<int>& columns,
             Histogram& histogram);

  private:
    // A wide column or a group to be counted.
    struct Target {
        int codeIndex;
        Cell* cells;
        int numBins;
        int shift;             // of codes to bins
        int frequentBin = -1;  // as in Column, shifted
    };

    void ChooseTargets(const std::vector<int>& columns, Histogram& histogram);
    void LoadCells(const RowSet& rows, int begin, int count, const FixedPoint& fixed);
    void AddBlock(const int* rowV, int count);
    template <typename Code, typename CodesOf>
    void AddTargets(int count, const std::vector<Target>& targetV, const CodesOf& codesOf);
    void AddOthers(int count, const Target& target, const Cell& blockTotal);
    void SpreadJointCells(const std::vector<int>& columns, Histogram& histogram);
    void SpreadGroup(const GroupShape& group, const Cell* joint);

    const BinnedColumns& data;
    const int blockRows;  // rows per block
    // The cells of the block's rows, then kPadRows zeros.
    std::vector<Cell> cellV;
    // Second cells of the targets being added; zeros between uses.
    std::vector<Cell> oddV;
    CodeTile<uint8_t> groupTile;
    CodeTile<uint16_t> wideTile;
    std::vector<Target> groupTargetV, wideTargetV;
    // Those of the wide columns that have a frequent bin.
    std::vector<Target> frequentTargetV;
    FindOtherCodes* const findOtherCodes;
    std::vector<OtherCode> otherV;
    // The cells of the codes of groups of several columns, and by group its first one. Zeros
    // between uses.
    std::vector<Cell> jointV;
    std::vector<size_t> firstJointV;
    // By group: whether it is a target.
    std::vector<uint8_t> fTargetV;
    // By column: its cells in the histogram; null between uses.
    std::vector<Cell*> cellsOfColumnV;
    // By member of a group: the cells of its column, or null if the column is not counted.
    std::vector<Cell*> memberCellV;
};

}  // namespace engine
}  // namespace sylvora

#endif  // SYLVORA_ENGINE_TRAIN_HISTOGRAM_HISTOGRAMFILLER_H
