// The partition of a node's rows; see RowPartition.h.
#include "RowPartition.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace sylvora {
namespace engine {
namespace {

constexpr int kChunkRows = 16384;
constexpr int kAhead = 32;

int NumChunks(int count) {
    return (count + kChunkRows - 1) / kChunkRows;
}

}  // namespace

// Calls task(chunk, begin, end) for stretches of [0, count).
template <typename Task>
void RowPartition::ForChunks(int count, const Task& task) {
    const auto run = [&](int chunk, int) {
        task(static_cast<size_t>(chunk), chunk * kChunkRows,
             std::min((chunk + 1) * kChunkRows, count));
    };
    if (pool != nullptr) return pool->For(NumChunks(count), run);
    for (int chunk = 0; chunk < NumChunks(count); ++chunk) run(chunk, 0);
}

SplitPoint RowPartition::MarkByRank(TreeRows& rows, int begin, int count, int id,
                                    uint32_t lastRank) {
    const Column& column = data.At(id);
    markedV.assign(static_cast<size_t>(NumChunks(count)), Marked());
    ForChunks(count, [&](size_t chunk, int from, int to) {
        markedV[chunk] = column.fNarrow
                             ? Mark(rows, begin + from, begin + to, column.codeV.data(), lastRank)
                             : Mark(rows, begin + from, begin + to, column.rankV.data(), lastRank);
    });
    Marked all;
    for (const Marked& marked : markedV) {
        if (marked.low.rank > all.low.rank) all.low = marked.low;
        if (marked.high.rank < all.high.rank) all.high = marked.high;
        all.countL += marked.countL;
    }
    SplitPoint split;
    split.column = id;
    split.countL = all.countL;
    const double low = data.Value(all.low.row, id);
    const double high = data.Value(all.high.row, id);
    split.threshold = (low + high) * 0.5;
    // The midpoint of neighbouring doubles can round up to the higher one, or overflow.
    if (!(low <= split.threshold && split.threshold < high)) {
        MarkByValue(rows, begin, count, split);
    }
    return split;
}

template <typename Rank>
RowPartition::Marked RowPartition::Mark(TreeRows& rows, int begin, int end, const Rank* rankV,
                                        uint32_t lastRank) const {
    Marked marked;
    const int* indexV = rows.indexV.data();
    uint8_t* fLeftV = rows.fLeftV.data();
    for (int i = begin; i < end; ++i) {
        __builtin_prefetch(rankV + indexV[std::min(i + kAhead, end - 1)]);
        const int row = indexV[i];
        const int64_t rank = rankV[row];
        const bool fLeft = rank <= lastRank;
        fLeftV[i] = fLeft;
        marked.countL += fLeft;
        if (rank <= marked.low.rank || rank >= marked.high.rank) continue;  // as nearly all
        (fLeft ? marked.low : marked.high) = {rank, row};
    }
    return marked;
}

// The cursors ask two questions: is a row of the left part not at or below the threshold, and is
// one of the right part not above it? For a threshold of NaN (between infinities) both are so.
void RowPartition::MarkByValue(TreeRows& rows, int begin, int count, SplitPoint& split) {
    int numLeft = 0;
    for (int i = begin; i < begin + count; ++i) {
        const size_t at = static_cast<size_t>(i);
        const double value = data.Value(rows.indexV[at], split.column);
        const bool fLeft = value <= split.threshold;
        const bool fRight = value > split.threshold;
        rows.fLeftV[at] = i < begin + split.countL ? fLeft : !fRight;
        numLeft += fLeft;
    }
    split.fSlicesTrue = numLeft == split.countL;
}

// Writes the places in [begin, begin + count) that are marked `fLeft` to the front of placeV, in
// order, and returns how many they are.
int RowPartition::ListMisplaced(const TreeRows& rows, int begin, int count, uint8_t fLeft,
                                std::vector<int>& placeV) {
    if (placeV.size() < static_cast<size_t>(count) + 1)
        placeV.resize(static_cast<size_t>(count) + 1);
    countV.assign(static_cast<size_t>(NumChunks(count)), 0);
    ForChunks(count, [&](size_t chunk, int from, int to) {
        const uint8_t* fLeftV = rows.fLeftV.data() + begin;
        int* place = placeV.data() + from;
        // One place past the stretch may be written, by the last step; it belongs to the next
        // stretch, so the last step is taken by itself.
        for (int i = from; i + 1 < to; ++i) {
            *place = begin + i;
            place += fLeftV[i] == fLeft;
        }
        if (to > from && fLeftV[to - 1] == fLeft) *place++ = begin + to - 1;
        countV[chunk] = static_cast<int>(place - (placeV.data() + from));
    });
    int num = 0;
    for (size_t chunk = 0; chunk < countV.size(); ++chunk) {
        const int* from = placeV.data() + chunk * kChunkRows;
        std::memmove(placeV.data() + num, from, static_cast<size_t>(countV[chunk]) * sizeof(int));
        num += countV[chunk];
    }
    return num;
}

void RowPartition::Move(TreeRows& rows, int begin, int count, int countL) {
    const int numLeft = ListMisplaced(rows, begin, countL, 0, wrongLeftV);
    const int numRight = ListMisplaced(rows, begin + countL, count - countL, 1, wrongRightV);
    // The counts differ only for a threshold that is not between its neighbours.
    ForChunks(std::min(numLeft, numRight), [&](size_t, int from, int to) {
        for (int k = from; k < to; ++k) {
            const size_t a = static_cast<size_t>(wrongLeftV[static_cast<size_t>(k)]);
            const size_t b = static_cast<size_t>(wrongRightV[static_cast<size_t>(k)]);
            std::swap(rows.indexV[a], rows.indexV[b]);
            std::swap(rows.gradV[a], rows.gradV[b]);
            if (!rows.weightV.empty()) std::swap(rows.weightV[a], rows.weightV[b]);
        }
    });
}

}  // namespace engine
}  // namespace sylvora
