// Many rows through the trees, block by block.
#ifndef SYLVORA_ENGINE_SCORE_BATCHSCORING_H
#define SYLVORA_ENGINE_SCORE_BATCHSCORING_H

#include <cstddef>

#include "CompiledEnsemble.h"

namespace sylvora {
namespace engine {

// Row i begins at values + i * stride and has a value for every column of the ensemble.
struct RowTable {
    const double* values;
    size_t numRows;
    size_t stride;

    const double* Row(size_t row) const { return values + row * stride; }
};

// Scores all rows with at most `numThread` threads, this one included: in a regression the sum over
// groups of shrink times mean, in a classification the vote of every tree of a group, with counts
// carried from group to group. Throws std::bad_alloc before anything is written.
void ScoreRows(const CompiledEnsemble& ensemble, const RowTable& rows, double* results,
               int numThread);

}  // namespace engine
}  // namespace sylvora

#endif  // SYLVORA_ENGINE_SCORE_BATCHSCORING_H
