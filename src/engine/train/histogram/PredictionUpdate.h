// The step of the training predictions along a grown tree. Rows that the tree was grown on lie in
// the slice of their leaf; only the others walk.
#ifndef SYLVORA_ENGINE_TRAIN_HISTOGRAM_PREDICTIONUPDATE_H
#define SYLVORA_ENGINE_TRAIN_HISTOGRAM_PREDICTIONUPDATE_H

#include <cstdint>
#include <vector>

#include "BinnedColumns.h"
#include "HistogramGrower.h"
#include "base/WorkerPool.h"

namespace sylvora {
namespace engine {

// Adds value * dynShrink * valShrink (in this order) of each row's leaf to predictV.
void StepPredictions(const HistogramGrower& growth, const BinnedColumns& data, WorkerPool& pool,
                     double dynShrink, double valShrink, double* predictV);

}  // namespace engine
}  // namespace sylvora

#endif  // SYLVORA_ENGINE_TRAIN_HISTOGRAM_PREDICTIONUPDATE_H
