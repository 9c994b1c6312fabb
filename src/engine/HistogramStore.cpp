// The histograms of a growing tree; see HistogramStore.h.
#include "HistogramStore.h"

#include <algorithm>
#include <numeric>
#include <utility>

namespace sylvora {
namespace engine {
namespace {

constexpr int kChunkRows = 16384;
constexpr int kManyChunks = 3;  // from so many on, workers share a slice
constexpr size_t kChunkCells = 8192;

void AddCells(Cell* to, const Cell* from, size_t count) {
    for (size_t c = 0; c < count; ++c) to[c] += from[c];
}

void SubtractCells(Cell* to, const Cell* from, size_t count) {
    for (size_t c = 0; c < count; ++c) to[c] -= from[c];
}

RowSlice Stretch(const RowSlice& slice, int begin, int end) {
    return {slice.rowV + begin, slice.gradV + begin,
            slice.weightV != nullptr ? slice.weightV + begin : nullptr, end - begin};
}

}  // namespace

HistogramStore::HistogramStore(const Columns& columns, const FixedPoint& fixedPoint,
                               WorkerPool& workers)
    : data(columns), fixed(fixedPoint), pool(workers) {
    allColumnV.resize(static_cast<size_t>(data.NumColumns()));
    std::iota(allColumnV.begin(), allColumnV.end(), 0);
    for (int w = 0; w < pool.NumWorkers(); ++w) {
        fillerV.push_back(std::make_unique<HistogramFiller>(data));
    }
}

std::unique_ptr<Histogram> HistogramStore::Take() {
    std::unique_ptr<Histogram> histogram;
    {
        const std::lock_guard<std::mutex> lock(mutex);
        if (!freeV.empty()) {
            histogram = std::move(freeV.back());
            freeV.pop_back();
        }
    }
    if (!histogram) histogram = std::make_unique<Histogram>();
    histogram->cellV.assign(data.NumCells(), Cell());
    return histogram;
}

void HistogramStore::GiveBack(std::unique_ptr<Histogram> histogram) {
    if (!histogram) return;
    const std::lock_guard<std::mutex> lock(mutex);
    freeV.push_back(std::move(histogram));
}

std::unique_ptr<Histogram> HistogramStore::CountAlone(const RowSlice& slice, int worker) {
    std::unique_ptr<Histogram> histogram = Take();
    FillerOf(worker).Add(slice, fixed, allColumnV, *histogram);
    return histogram;
}

// Each worker counts the stretches that it gets into a histogram of its own; the sums of all are
// the same whoever counted what.
std::unique_ptr<Histogram> HistogramStore::Count(const RowSlice& slice) {
    const int numChunks = (slice.count + kChunkRows - 1) / kChunkRows;
    if (pool.NumWorkers() == 1 || numChunks < kManyChunks) return CountAlone(slice, 0);
    std::vector<std::unique_ptr<Histogram>> partV(static_cast<size_t>(pool.NumWorkers()));
    pool.For(numChunks, [&](int chunk, int worker) {
        std::unique_ptr<Histogram>& part = partV[static_cast<size_t>(worker)];
        if (!part) part = Take();
        const int begin = chunk * kChunkRows;
        FillerOf(worker).Add(Stretch(slice, begin, std::min(begin + kChunkRows, slice.count)),
                             fixed, allColumnV, *part);
    });
    partV.erase(std::remove(partV.begin(), partV.end(), nullptr), partV.end());
    Histogram& sum = *partV[0];
    const size_t numCells = data.NumCells();
    pool.For(static_cast<int>((numCells + kChunkCells - 1) / kChunkCells), [&](int chunk, int) {
        const size_t begin = static_cast<size_t>(chunk) * kChunkCells;
        const size_t count = std::min(kChunkCells, numCells - begin);
        for (size_t p = 1; p < partV.size(); ++p) {
            AddCells(sum.cellV.data() + begin, partV[p]->cellV.data() + begin, count);
        }
    });
    for (size_t p = 1; p < partV.size(); ++p) GiveBack(std::move(partV[p]));
    return std::move(partV[0]);
}

void HistogramStore::SubtractAlone(Histogram& whole, const Histogram& part) {
    SubtractCells(whole.cellV.data(), part.cellV.data(), whole.cellV.size());
}

void HistogramStore::Subtract(Histogram& whole, const Histogram& part) {
    const size_t numCells = whole.cellV.size();
    pool.For(static_cast<int>((numCells + kChunkCells - 1) / kChunkCells), [&](int chunk, int) {
        const size_t begin = static_cast<size_t>(chunk) * kChunkCells;
        SubtractCells(whole.cellV.data() + begin, part.cellV.data() + begin,
                      std::min(kChunkCells, numCells - begin));
    });
}

}  // namespace engine
}  // namespace sylvora
