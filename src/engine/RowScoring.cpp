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

    void Add(const GroupPiece& piece, const double* valueV, const double* shrinkV) {
        if (piece.fSingles) {
            AddSingles(piece.numTrees, valueV, shrinkV);
            return;
        }
        double total = sum;
        for (int t = 0; t < piece.numTrees; ++t) total += valueV[t];
        sum = total;
        if (piece.fEnd) EndGroup(piece);
    }

    double Result() const { return result; }

  private:
    void AddSingles(int numTrees, const double* valueV, const double* shrinkV) {
        double total = result;
        // The mean of one value is that value added to 0, which matters to -0.0.
        for (int t = 0; t < numTrees; ++t) total += shrinkV[t] * (0.0 + valueV[t]);
        result = total;
        for (int t = 0; meanV != nullptr && t < numTrees; ++t) *meanV++ = 0.0 + valueV[t];
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

}  // namespace

double ScoreRow(const CompiledEnsemble& ensemble, const double* row, double* meanV) {
    RowLeaves leaves(ensemble, row);
    RowTotals totals(meanV);
    while (leaves.Next()) {
        for (const Bundle* bundle = leaves.FirstBundle(); bundle != leaves.EndBundle(); ++bundle) {
            const double* const valueV = leaves.Values(*bundle);
            const double* const shrinkV = ensemble.shrinkV.data() + bundle->firstTree;
            for (size_t k = bundle->firstPiece; k < bundle->endPiece; ++k) {
                const GroupPiece& piece = ensemble.pieceV[k];
                totals.Add(piece, valueV + piece.firstTree, shrinkV + piece.firstTree);
            }
        }
    }
    return totals.Result();
}

}  // namespace engine
}  // namespace sylvora
