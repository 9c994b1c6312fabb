// The histograms of a growing tree: filled by all workers together, shared out between sons, and
// kept for use again.
#ifndef SYLVORA_ENGINE_TRAIN_HISTOGRAM_HISTOGRAMPOOL_H
#define SYLVORA_ENGINE_TRAIN_HISTOGRAM_HISTOGRAMPOOL_H

#include <memory>
#include <mutex>
#include <vector>

#include "BinnedColumns.h"
#include "Histogram.h"
#include "base/WorkerPool.h"
#include "engine/train/FixedPoint.h"

namespace sylvora {
namespace engine {

class HistogramPool {
  public:
    HistogramPool(const BinnedColumns& columns, const FixedPoint& fixedPoint, WorkerPool& workers,
                  int rowsOfChunk);

    // The filler of one worker.
    HistogramFiller& FillerOf(int worker) { return *fillerV[static_cast<size_t>(worker)]; }

    // A histogram of all columns of the rows, with 2^shift bins joined to one, made with the
    // worker's own filler.
    std::unique_ptr<Histogram> Count(const RowSet& rows, int shift, HistogramFiller& filler);
    // The same with the help of idle workers.
    std::unique_ptr<Histogram> CountShared(const RowSet& rows, int shift);
    // Joins bins until they are as coarse as `shift` says.
    void Coarsen(Histogram& histogram, int shift) const;
    // Leaves in `whole` what is not in `part`, which is as coarse.
    void Subtract(Histogram& whole, const Histogram& part) const;

    void GiveBack(std::unique_ptr<Histogram> histogram);

  private:
    std::unique_ptr<Histogram> Take(int shift);
    std::unique_ptr<Histogram> TakeFree(size_t numCells);

    const BinnedColumns& data;
    const FixedPoint& fixed;
    WorkerPool& pool;
    const int chunkRows;  // that one worker counts at once
    std::vector<int> allColumnV;
    std::vector<std::unique_ptr<HistogramFiller>> fillerV;
    std::vector<std::unique_ptr<Histogram>> freeV;
    std::mutex mutex;  // guards freeV
};

}  // namespace engine
}  // namespace sylvora

#endif  // SYLVORA_ENGINE_TRAIN_HISTOGRAM_HISTOGRAMPOOL_H
