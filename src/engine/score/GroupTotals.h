// Turns the leaves that a block of rows reaches into scores. Pieces are added in the order of the
// trees, and each row's additions and counts happen in the order of the reference implementation,
// so the scores agree bit for bit.
//
// Both classes have the same interface: Begin() a block, with the scores to add to or null, Add()
// each piece for each tile, then CopyResults(). They own their buffers, which hold maxTiles tiles;
// one object per worker.
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
    const double* shrinkV;  // by tree of the piece

    double Value(int tree, int row) const { return valueV[tree][leafV[tree * kTileRows + row]]; }
};

// The sum over groups of shrink times the mean of the group's leaf values.
class RegressionTotals {
  public:
    RegressionTotals(int, int maxTiles) : sumV(NumRows(maxTiles)), resultV(NumRows(maxTiles)) {}

    void Begin(const double* scores, int numRows) {
        std::fill(sumV.begin(), sumV.end(), 0.0);
        std::fill(resultV.begin(), resultV.end(), 0.0);
        if (scores != nullptr) std::copy_n(scores, numRows, resultV.data());
    }

    template <typename Leaf>
    void Add(const GroupPiece& piece, int tile, const PieceLeaves<Leaf>& leaves) {
        double* sums = sumV.data() + tile * kTileRows;
        double* results = resultV.data() + tile * kTileRows;
        if (piece.fSingles) {
            // Each tree is a group, whose mean is the tree's value: no sum, no division.
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

    // totals[r] += factor(t) * value, tree by tree for each row. The totals of kUnrolledRows rows
    // stay in registers through all trees. Multiplying by 1.0 is exact.
    template <typename Leaf, typename Factor>
    static void AddLeaves(const GroupPiece& piece, const PieceLeaves<Leaf>& leaves, double* totals,
                          Factor factor) {
        constexpr int kUnrolledRows = 8;
        for (int first = 0; first < kTileRows; first += kUnrolledRows) {
            double total[kUnrolledRows];
            std::copy_n(totals + first, kUnrolledRows, total);
            for (int t = 0; t < piece.numTrees; ++t) {
                for (int i = 0; i < kUnrolledRows; ++i) {
                    total[i] += factor(t) * leaves.Value(t, first + i);
                }
            }
            std::copy_n(total, kUnrolledRows, totals + first);
        }
    }

    std::vector<double> sumV;     // by row of the block: the current group's trees so far
    std::vector<double> resultV;  // by row of the block: the groups so far
};

// Each tree votes for the class that its leaf value truncates to. Deliberately, the counts and the
// highest count carry over from group to group; only the winner is reset. A group whose votes never
// exceed the highest count so far has the winner 0.
class VoteTotals {
  public:
    VoteTotals(int classes, int maxTiles)
        : numClass(static_cast<size_t>(classes)),
          rowV(static_cast<size_t>(maxTiles) * kTileRows),
          countV(rowV.size() * numClass) {}

    void Begin(const double*, int) {
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
        double winner = 0.0;  // the leaf value that reached the highest count, in this group
        int highest = 0;      // count, in all groups so far
    };

    static void EndGroup(Row& row, double shrink) {
        row.result += shrink * row.winner;
        row.winner = 0.0;
    }

    size_t numClass;
    std::vector<Row> rowV;    // by row of the block
    std::vector<int> countV;  // by row of the block, then by class
};

}  // namespace engine
}  // namespace sylvora

#endif  // SYLVORA_ENGINE_SCORE_GROUPTOTALS_H
