// A closer look inside the bins that may hold the winner: a second, finer histogram over them
// alone, so that few rows are left to be sorted.
#ifndef SYLVORA_ENGINE_TRAIN_HISTOGRAM_FINESCAN_H
#define SYLVORA_ENGINE_TRAIN_HISTOGRAM_FINESCAN_H

#include <cstdint>
#include <vector>

#include "Histogram.h"
#include "base/LargeArray.h"
#include "engine/train/FixedPoint.h"

namespace sylvora {
namespace engine {

// A bin under the glass: the ranks [first, past) with the sums before and behind them, cut into
// equally wide pieces.
struct FineBin {
    uint32_t first;
    uint32_t past;
    Cell before;
    Cell behind;
    bool fClean;  // every change of rank is a cut; otherwise the bin stays in one piece
    size_t firstPiece = 0;
    size_t numPieces = 1;
    double piecesPerRank = 0.0;

    size_t PieceOf(uint32_t rank) const {
        return firstPiece + static_cast<size_t>((rank - first) * piecesPerRank);
    }
    // The highest rank of a piece.
    uint32_t LastRank(size_t piece) const;
};

class FineScan {
  public:
    explicit FineScan(const FixedPoint& fixedPoint) : fixed(fixedPoint) {}

    // Cuts the bins (ascending, disjoint) into pieces and counts the rows of the keys into them;
    // keys of other ranks are dropped.
    void Count(std::vector<FineBin>& bins, const RowSet& rows, LargeArray<uint64_t>& keyV);

    // Calls visit(bin, piece, before, inside) for each piece with rows, in order.
    template <typename Visit>
    void ForPieces(const std::vector<FineBin>& bins, const Visit& visit) const {
        for (const FineBin& bin : bins) {
            Cell before = bin.before;
            for (size_t piece = bin.firstPiece; piece < bin.firstPiece + bin.numPieces; ++piece) {
                const Cell& inside = cellV[piece];
                if (inside.packed == 0) continue;
                visit(bin, piece, before, inside);
                before += inside;
            }
        }
    }

    // Keeps the keys of the pieces marked in fKeepV.
    void Keep(const std::vector<uint8_t>& fKeepV, LargeArray<uint64_t>& keyV) const;

    size_t NumPieces() const { return cellV.size(); }

  private:
    void CutBins(std::vector<FineBin>& bins);
    void AddRows(const RowSet& rows, const LargeArray<uint64_t>& keyV);

    const FixedPoint& fixed;
    std::vector<Cell> cellV;      // by piece
    LargeArray<uint32_t> pieceV;  // by key
    std::vector<uint16_t>
        binAtV;           // by rank from `lowest`, in steps: the first bin that ends beyond
    uint32_t lowest = 0;  // rank of all bins
    int step = 0;
};

}  // namespace engine
}  // namespace sylvora

#endif  // SYLVORA_ENGINE_TRAIN_HISTOGRAM_FINESCAN_H
