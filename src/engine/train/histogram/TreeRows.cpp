// The rows of a growing tree; see TreeRows.h.
#include "TreeRows.h"

#include <algorithm>
#include <numeric>
#include <vector>

#include "base/Chunks.h"
#include "base/Gather.h"

namespace sylvora {
namespace engine {
namespace {

constexpr int kChunkRows = 16384;

}  // namespace

// Takes the rows in chunks. fInTreeV may be written by several workers, because no row occurs
// twice.
void TreeRows::Take(const double* gradients, const int* weights, const int* rowV, int num,
                    int numRows, WorkerPool& pool) {
    rowGradV = gradients;
    rowWeightV = weights;
    const size_t count = static_cast<size_t>(num);
    indexV.resize(count);
    gradV.resize(count);
    weightV.resize(weights != nullptr ? count : 0);
    ascendingV.resize(count);
    nextAscendingV.resize(fKeepAscending ? count : 0);
    fLeftV.resize(count);
    fAscendingNow = true;
    const bool fAll = num == numRows;
    fInTreeV.assign(static_cast<size_t>(numRows), fAll);
    const Chunks chunks = {num, kChunkRows};
    pool.For(chunks.Num(), [&](int chunk, int) {
        const int begin = chunks.Begin(chunk);
        const int end = chunks.End(chunk);
        std::copy(rowV + begin, rowV + end, indexV.begin() + begin);
        Gather(gradients, rowV + begin, end - begin, gradV.data() + begin);
        if (weights != nullptr) Gather(weights, rowV + begin, end - begin, weightV.data() + begin);
        for (int i = begin; i < end && !fAll; ++i) fInTreeV[static_cast<size_t>(rowV[i])] = 1;
    });
    ListAscending(pool);
}

// Lists the rows marked in fInTreeV. Each chunk's start comes from the counts of those before it.
void TreeRows::ListAscending(WorkerPool& pool) {
    const Chunks chunks = {static_cast<int>(fInTreeV.size()), kChunkRows};
    std::vector<int> beginV(static_cast<size_t>(chunks.Num()) + 1, 0);
    pool.For(chunks.Num(), [&](int chunk, int) {
        const auto from = fInTreeV.begin() + chunks.Begin(chunk);
        const auto to = fInTreeV.begin() + chunks.End(chunk);
        beginV[static_cast<size_t>(chunk) + 1] = std::accumulate(from, to, 0);
    });
    std::partial_sum(beginV.begin(), beginV.end(), beginV.begin());
    pool.For(chunks.Num(), [&](int chunk, int) {
        int* row = ascendingV.data() + beginV[static_cast<size_t>(chunk)];
        const int* const end = ascendingV.data() + beginV[static_cast<size_t>(chunk) + 1];
        // Writes every row number, but advances only past marked ones. The test on `row` ends the
        // chunk at its last marked row.
        for (int i = chunks.Begin(chunk); row < end; ++i) {
            *row = i;
            row += fInTreeV[static_cast<size_t>(i)];
        }
    });
}

RowSlice TreeRows::ReferenceSlice(int begin, int count) const {
    return {indexV.data() + begin, gradV.data() + begin,
            weightV.empty() ? nullptr : weightV.data() + begin, count};
}

// The root's rows are ascending in any case.
RowSet TreeRows::SearchSlice(int begin, int count) const {
    return SliceOf(fAscendingNow, ascendingV, begin, count);
}

RowSet TreeRows::NextLevelSlice(int begin, int count) const {
    return SliceOf(fKeepAscending, nextAscendingV, begin, count);
}

// A set in reference order also offers its own gradients and weights, which need no gather.
RowSet TreeRows::SliceOf(bool fAscending, const LargeArray<int>& ascending, int begin,
                         int count) const {
    if (fAscending) return {ascending.data() + begin, count, rowGradV, rowWeightV};
    return {indexV.data() + begin,
            count,
            rowGradV,
            rowWeightV,
            gradV.data() + begin,
            weightV.empty() ? nullptr : weightV.data() + begin};
}

// Swaps the two arrays: the next level becomes the current one.
void TreeRows::EndLevel() {
    fAscendingNow = fKeepAscending;
    if (fKeepAscending) ascendingV.swap(nextAscendingV);
}

}  // namespace engine
}  // namespace sylvora
