// The partition of a node's rows; see RowPartition.h.
#include "RowPartition.h"

#include <emmintrin.h>

#include <algorithm>
#include <climits>
#include <cstring>
#include <utility>

#include "Chunks.h"

namespace sylvora {
namespace engine {
namespace {

constexpr int kChunkRows = 16384;
constexpr int kBlockRows = 512;

int NumChunks(int count) {
    return Chunks{count, kChunkRows}.Num();
}

// What a block of ranks says of a cut: the highest rank left of it, the lowest right of it.
struct BlockMarks {
    int low = -1;
    int high = INT_MAX;
    int countL = 0;
};

inline __m128i Choose(__m128i mask, __m128i a, __m128i b) {
    return _mm_or_si128(_mm_and_si128(mask, a), _mm_andnot_si128(mask, b));
}

// Sixteen ranks at a time.
int MarkSixteens(const int* rankV, int count, int last, uint8_t* fLeftV, BlockMarks& marks) {
    const __m128i lastRank = _mm_set1_epi32(last);
    __m128i low = _mm_set1_epi32(-1);
    __m128i high = _mm_set1_epi32(INT_MAX);
    __m128i num = _mm_setzero_si128();
    int i = 0;
    for (; i + 16 <= count; i += 16) {
        __m128i fRightV[4];
        for (int k = 0; k < 4; ++k) {
            const __m128i rank =
                _mm_loadu_si128(reinterpret_cast<const __m128i*>(rankV + i + 4 * k));
            fRightV[k] = _mm_cmpgt_epi32(rank, lastRank);
            const __m128i left = _mm_or_si128(rank, fRightV[k]);  // -1 where it is right
            const __m128i right = Choose(fRightV[k], rank, _mm_set1_epi32(INT_MAX));
            low = Choose(_mm_cmpgt_epi32(left, low), left, low);
            high = Choose(_mm_cmpgt_epi32(high, right), right, high);
        }
        const __m128i fRight = _mm_packs_epi16(_mm_packs_epi32(fRightV[0], fRightV[1]),
                                               _mm_packs_epi32(fRightV[2], fRightV[3]));
        const __m128i fLeft = _mm_add_epi8(fRight, _mm_set1_epi8(1));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(fLeftV + i), fLeft);
        num = _mm_add_epi64(num, _mm_sad_epu8(fLeft, _mm_setzero_si128()));
    }
    int lowV[4], highV[4];
    _mm_storeu_si128(reinterpret_cast<__m128i*>(lowV), low);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(highV), high);
    marks.low = *std::max_element(lowV, lowV + 4);
    marks.high = *std::min_element(highV, highV + 4);
    marks.countL = static_cast<int>(_mm_cvtsi128_si64(_mm_add_epi64(num, _mm_srli_si128(num, 8))));
    return i;
}

BlockMarks MarkBlock(const int* rankV, int count, int last, uint8_t* fLeftV) {
    BlockMarks marks;
    for (int i = MarkSixteens(rankV, count, last, fLeftV, marks); i < count; ++i) {
        const bool fLeft = rankV[i] <= last;
        fLeftV[i] = fLeft;
        marks.countL += fLeft;
        marks.low = std::max(marks.low, fLeft ? rankV[i] : -1);
        marks.high = std::min(marks.high, fLeft ? INT_MAX : rankV[i]);
    }
    return marks;
}

}  // namespace

// Calls task(chunk, begin, end) for stretches of [0, count).
template <typename Task>
void RowPartition::ForChunks(int count, const Task& task) {
    const auto run = [&](int chunk, int) {
        const Chunks chunks = {count, kChunkRows};
        task(static_cast<size_t>(chunk), chunks.Begin(chunk), chunks.End(chunk));
    };
    if (pool != nullptr) return pool->For(NumChunks(count), run);
    for (int chunk = 0; chunk < NumChunks(count); ++chunk) run(chunk, 0);
}

SplitPoint RowPartition::MarkByRank(TreeRows& rows, int begin, int count, int id,
                                    uint32_t lastRank) {
    markedV.assign(static_cast<size_t>(NumChunks(count)), Marked());
    ForChunks(count, [&](size_t chunk, int from, int to) {
        markedV[chunk] = Mark(rows, begin + from, begin + to, id, lastRank);
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
    if (!split.SetThreshold(low, high)) MarkByValue(rows, begin, count, split);
    return split;
}

// A block of ranks is gathered first: with nothing else to do, many rows are on their way at once.
RowPartition::Marked RowPartition::Mark(TreeRows& rows, int begin, int end, int column,
                                        uint32_t lastRank) const {
    const int last = static_cast<int>(lastRank);
    Marked marked;
    int rankV[kBlockRows];
    for (int from = begin; from < end; from += kBlockRows) {
        const int* rowV = rows.indexV.data() + from;
        uint8_t* fLeftV = rows.fLeftV.data() + from;
        const int count = std::min(kBlockRows, end - from);
        data.GatherRanks(column, rowV, count, rankV);
        const BlockMarks block = MarkBlock(rankV, count, last, fLeftV);
        const auto rowOf = [&](int rank) {
            return rowV[std::find(rankV, rankV + count, rank) - rankV];
        };
        if (block.low > marked.low.rank) marked.low = {block.low, rowOf(block.low)};
        if (block.high < marked.high.rank) marked.high = {block.high, rowOf(block.high)};
        marked.countL += block.countL;
    }
    return marked;
}

void RowPartition::MarkByValue(TreeRows& rows, int begin, int count, SplitPoint& split) {
    int numLeft = 0;
    for (int i = begin; i < begin + count; ++i) {
        const size_t at = static_cast<size_t>(i);
        const double value = data.Value(rows.indexV[at], split.column);
        rows.fLeftV[at] = split.BelongsLeft(value, i < begin + split.countL);
        numLeft += value <= split.threshold;
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
