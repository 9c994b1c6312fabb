// The histograms of a growing tree; see HistogramStore.h.
#include "HistogramStore.h"

#include <algorithm>
#include <numeric>
#include <utility>

#include "../god/Workers.h"

namespace sylvora {
namespace engine {
namespace {

void AddCells(Cell* to, const Cell* from, size_t count) {
    for (size_t c = 0; c < count; ++c) to[c] += from[c];
}

void SubtractCells(Cell* to, const Cell* from, size_t count) {
    for (size_t c = 0; c < count; ++c) to[c] -= from[c];
}

RowSet Stretch(const RowSet& rows, int begin, int end) {
    const bool fOwn = rows.ownGradV != nullptr;
    return {rows.rowV + begin,
            end - begin,
            rows.gradV,
            rows.weightV,
            fOwn ? rows.ownGradV + begin : nullptr,
            fOwn && rows.weightV != nullptr ? rows.ownWeightV + begin : nullptr};
}

}  // namespace

HistogramStore::HistogramStore(const Columns& columns, const FixedPoint& fixedPoint,
                               WorkerPool& workers, int rowsOfChunk)
    : data(columns), fixed(fixedPoint), pool(workers), chunkRows(std::max(rowsOfChunk, 1)) {
    allColumnV.resize(static_cast<size_t>(data.NumColumns()));
    std::iota(allColumnV.begin(), allColumnV.end(), 0);
    for (int w = 0; w < pool.NumWorkers(); ++w) {
        fillerV.push_back(std::make_unique<HistogramFiller>(data));
    }
}

// Calls visit(first cell, number of cells) for each column.
template <typename Visit>
void HistogramStore::ForColumns(const Histogram& histogram, const Visit& visit) const {
    for (int id = 0; id < data.NumColumns(); ++id) {
        const Column& column = data.At(id);
        visit(column.firstCell, static_cast<size_t>(histogram.NumBins(column)));
    }
}

size_t HistogramStore::NumCells(int shift) const {
    Histogram shape;
    shape.shift = shift;
    size_t numCells = 0;
    ForColumns(shape, [&numCells](size_t, size_t count) { numCells += count; });
    return numCells;
}

std::unique_ptr<Histogram> HistogramStore::Take(int shift) {
    std::unique_ptr<Histogram> histogram;
    {
        const std::lock_guard<std::mutex> lock(mutex);
        if (!freeV.empty()) {
            histogram = std::move(freeV.back());
            freeV.pop_back();
        }
    }
    if (!histogram) histogram = std::make_unique<Histogram>();
    histogram->shift = shift;
    histogram->cellV.resize(data.NumCells());
    Cell* cells = histogram->cellV.data();
    ForColumns(*histogram,
               [cells](size_t first, size_t count) { std::fill_n(cells + first, count, Cell()); });
    return histogram;
}

void HistogramStore::GiveBack(std::unique_ptr<Histogram> histogram) {
    if (!histogram) return;
    const std::lock_guard<std::mutex> lock(mutex);
    freeV.push_back(std::move(histogram));
}

std::unique_ptr<Histogram> HistogramStore::Count(const RowSet& rows, int shift,
                                                 HistogramFiller& filler) {
    std::unique_ptr<Histogram> histogram = Take(shift);
    filler.Add(rows, fixed, allColumnV, *histogram);
    return histogram;
}

// Each worker counts the stretches that it gets into a histogram of its own; the sums of all are
// the same whoever counted what.
std::unique_ptr<Histogram> HistogramStore::CountShared(const RowSet& rows, int shift) {
    // As many stretches for each worker, of about the length that is counted at once.
    const int perWorker = (rows.count - 1) / (pool.NumWorkers() * chunkRows) + 1;
    const int numChunks = perWorker * pool.NumWorkers();
    std::vector<std::unique_ptr<Histogram>> partV(static_cast<size_t>(pool.NumWorkers()));
    pool.For(numChunks, [&](int chunk, int worker) {
        std::unique_ptr<Histogram>& part = partV[static_cast<size_t>(worker)];
        if (!part) part = Take(shift);
        FillerOf(worker).Add(Stretch(rows, PartBegin(rows.count, numChunks, chunk),
                                     PartBegin(rows.count, numChunks, chunk + 1)),
                             fixed, allColumnV, *part);
    });
    partV.erase(std::remove(partV.begin(), partV.end(), nullptr), partV.end());
    Histogram& sum = *partV[0];
    pool.For(data.NumColumns(), [&](int id, int) {
        const Column& column = data.At(id);
        const size_t count = static_cast<size_t>(sum.NumBins(column));
        for (size_t p = 1; p < partV.size(); ++p) {
            AddCells(sum.cellV.data() + column.firstCell, partV[p]->Of(column), count);
        }
    });
    for (size_t p = 1; p < partV.size(); ++p) GiveBack(std::move(partV[p]));
    return std::move(partV[0]);
}

void HistogramStore::Coarsen(Histogram& histogram, int shift) const {
    if (shift == histogram.shift) return;
    for (int id = 0; id < data.NumColumns(); ++id) {
        const Column& column = data.At(id);
        if (column.fExact) continue;
        Cell* cells = histogram.cellV.data() + column.firstCell;
        const int numBins = histogram.NumBins(column);
        for (int bin = 0; bin < numBins; ++bin) {
            const int joined = bin >> (shift - histogram.shift);
            const Cell cell = cells[bin];
            if (joined << (shift - histogram.shift) == bin) cells[joined] = Cell();
            cells[joined] += cell;
        }
    }
    histogram.shift = shift;
}

void HistogramStore::Subtract(Histogram& whole, const Histogram& part) const {
    ForColumns(whole, [&](size_t first, size_t count) {
        SubtractCells(whole.cellV.data() + first, part.cellV.data() + first, count);
    });
}

}  // namespace engine
}  // namespace sylvora
