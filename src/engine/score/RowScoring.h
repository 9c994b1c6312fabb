// Scores one row of a regression ensemble.
#ifndef SYLVORA_ENGINE_SCORE_ROWSCORING_H
#define SYLVORA_ENGINE_SCORE_ROWSCORING_H

#include "CompiledEnsemble.h"

namespace sylvora {
namespace engine {

// Returns the sum over groups of shrink times the mean of the group's leaf values, added up in the
// order of the trees. Writes each group's mean to meanV, which has an element per group, unless
// meanV is null. `row` has a value for every column of the ensemble. Allocates nothing; any number
// of threads may score with the same ensemble.
double ScoreRow(const CompiledEnsemble& ensemble, const double* row, double* meanV);

}  // namespace engine
}  // namespace sylvora

#endif  // SYLVORA_ENGINE_SCORE_ROWSCORING_H
