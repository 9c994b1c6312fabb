// The histograms of a growing tree; see HistogramPool.h.
#include "HistogramPool.h"

#include <algorithm>
#include <numeric>
#include <utility>

#include "god/Workers.h"

namespace sylvora {
namespace engine {
namespace {

// Adds sums. Exact in any order.
void AddCells(Cell* to, const Cell* from, size_t count) {
    for (size_t c = 0; c < count; ++c) to[c] += from[c];
}

void SubtractCells(Cell* to, const Cell* from, size_t count) {
    for (size_t c = 0; c < count; ++c) to[c] -= from[c];
}

// The rows [begin, end) of a set.
RowSet SubRange(const RowSet& rows, int begin, int end) {
    const bool fOwn = rows.ownGradV != nullptr;
    return {rows.rowV + begin,
            end - begin,
            rows.gradV,
            rows.weightV,
            fOwn ? rows.ownGradV + begin : nullptr,
            fOwn && rows.weightV != nullptr ? rows.ownWeightV + begin : nullptr};
}

}  // namespace

// Makes a filler per worker up front; histograms are made as needed.
HistogramPool::HistogramPool(const BinnedColumns& columns, const FixedPoint& fixedPoint,
                             WorkerPool& workers, int rowsOfChunk)
    : data(columns), fixed(fixedPoint), pool(workers), chunkRows(std::max(rowsOfChunk, 1)) {
    for (int w = 0; w < pool.NumWorkers(); ++w) {
        fillerV.push_back(std::make_unique<HistogramFiller>(data));
    }
}

// Takes the free histogram with the least sufficient capacity, so that few ever grow to full size.
std::unique_ptr<Histogram> HistogramPool::AcquireFree(size_t numCells) {
    const std::lock_guard<std::mutex> lock(mutex);
    const auto roomOf = [](const std::unique_ptr<Histogram>& free) {
        return free->cellV.capacity();
    };
    auto best = freeV.end();
    for (auto free = freeV.begin(); free != freeV.end(); ++free) {
        if (roomOf(*free) < numCells) continue;
        if (best == freeV.end() || roomOf(*free) <= roomOf(*best)) best = free;
    }
    if (best == freeV.end()) return nullptr;
    std::unique_ptr<Histogram> histogram = std::move(*best);
    freeV.erase(best);
    return histogram;
}

// Returns a zeroed histogram of this shift.
std::unique_ptr<Histogram> HistogramPool::Acquire(int shift) {
    const size_t numCells = data.NumCells(shift);
    std::unique_ptr<Histogram> histogram = AcquireFree(numCells);
    if (!histogram) histogram = std::make_unique<Histogram>();
    histogram->shift = shift;
    histogram->cellV.assign(numCells, Cell());
    return histogram;
}

// The list of free histograms grows to as many as were ever used at once.
void HistogramPool::Release(std::unique_ptr<Histogram> histogram) {
    if (!histogram) return;
    const std::lock_guard<std::mutex> lock(mutex);
    freeV.push_back(std::move(histogram));
}

std::unique_ptr<Histogram> HistogramPool::Count(const RowSet& rows, int shift,
                                                HistogramFiller& filler) {
    std::unique_ptr<Histogram> histogram = Acquire(shift);
    filler.Add(rows, fixed, data.VaryingColumns(), *histogram);
    return histogram;
}

// Each worker counts its chunks into a histogram of its own. Sums of integers are the same whoever
// counted what.
std::unique_ptr<Histogram> HistogramPool::CountShared(const RowSet& rows, int shift) {
    // The same number of chunks per worker, of about chunkRows rows.
    const int perWorker = (rows.count - 1) / (pool.NumWorkers() * chunkRows) + 1;
    const int numChunks = perWorker * pool.NumWorkers();
    std::vector<std::unique_ptr<Histogram>> partV(static_cast<size_t>(pool.NumWorkers()));
    pool.For(numChunks, [&](int chunk, int worker) {
        std::unique_ptr<Histogram>& part = partV[static_cast<size_t>(worker)];
        if (!part) part = Acquire(shift);
        FillerOf(worker).Add(SubRange(rows, PartBegin(rows.count, numChunks, chunk),
                                      PartBegin(rows.count, numChunks, chunk + 1)),
                             fixed, data.VaryingColumns(), *part);
    });
    partV.erase(std::remove(partV.begin(), partV.end(), nullptr), partV.end());
    Histogram& sum = *partV[0];
    pool.For(data.NumColumns(), [&](int id, int) {
        const Column& column = data.At(id);
        const size_t count = static_cast<size_t>(sum.NumBins(column));
        for (size_t p = 1; p < partV.size(); ++p) {
            AddCells(sum.Of(column), partV[p]->Of(column), count);
        }
    });
    for (size_t p = 1; p < partV.size(); ++p) Release(std::move(partV[p]));
    return std::move(partV[0]);
}

// Works in place: cells only move towards the front, so each one is read before it is overwritten.
void HistogramPool::Coarsen(Histogram& histogram, int shift) const {
    if (shift == histogram.shift) return;
    // `from` and `to` may overlap, but `to` never passes `from`.
    for (int id = 0; id < data.NumColumns(); ++id) {
        const Column& column = data.At(id);
        const int joinedBits = column.fExact ? 0 : shift - histogram.shift;
        const Cell* from = histogram.Of(column);
        Cell* to = histogram.cellV.data() + column.firstCellV[static_cast<size_t>(shift)];
        const int numBins = histogram.NumBins(column);
        for (int bin = 0; bin < numBins; ++bin) {
            const int joined = bin >> joinedBits;
            const Cell cell = from[bin];
            if (joined << joinedBits == bin) to[joined] = Cell();
            to[joined] += cell;
        }
    }
    histogram.shift = shift;
    histogram.cellV.resize(data.NumCells(shift));
}

// Whole words may be subtracted: a part's fields are never larger than the whole's.
void HistogramPool::Subtract(Histogram& whole, const Histogram& part) const {
    SubtractCells(whole.cellV.data(), part.cellV.data(), data.NumCells(whole.shift));
}

}  // namespace engine
}  // namespace sylvora
