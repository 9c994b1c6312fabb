// Drawing the rows of a tree, ahead of time if a worker is idle.
#ifndef SYLVORA_TREELEARNER_ROWDRAW_H
#define SYLVORA_TREELEARNER_ROWDRAW_H

#include <memory>
#include <optional>

#include "../TreeLearner.h"
#include "../god/RandomGenerator.h"
#include "base/WorkerPool.h"

namespace sylvora {

// trunc(count * share), clamped to [0, count]: `share` may be a setting that was never validated.
int ShareOf(int count, double share);

// An uninitialised array of `count` row numbers; null if there is no memory for it.
std::unique_ptr<int[]> RowArray(int count);

// The number of queries, from the id of the last one: queries are numbered from 0.
int NumQueries(int lastQuery);

// The weights of a learner's rows, which the learner owns; null if all are 1.
const int* WeightsOf(const TreeLearner& learner);

// Removes the rows of weight 0 or less from rowV[0..count), in place and keeping the order. Returns
// how many are left.
int KeepWeighted(const int* weightV, int* rowV, int count);

// A draw of `target` of `numRows` rows without replacement, by a partial Fisher-Yates shuffle.
// Independent of the weights. 0 <= target <= numRows.
struct RowDraw {
    int numRows;
    int target;

    // The draw that each tree of a learner makes.
    static RowDraw PerTree(const TreeLearner& learner);

    bool operator==(const RowDraw& other) const {
        return numRows == other.numRows && target == other.target;
    }

    // Writes the rows to drawnV[0..target), in draw order. `pool` is a buffer of numRows elements.
    void Run(Draws& draws, int* pool, int* drawnV) const;
};

// Draws the rows of the next tree while the current one is still being grown. The result never
// depends on it: if the generator has moved on in the meantime, the rows are drawn again.
//
// Thread safety: one thread calls; a worker of the pool may draw between Start and the next call.
class RowsAhead {
  public:
    explicit RowsAhead(WorkerPool& workers) : pool(workers) {}
    RowsAhead(const RowsAhead&) = delete;
    RowsAhead& operator=(const RowsAhead&) = delete;

    // Starts a draw on an idle worker, from a copy of the generator's state. An earlier draw must
    // have been taken or forgotten. Does nothing if memory is short.
    void Start(const RowDraw& rowDraw, const long* seed);

    // Waits for the draw, hands it over and moves the generator on. Returns false, and leaves
    // `seed` and drawnV as they were, if there is no draw, it is not the wanted one, or the
    // generator has moved.
    [[nodiscard]] bool Take(const RowDraw& wanted, long* seed, std::unique_ptr<int[]>& drawnV);

    // Waits for a draw under way and drops it.
    void Forget();

  private:
    WorkerPool& pool;
    RowDraw draw = {};
    GeneratorState before, after;        // the generator's state around the draw
    std::unique_ptr<int[]> poolV, rowV;  // poolV is kept from draw to draw
    // Declared last: its destructor waits for the worker, which uses the members above.
    std::optional<BackgroundTask> drawing;
};

}  // namespace sylvora

#endif  // SYLVORA_TREELEARNER_ROWDRAW_H
