// Scoring one row; see RowScoring.h.
#include "RowScoring.h"

#include "RowLeaves.h"

namespace sylvora {
namespace engine {
namespace {

// Adds up the leaf values of a row, piece by piece, in the order of the trees; the order fixes the
// rounding. Each loop adds to a local variable, which stays in a register: a total in memory would
// make each addition wait for the previous store.
class RowTotals {
  public:
    explicit RowTotals(double* means) : meanV(means) {}

    // `leaves` and shrinkV begin with the piece's first tree.
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
    // The mean of one value is 0.0 + value, which turns -0.0 into 0.0, as in the reference
    // implementation. The result does not need that addition: it starts at 0.0, and adding either
    // zero to it gives the same.
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
    double sum = 0.0;  // of the current group's trees so far
    double* meanV;     // where the next mean is written; null if means are not wanted
};

// Adds the leaves of the bundles that `at` has evaluated; `leaves` begins with their first tree.
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
