// Loops over columns that sort each one.
#ifndef SYLVORA_ENGINE_TRAIN_COLUMNSORTING_H
#define SYLVORA_ENGINE_TRAIN_COLUMNSORTING_H

#include <algorithm>
#include <atomic>

#include "base/WorkerPool.h"

namespace sylvora {
namespace engine {

// Calls task(column, worker) for all columns, in parallel. A task needs about 24 bytes per row to
// sort its column, so on narrow data fewer workers than there are take part: their buffers together
// stay below what the training needs later, 3 bytes per value and 40 per row.
template <typename Task>
void ForSortedColumns(WorkerPool& pool, int numColumns, const Task& task) {
    const int most = (3 * std::min(numColumns, 1 << 20) + 40) / 24;
    std::atomic<int> next{0};
    pool.For(std::min({most, pool.NumWorkers(), std::max(numColumns, 1)}), [&](int, int worker) {
        for (int column = next++; column < numColumns; column = next++) task(column, worker);
    });
}

}  // namespace engine
}  // namespace sylvora

#endif  // SYLVORA_ENGINE_TRAIN_COLUMNSORTING_H
