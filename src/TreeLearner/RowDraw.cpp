// Drawing the rows of a tree; see RowDraw.h. Random accesses are prefetched: the arrays can be much
// larger than the caches.
#include "RowDraw.h"

#include <algorithm>
#include <climits>
#include <cstddef>
#include <new>
#include <numeric>
#include <utility>

#include "../god/Truncation.h"
#include "base/LargeArray.h"

namespace sylvora {

int ShareOf(int count, double share) {
    return std::clamp(Truncate<int>(count * share), 0, std::max(count, 0));
}

std::unique_ptr<int[]> RowArray(int count) {
    const size_t size = static_cast<size_t>(count);
    std::unique_ptr<int[]> rowV(new (std::nothrow) int[size]);
    if (rowV) RequestLargePages(rowV.get(), size * sizeof(int));
    return rowV;
}

int NumQueries(int lastQuery) {
    return std::clamp(lastQuery, -1, INT_MAX - 1) + 1;
}

const int* WeightsOf(const TreeLearner& learner) {
    const int* const weightV = learner.numPairDistinctQueV;
    if (weightV == nullptr) return nullptr;
    // Without a branch per row, so that the inner loop is vectorised; by blocks, so that it ends
    // soon after the first other weight.
    constexpr int kBlock = 4096;
    for (int begin = 0, end; begin < learner.sampleSize; begin = end) {
        end = begin + std::min(kBlock, learner.sampleSize - begin);
        int different = 0;
        for (int i = begin; i < end; ++i) different |= weightV[i] ^ 1;
        if (different != 0) return weightV;
    }
    return nullptr;
}

int KeepWeighted(const int* weightV, int* rowV, int count) {
    constexpr int kAhead = 24;
    // Each row is written before it is known whether it stays: a branch on its weight would be
    // unpredictable. Invariant: numKept <= i, so no row is overwritten before it is read.
    int numKept = 0;
    for (int i = 0; i < count; ++i) {
        __builtin_prefetch(weightV + rowV[i + std::min(kAhead, count - 1 - i)]);
        const int row = rowV[i];
        rowV[numKept] = row;
        if (weightV[row] > 0) ++numKept;
    }
    return numKept;
}

RowDraw RowDraw::PerTree(const TreeLearner& learner) {
    return {learner.sampleSize, ShareOf(learner.sampleSize, learner.valSmpRt)};
}

// Draws all indices into drawnV first, so that the pool can be prefetched at them. Invariant of the
// loop: drawnV[0..i) has rows, drawnV[i..target) indices; pool[0..numRows - i) has the rows left.
void RowDraw::Run(Draws& draws, int* pool, int* drawnV) const {
    std::iota(pool, pool + numRows, 0);
    draws.FisherYates(numRows, target, drawnV);
    constexpr int kAhead = 24;
    for (int i = 0; i < target; ++i) {
        __builtin_prefetch(pool + drawnV[i + std::min(kAhead, target - 1 - i)]);
        int& drawn = pool[drawnV[i]];
        drawnV[i] = drawn;
        std::swap(drawn, pool[numRows - i - 1]);
    }
}

// The worker uses only this object's buffers and states, and the caller does not touch them before
// `drawing` is reset, which waits. The task throws nothing.
void RowsAhead::Start(const RowDraw& rowDraw, const long* seed) {
    draw = rowDraw;
    before = Draws::StateNow(seed);
    rowV = RowArray(draw.target);
    if (!poolV) poolV = RowArray(draw.numRows);
    if (!rowV || !poolV) return rowV.reset();
    drawing.emplace(pool, [this] {
        after = before;
        Draws draws(after);
        draw.Run(draws, poolV.get(), rowV.get());
    });
}

void RowsAhead::Forget() {
    drawing.reset();
    rowV.reset();
}

bool RowsAhead::Take(const RowDraw& wanted, long* seed, std::unique_ptr<int[]>& drawnV) {
    drawing.reset();
    std::unique_ptr<int[]> taken = std::move(rowV);
    if (!taken || !(wanted == draw) || !Draws::Skip(seed, before, after)) return false;
    drawnV = std::move(taken);
    return true;
}

}  // namespace sylvora
