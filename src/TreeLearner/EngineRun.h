// Connects a learner to the training engine for one run of Boosting: holds the codes of the
// training data, which a data set may share with other runs, and the grower that works on them.
#ifndef SYLVORA_TREELEARNER_ENGINERUN_H
#define SYLVORA_TREELEARNER_ENGINERUN_H

#include <memory>

#include "../TreeLearner.h"
#include "RowDraw.h"
#include "base/WorkerPool.h"
#include "engine/train/ReferenceSearch.h"
#include "engine/train/Tuning.h"

namespace sylvora {

class CodedData;

// The trees equal those of the reference implementation bit for bit. The learner's rows must not
// change while this object lives; its gradients and weights may change between two trees.
//
// Thread safety: one thread calls, the one that trains. The calls share their work through `pool`.
class EngineRun {
  public:
    ~EngineRun();

    // Prepares an engine for the learner's training data. Borrows `pool`, which must outlive it.
    // Returns null where the reference implementation must grow the trees: it was asked for, debug
    // records or a user's sampler need it, a column holds a NaN, or maxDepth is below 1 and the
    // model is not a forest. Throws std::bad_alloc.
    [[nodiscard]] static std::unique_ptr<EngineRun> Start(const TreeLearner& learner,
                                                          WorkerPool& pool);

    // Grows `tree` on the rows indexV[0..num), as TreeCR::GrowOne and GrowHalf do. `weightV` has
    // the learner's weights, by row of the data; null: all are 1. May free indexV early, to save
    // memory. Moves the state word `seed` on. Returns false, and leaves `tree`, indexV and `seed`
    // as they were, when the gradients or the weights are out of the engine's range.
    [[nodiscard]] bool Grow(const TreeLearner& learner, TreeCR& tree, const int* weightV,
                            std::unique_ptr<int[]>& indexV, int num, long* seed);

    // Hands over the rows that were drawn ahead for the next tree, and moves the generator on. Rows
    // of weight 0 or less are among them. Returns false, with nothing changed, if nothing was drawn
    // ahead or the draw does not match.
    [[nodiscard]] bool TakeRowsAhead(const RowDraw& draw, long* seed,
                                     std::unique_ptr<int[]>& drawnV);

    // Adds the outputs of the tree grown last to the predictions of all rows, as UpdatePrediction
    // does. Returns false, with nothing changed, if the engine did not grow that tree.
    [[nodiscard]] bool StepPredictions(const TreeLearner& learner);

  private:
    class NodeReferenceSearch;
    struct HistogramEngine;
    struct ListEngine;

    EngineRun(const TreeLearner& learner, WorkerPool& workers);
    // Returns false when a column holds a NaN.
    [[nodiscard]] bool Prepare(const TreeLearner& learner);

    const engine::Tuning tuning;
    WorkerPool& pool;
    Ranks* const ranks;  // null: this process trains alone
    const std::shared_ptr<const CodedData> data;
    std::unique_ptr<engine::ReferenceSearch> reference;
    // Exactly one of the two is set once Prepare has returned; both borrow `reference`.
    std::unique_ptr<HistogramEngine> histograms;
    std::unique_ptr<ListEngine> lists;
    std::unique_ptr<RowsAhead> rowsAhead;  // null: a tree's rows are drawn when they are needed
    // The tree that `histograms` grew last, or null. Only compared, never dereferenced: the learner
    // may have freed it.
    const TreeCR* grownTree = nullptr;
};

}  // namespace sylvora

#endif  // SYLVORA_TREELEARNER_ENGINERUN_H
