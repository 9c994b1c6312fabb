// Adds a grown tree to the training predictions. A row that the tree was grown on lies in the slice
// of its leaf; only the other rows walk the tree.
#ifndef SYLVORA_ENGINE_TRAIN_HISTOGRAM_PREDICTIONUPDATE_H
#define SYLVORA_ENGINE_TRAIN_HISTOGRAM_PREDICTIONUPDATE_H

#include <cstdint>
#include <vector>

#include "BinnedColumns.h"
#include "HistogramGrower.h"
#include "base/WorkerPool.h"

namespace sylvora {
namespace engine {

// Adds the step of each row's leaf to predictV, which is indexed by row of the data; stepV is
// indexed by node.
void StepPredictions(const HistogramGrower& grower, const BinnedColumns& data, WorkerPool& pool,
                     const double* stepV, double* predictV);

// The same in a training by several ranks, each of which has the codes of its own columns.
// Collective; throws RanksLost.
void StepPredictionsByRanks(const HistogramGrower& grower, const BinnedColumns& data, Ranks& ranks,
                            WorkerPool& pool, const double* stepV, double* predictV);

}  // namespace engine
}  // namespace sylvora

#endif  // SYLVORA_ENGINE_TRAIN_HISTOGRAM_PREDICTIONUPDATE_H
