// Scoring one row; see RowScoring.h.
#include "RowScoring.h"

#include "RowLeaves.h"

namespace sylvora {
namespace engine {
namespace {

// Adds up the leaves of a row, piece by piece. Totals are kept in registers while a piece is added:
// were they in memory, each addition would wait for the last one to be stored.
class RowTotals {
  public:
    explicit RowTotals(double* means) : meanV(means) {}

    // `leaves` and shrinkV are those of the piece's trees.
    template <typename Leaf>
    void Add(const GroupPiece& piece, const TreeLeaves<Leaf>& leaves, const double* shrinkV) {
        const size_t numTrees = static_cast<size_t>(piece.numTrees);
        if (piece.fSingles) {
            AddSingles(numTrees, leaves, shrinkV);
            return;
        }
        double total = sum;
        for (size_t t = 0; t < numTrees; ++t) total += leaves.Value(t);
        sum = total;
        if (piece.fEnd) EndGroup(piece);
    }

    double Result() const { return result; }

  private:
    // The mean of one value is that value added to 0. It matters where the value is -0.0, to the
    // mean; the result, which begins with 0, comes out the same.
    template <typename Leaf>
    void AddSingles(size_t numTrees, const TreeLeaves<Leaf>& leaves, const double* shrinkV) {
        double total = result;
        for (size_t t = 0; t < numTrees; ++t) total += shrinkV[t] * leaves.Value(t);
        result = total;
        for (size_t t = 0; meanV != nullptr && t < numTrees; ++t) *meanV++ = 0.0 + leaves.Value(t);
    }

    void EndGroup(const GroupPiece& piece) {
        const double mean = sum / piece.numGroupTrees;
        result += piece.shrink * mean;
        sum = 0.0;
        if (meanV != nullptr) *meanV++ = mean;
    }

    double result = 0.0;
    double sum = 0.0;  // of the group's trees so far
    double* meanV;     // where the next mean goes; null: nowhere
};

// Adds the bundles at hand.
template <typename Leaf>
void AddBundles(const CompiledEnsemble& ensemble, const RowLeaves& at,
                const TreeLeaves<Leaf>& leaves, RowTotals& totals) {
    const size_t firstTree = at.FirstBundle()->firstTree;
    for (const Bundle* bundle = at.FirstBundle(); bundle != at.EndBundle(); ++bundle) {
        for (size_t k = bundle->firstPiece; k < bundle->endPiece; ++k) {
            const GroupPiece& piece = ensemble.pieceV[k];
            const size_t tree = bundle->firstTree + static_cast<size_t>(piece.firstTree);
            totals.Add(piece, leaves.From(tree - firstTree), ensemble.shrinkV.data() + tree);
        }
    }
}

}  // namespace

double ScoreRow(const CompiledEnsemble& ensemble, const double* row, double* meanV) {
    RowLeaves leaves(ensemble, row);
    RowTotals totals(meanV);
    while (leaves.Next()) {
        if (leaves.FirstBundle()->IsCoded()) {
            AddBundles(ensemble, leaves, leaves.Coded(), totals);
        } else {
            AddBundles(ensemble, leaves, leaves.Walked(), totals);
        }
    }
    return totals.Result();
}

}  // namespace engine
}  // namespace sylvora
