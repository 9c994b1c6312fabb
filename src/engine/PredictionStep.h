// The step of the training predictions along a grown tree. Rows that the tree was grown on lie in
// the slice of their leaf; only the others walk.
#ifndef SYLVORA_ENGINE_PREDICTIONSTEP_H
#define SYLVORA_ENGINE_PREDICTIONSTEP_H

#include <cstdint>
#include <vector>

#include "Columns.h"
#include "RegressionGrowth.h"
#include "WorkerPool.h"

namespace sylvora {
namespace engine {

// Adds value * dynShrink * valShrink (in this order) of each row's leaf to predictV.
void StepPredictions(const RegressionGrowth& growth, const Columns& data, WorkerPool& pool,
                     double dynShrink, double valShrink, double* predictV);

}  // namespace engine
}  // namespace sylvora

#endif  // SYLVORA_ENGINE_PREDICTIONSTEP_H
