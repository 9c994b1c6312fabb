// Decides a near-tie by the scores that the reference implementation computes.
#ifndef SYLVORA_ENGINE_TRAIN_HISTOGRAM_TIEBREAK_H
#define SYLVORA_ENGINE_TRAIN_HISTOGRAM_TIEBREAK_H

#include <cstdint>
#include <vector>

#include "BinScan.h"
#include "BinnedColumns.h"
#include "base/LargeArray.h"
#include "engine/train/GrownTree.h"
#include "engine/train/RowSets.h"

namespace sylvora {
namespace engine {

// Sorts a node's rows by their ranks, which permutes them like their values, and adds them up: both
// only as far as the candidates lie. Not thread-safe: each worker has its own.
class TieBreak {
  public:
    explicit TieBreak(const BinnedColumns& columns) : data(columns) {}

    // Returns the candidate of the highest reference score, of equals the first, with that score.
    // There is at least one; they are the only ones that may win, ascending by slot, no two in a
    // slot. `rows` are those of the node in the reference implementation's order.
    Candidate Choose(const GrownNode& node, const RowSlice& rows,
                     const std::vector<Candidate>& candidateV);

  private:
    int SortLeft(const Candidate& candidate, const RowSlice& rows);
    double ReferenceScore(const GrownNode& node, const RowSlice& rows, int numLeft) const;

    const BinnedColumns& data;
    LargeArray<uint64_t> keyV;  // of rank and position in the slice
};

}  // namespace engine
}  // namespace sylvora

#endif  // SYLVORA_ENGINE_TRAIN_HISTOGRAM_TIEBREAK_H
