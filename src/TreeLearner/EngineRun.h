// The engine at work for a learner: the coded data of one training run.
#ifndef SYLVORA_TREELEARNER_ENGINERUN_H
#define SYLVORA_TREELEARNER_ENGINERUN_H

#include <memory>

#include "../TreeLearner.h"
#include "RowDraw.h"
#include "base/WorkerPool.h"
#include "engine/train/ReferenceSearch.h"
#include "engine/train/Tuning.h"

namespace sylvora {

class EngineRun {
  public:
    ~EngineRun();

    // An engine for the learner's training data that works with `pool`, which outlives it; null
    // where the plain form is to be used: it was asked for, debug records or a user's sampler need
    // it, or a column holds a NaN.
    [[nodiscard]] static std::unique_ptr<EngineRun> Start(const TreeLearner& learner,
                                                          WorkerPool& pool);

    // Grows `tree` on `num` rows as TreeCR::GrowOne and GrowHalf do, with the learner's weights
    // (null: all 1); the array of rows is freed as soon as it can be. False, with nothing changed,
    // when the gradients or the weights are out of the engine's range.
    [[nodiscard]] bool Grow(const TreeLearner& learner, TreeCR& tree, const int* weightV,
                            std::unique_ptr<int[]>& indexV, int num, long* seed);

    // Gives out rows that were drawn ahead for the next tree, whatever their weights, and moves the
    // generator on; false, with nothing changed, where there are none that fit.
    [[nodiscard]] bool TakeRowsAhead(const RowDraw& draw, long* seed,
                                     std::unique_ptr<int[]>& drawnV);

    // Steps the learner's predictions along the tree grown last, as UpdatePrediction does over all
    // rows. False, with nothing changed, when that tree is not the engine's.
    [[nodiscard]] bool StepPredictions(const TreeLearner& learner);

  private:
    class NodePlainSearch;
    struct HistogramWay;
    struct ListWay;

    EngineRun(const TreeLearner& learner, WorkerPool& workers);
    [[nodiscard]] bool Prepare(const TreeLearner& learner);

    const engine::Tuning tuning;
    WorkerPool& pool;
    std::unique_ptr<engine::ReferenceSearch> plain;
    std::unique_ptr<HistogramWay> histograms;  // one of the two grows the trees
    std::unique_ptr<ListWay> lists;
    std::unique_ptr<RowsAhead> rowsAhead;  // null: a tree's rows are drawn when they are needed
    const TreeCR* grownTree = nullptr;     // the tree that the histograms hold; never followed
};

}  // namespace sylvora

#endif  // SYLVORA_TREELEARNER_ENGINERUN_H
