// The score of one row in a regression.
#ifndef SYLVORA_ENGINE_SCORE_ROWSCORING_H
#define SYLVORA_ENGINE_SCORE_ROWSCORING_H

#include "CompiledEnsemble.h"

namespace sylvora {
namespace engine {

// The sum over groups of shrink times mean, added up in the order of the trees; each group's mean
// goes to meanV, unless that is null. `row` has a value for every column of the ensemble.
double ScoreRow(const CompiledEnsemble& ensemble, const double* row, double* meanV);

}  // namespace engine
}  // namespace sylvora

#endif  // SYLVORA_ENGINE_SCORE_ROWSCORING_H
