// The draw of a tree's rows, made ahead of its time where a worker is free for it.
#ifndef SYLVORA_TREELEARNER_ROWDRAW_H
#define SYLVORA_TREELEARNER_ROWDRAW_H

#include <memory>
#include <optional>

#include "../TreeLearner.h"
#include "../god/RandomGenerator.h"
#include "base/WorkerPool.h"

namespace sylvora {

// trunc(count * share), kept inside [0, count] for shares that no validation has seen.
int ShareOf(int count, double share);

// Room for `count` row numbers, or null.
std::unique_ptr<int[]> RowArray(int count);

// How many queries there are, by the number of the last one.
int NumQueries(int lastQuery);

// The weights of a learner's rows; null where all are 1.
const int* WeightsOf(const TreeLearner& learner);

// Leaves out the rows of weight 0 or less and returns how many are left.
int KeepWeighted(const int* weightV, int* rowV, int count);

// A partial Fisher-Yates draw of `target` of `numRows` rows. Weights do not change which rows it
// hits.
struct RowDraw {
    int numRows;
    int target;

    // That of a learner's trees.
    static RowDraw PerTree(const TreeLearner& learner);

    bool operator==(const RowDraw& other) const {
        return numRows == other.numRows && target == other.target;
    }

    // Writes the rows to drawnV (room for target); `pool` is room for numRows.
    void Run(Draws& draws, int* pool, int* drawnV) const;
};

// Draws the rows of the next tree while the last one is still being finished. Nothing depends on
// it: if the generator is not where it was expected when the rows are asked for, they are drawn
// anew.
class RowsAhead {
  public:
    explicit RowsAhead(WorkerPool& workers) : pool(workers) {}
    RowsAhead(const RowsAhead&) = delete;
    RowsAhead& operator=(const RowsAhead&) = delete;

    // Draws with a copy of the generator's state on an idle worker. Not while an earlier draw has
    // not been taken.
    void Start(const RowDraw& rowDraw, const long* seed);

    // Gives out what was drawn and moves the generator on; false, with nothing changed, where
    // nothing fitting was drawn.
    [[nodiscard]] bool Take(const RowDraw& wanted, long* seed, std::unique_ptr<int[]>& drawnV);

    // What was drawn, or is being drawn, is not wanted.
    void Forget();

  private:
    WorkerPool& pool;
    RowDraw draw = {};
    GeneratorState before, after;
    std::unique_ptr<int[]> poolV, rowV;
    std::optional<BackgroundTask> drawing;
};

}  // namespace sylvora

#endif  // SYLVORA_TREELEARNER_ROWDRAW_H
