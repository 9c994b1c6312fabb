// Makes the histograms of a growing tree, and recycles their memory.
#ifndef SYLVORA_ENGINE_TRAIN_HISTOGRAM_HISTOGRAMPOOL_H
#define SYLVORA_ENGINE_TRAIN_HISTOGRAM_HISTOGRAMPOOL_H

#include <memory>
#include <mutex>
#include <vector>

#include "BinnedColumns.h"
#include "Histogram.h"
#include "HistogramFiller.h"
#include "base/WorkerPool.h"
#include "engine/train/FixedPoint.h"

namespace sylvora {
namespace engine {

// Thread-safe, but a filler serves one worker at a time, and CountShared uses the fillers of all
// workers that join. The columns, fixed point and workers must outlive the pool.
class HistogramPool {
  public:
    HistogramPool(const BinnedColumns& columns, const FixedPoint& fixedPoint, WorkerPool& workers,
                  int rowsOfChunk);

    // The filler of one worker.
    HistogramFiller& FillerOf(int worker) { return *fillerV[static_cast<size_t>(worker)]; }

    // Counts the rows in all columns that vary, with 2^shift bins joined, using the worker's own
    // filler.
    std::unique_ptr<Histogram> Count(const RowSet& rows, int shift, HistogramFiller& filler);
    // The same, with the help of idle workers.
    std::unique_ptr<Histogram> CountShared(const RowSet& rows, int shift);
    // Joins bins in place until the histogram has this shift, which is at least its own.
    void Coarsen(Histogram& histogram, int shift) const;
    // Subtracts `part` from `whole`. Both have the same shift.
    void Subtract(Histogram& whole, const Histogram& part) const;
    // Takes a histogram back for reuse; null is ignored.
    void Release(std::unique_ptr<Histogram> histogram);

  private:
    std::unique_ptr<Histogram> Acquire(int shift);
    std::unique_ptr<Histogram> AcquireFree(size_t numCells);

    const BinnedColumns& data;
    const FixedPoint& fixed;
    WorkerPool& pool;
    // Rows that a worker counts at once.
    const int chunkRows;
    std::vector<std::unique_ptr<HistogramFiller>> fillerV;
    std::vector<std::unique_ptr<Histogram>> freeV;
    std::mutex mutex;  // guards freeV
};

}  // namespace engine
}  // namespace sylvora

#endif  // SYLVORA_ENGINE_TRAIN_HISTOGRAM_HISTOGRAMPOOL_H
