// The histograms of a growing tree: filled by all workers together, shared out between sons, and
// kept for use again.
#ifndef SYLVORA_ENGINE_HISTOGRAMSTORE_H
#define SYLVORA_ENGINE_HISTOGRAMSTORE_H

#include <memory>
#include <mutex>
#include <vector>

#include "Columns.h"
#include "FixedPoint.h"
#include "Histogram.h"
#include "WorkerPool.h"

namespace sylvora {
namespace engine {

class HistogramStore {
  public:
    HistogramStore(const Columns& columns, const FixedPoint& fixedPoint, WorkerPool& workers);

    // The filler of one worker.
    HistogramFiller& FillerOf(int worker) { return *fillerV[static_cast<size_t>(worker)]; }

    // A histogram of all columns of the rows. Long slices are shared out among the workers.
    std::unique_ptr<Histogram> Count(const RowSlice& slice);
    // The same by one worker alone.
    std::unique_ptr<Histogram> CountAlone(const RowSlice& slice, int worker);
    // Leaves in `whole` what is not in `part`. The second form is for all workers together.
    static void SubtractAlone(Histogram& whole, const Histogram& part);
    void Subtract(Histogram& whole, const Histogram& part);

    void GiveBack(std::unique_ptr<Histogram> histogram);

  private:
    std::unique_ptr<Histogram> Take();

    const Columns& data;
    const FixedPoint& fixed;
    WorkerPool& pool;
    std::vector<int> allColumnV;
    std::vector<std::unique_ptr<HistogramFiller>> fillerV;
    std::vector<std::unique_ptr<Histogram>> freeV;
    std::mutex mutex;  // guards freeV
};

}  // namespace engine
}  // namespace sylvora

#endif  // SYLVORA_ENGINE_HISTOGRAMSTORE_H
