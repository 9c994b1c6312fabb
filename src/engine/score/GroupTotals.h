// What becomes of the leaves that a block of rows reaches: the scores, built up piece by piece in
// the order of the trees, as the plain form adds and counts.
#ifndef SYLVORA_ENGINE_SCORE_GROUPTOTALS_H
#define SYLVORA_ENGINE_SCORE_GROUPTOTALS_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "BlockKernel.h"
#include "CompiledEnsemble.h"

namespace sylvora {
namespace engine {

// The leaves that the rows of a tile reach in the trees of a piece: row r of tree t has the value
// valueV[t][leafV[t * kTileRows + r]].
template <typename Leaf>
struct PieceLeaves {
    const Leaf* leafV;
    const double* const* valueV;
    const double* shrinkV;  // by tree

    double Value(int tree, int row) const { return valueV[tree][leafV[tree * kTileRows + row]]; }
};

class RegressionTotals {
  public:
    RegressionTotals(int, int maxTiles) : sumV(NumRows(maxTiles)), resultV(NumRows(maxTiles)) {}

    void Begin() {
        std::fill(sumV.begin(), sumV.end(), 0.0);
        std::fill(resultV.begin(), resultV.end(), 0.0);
    }

    template <typename Leaf>
    void Add(const GroupPiece& piece, int tile, const PieceLeaves<Leaf>& leaves) {
        double* sums = sumV.data() + tile * kTileRows;
        double* results = resultV.data() + tile * kTileRows;
        if (piece.fSingles) {
            // The mean of one value is that value, so only the product is left.
            AddLeaves(piece, leaves, results, [&](int t) { return leaves.shrinkV[t]; });
            return;
        }
        AddLeaves(piece, leaves, sums, [](int) { return 1.0; });
        for (int r = 0; piece.fEnd && r < kTileRows; ++r) {
            results[r] += piece.shrink * (sums[r] / piece.numGroupTrees);
            sums[r] = 0.0;
        }
    }

    void CopyResults(double* results, int numRows) const {
        std::copy_n(resultV.data(), numRows, results);
    }

  private:
    static size_t NumRows(int numTiles) { return static_cast<size_t>(numTiles) * kTileRows; }

    // The totals of a few rows stay in registers while all trees go by.
    template <typename Leaf, typename Factor>
    static void AddLeaves(const GroupPiece& piece, const PieceLeaves<Leaf>& leaves, double* totals,
                          Factor factor) {
        constexpr int kTogether = 8;
        for (int first = 0; first < kTileRows; first += kTogether) {
            double total[kTogether];
            std::copy_n(totals + first, kTogether, total);
            for (int t = 0; t < piece.numTrees; ++t) {
                for (int i = 0; i < kTogether; ++i) {
                    total[i] += factor(t) * leaves.Value(t, first + i);
                }
            }
            std::copy_n(total, kTogether, totals + first);
        }
    }

    std::vector<double> sumV;     // of the group's trees so far
    std::vector<double> resultV;  // of the groups so far
};

// Counts and the highest count are carried from group to group.
class VoteTotals {
  public:
    VoteTotals(int classes, int maxTiles)
        : numClass(static_cast<size_t>(classes)),
          rowV(static_cast<size_t>(maxTiles) * kTileRows),
          countV(rowV.size() * numClass) {}

    void Begin() {
        std::fill(rowV.begin(), rowV.end(), Row());
        std::fill(countV.begin(), countV.end(), 0);
    }

    template <typename Leaf>
    void Add(const GroupPiece& piece, int tile, const PieceLeaves<Leaf>& leaves) {
        for (int r = 0; r < kTileRows; ++r) {
            const size_t at = static_cast<size_t>(tile * kTileRows + r);
            Row row = rowV[at];
            int* const counts = countV.data() + at * numClass;
            for (int t = 0; t < piece.numTrees; ++t) {
                const double value = leaves.Value(t, r);
                const int count = ++counts[static_cast<int>(value)];
                row.winner = count > row.highest ? value : row.winner;
                row.highest = std::max(row.highest, count);
                if (piece.fSingles) EndGroup(row, leaves.shrinkV[t]);
            }
            if (piece.fEnd && !piece.fSingles) EndGroup(row, piece.shrink);
            rowV[at] = row;
        }
    }

    void CopyResults(double* results, int numRows) const {
        for (int r = 0; r < numRows; ++r) results[r] = rowV[static_cast<size_t>(r)].result;
    }

  private:
    struct Row {
        double result = 0.0;
        double winner = 0.0;
        int highest = 0;
    };

    static void EndGroup(Row& row, double shrink) {
        row.result += shrink * row.winner;
        row.winner = 0.0;
    }

    size_t numClass;
    std::vector<Row> rowV;
    std::vector<int> countV;  // by row and class
};

}  // namespace engine
}  // namespace sylvora

#endif  // SYLVORA_ENGINE_SCORE_GROUPTOTALS_H
