// The engine at work for a learner: the coded data and the workers of one training run.
#ifndef SYLVORA_TREELEARNER_ENGINERUN_H
#define SYLVORA_TREELEARNER_ENGINERUN_H

#include <memory>

#include "../TreeLearner.h"
#include "../engine/Columns.h"
#include "../engine/RegressionGrowth.h"
#include "../engine/WorkerPool.h"

namespace sylvora {

class EngineRun {
  public:
    // Prepares the engine for the learner's training data; null where the plain form is to be used:
    // it was asked for, debug records or a user's sampler need it, or a column holds a NaN.
    static std::unique_ptr<EngineRun> Start(const TreeLearner& learner);

    // Grows `tree` on `num` rows as TreeCR::GrowOne and GrowHalf do. False, with nothing changed,
    // when the gradients are out of the engine's range.
    [[nodiscard]] bool Grow(const TreeLearner& learner, TreeCR& tree, int* indexV, int num,
                            long* seed);

  private:
    class NodePlainSearch;

    EngineRun(const TreeLearner& learner, const engine::GrowthLimits& limits);

    engine::WorkerPool pool;
    engine::Columns columns;
    std::unique_ptr<engine::PlainSearch> plain;
    engine::RegressionGrowth growth;
};

}  // namespace sylvora

#endif  // SYLVORA_TREELEARNER_ENGINERUN_H
