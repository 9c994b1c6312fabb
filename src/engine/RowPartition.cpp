// The partition of a node's rows; see RowPartition.h.
#include "RowPartition.h"

#include <emmintrin.h>

#include <algorithm>
#include <cstring>
#include <numeric>
#include <utility>

#include "Chunks.h"
#include "Gather.h"

namespace sylvora {
namespace engine {
namespace {

constexpr int kChunkRows = 16384;
constexpr int kBlockRows = 512;

int NumChunks(int count) {
    return Chunks{count, kChunkRows}.Num();
}

}  // namespace

// The bytes of a block of rows in the column of a cut.
struct RowPartition::ByteBlock {
    alignas(16) uint8_t byteV[kBlockRows];
    alignas(16) uint8_t fLeftV[kBlockRows];
    int countL = 0;
    int low = 0;     // the highest byte that is surely left: 0 if there is none,
    int high = 255;  // the lowest that is surely right: 255 if there is none

    void Load(const uint8_t* bytes, const int* rowV, int count) {
        Gather(bytes, rowV, count, byteV);
        std::fill_n(byteV + count, (kBlockRows - count) % 16, uint8_t{255});  // never left
    }

    // Marks those below `pastSure`, at most 255, for the left; `unsure` is as in Sides.
    void Mark(int count, int pastSure, int unsure) {
        const int firstRight = unsure >= 0 ? unsure + 1 : pastSure;
        const __m128i past = _mm_set1_epi8(static_cast<char>(pastSure));
        const __m128i right = _mm_set1_epi8(static_cast<char>(std::min(firstRight, 255)));
        const __m128i zero = _mm_setzero_si128();
        const __m128i all = _mm_set1_epi8(-1);
        __m128i lows = zero;
        __m128i highs = all;
        __m128i num = zero;
        for (int i = 0; i < count; i += 16) {
            const __m128i bytes = _mm_load_si128(reinterpret_cast<const __m128i*>(byteV + i));
            const __m128i fNotLeft = _mm_cmpeq_epi8(_mm_max_epu8(bytes, past), bytes);
            const __m128i fRight = _mm_cmpeq_epi8(_mm_max_epu8(bytes, right), bytes);
            const __m128i fLeft = _mm_andnot_si128(fNotLeft, _mm_set1_epi8(1));
            _mm_store_si128(reinterpret_cast<__m128i*>(fLeftV + i), fLeft);
            lows = _mm_max_epu8(lows, _mm_andnot_si128(fNotLeft, bytes));
            highs = _mm_min_epu8(highs, _mm_or_si128(bytes, _mm_andnot_si128(fRight, all)));
            num = _mm_add_epi64(num, _mm_sad_epu8(fLeft, zero));
        }
        uint8_t lowV[16], highV[16];
        _mm_storeu_si128(reinterpret_cast<__m128i*>(lowV), lows);
        _mm_storeu_si128(reinterpret_cast<__m128i*>(highV), highs);
        low = *std::max_element(lowV, lowV + 16);
        high = *std::min_element(highV, highV + 16);
        countL = static_cast<int>(_mm_cvtsi128_si64(_mm_add_epi64(num, _mm_srli_si128(num, 8))));
    }

    int PlaceOf(int byte, int count) const {
        return static_cast<int>(std::find(byteV, byteV + count, byte) - byteV);
    }

    // Calls visit(i) for the rows with a byte, few of them.
    template <typename Visit>
    void ForByte(int count, int byte, const Visit& visit) const {
        const __m128i wanted = _mm_set1_epi8(static_cast<char>(byte));
        for (int begin = 0; begin < count; begin += 16) {
            const __m128i bytes = _mm_load_si128(reinterpret_cast<const __m128i*>(byteV + begin));
            unsigned bits = static_cast<unsigned>(_mm_movemask_epi8(_mm_cmpeq_epi8(bytes, wanted)));
            if (count - begin < 16) bits &= (1u << (count - begin)) - 1;
            for (; bits != 0; bits &= bits - 1) visit(begin + __builtin_ctz(bits));
        }
    }
};

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

RowPartition::Sides RowPartition::SidesOf(const Column& column, uint32_t lastRank) {
    const int last = static_cast<int>(lastRank);
    if (column.fNarrow) return {column.byteV.data(), nullptr, last + 1, -1, last};
    const int byte = column.ByteOf(lastRank);
    const bool fLastOfByte = column.ByteOf(lastRank + 1) != byte;
    return {column.byteV.data(), column.rankV.data(), fLastOfByte ? byte + 1 : byte,
            fLastOfByte ? -1 : byte, last};
}

SplitPoint RowPartition::MarkByRank(TreeRows& rows, int begin, int count, int id,
                                    uint32_t lastRank) {
    sides = SidesOf(data.At(id), lastRank);
    markedV.assign(static_cast<size_t>(NumChunks(count)), Marked());
    ForChunks(count, [&](size_t chunk, int from, int to) {
        markedV[chunk] = Mark(rows, begin + from, begin + to);
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

// A block of bytes is gathered first: with nothing else to do, many rows are on their way at once.
RowPartition::Marked RowPartition::Mark(TreeRows& rows, int begin, int end) const {
    Marked marked;
    ByteBlock block;
    for (int from = begin; from < end; from += kBlockRows) {
        const int* rowV = rows.indexV.data() + from;
        const int count = std::min(kBlockRows, end - from);
        block.Load(sides.bytes, rowV, count);
        block.Mark(count, sides.pastSure, sides.unsure);
        if (sides.ranks == nullptr) {
            SeeBytes(block, rowV, count, marked);
        } else {
            SeeRanks(block, rowV, count, marked);
        }
        std::copy_n(block.fLeftV, count, rows.fLeftV.begin() + from);
        marked.countL += block.countL;
    }
    return marked;
}

// The neighbours in a narrow column, where the byte is the rank and many rows may share it.
void RowPartition::SeeBytes(const ByteBlock& block, const int* rowV, int count,
                            Marked& marked) const {
    if (block.countL > 0 && block.low > marked.low.rank) {
        marked.low = {block.low, rowV[block.PlaceOf(block.low, count)]};
    }
    if (block.countL < count && block.high < marked.high.rank) {
        marked.high = {block.high, rowV[block.PlaceOf(block.high, count)]};
    }
}

// The neighbours in a wide column, and the sides of the rows whose byte does not tell: neighbours
// have the byte that is unsure, or the next one on their side.
void RowPartition::SeeRanks(ByteBlock& block, const int* rowV, int count, Marked& marked) const {
    const auto see = [&](int i) {
        const int rank = static_cast<int>(sides.ranks[rowV[i]]);
        const bool fLeft = rank <= sides.lastRank;
        if (fLeft && rank > marked.low.rank) marked.low = {rank, rowV[i]};
        if (!fLeft && rank < marked.high.rank) marked.high = {rank, rowV[i]};
        return fLeft;
    };
    block.ForByte(count, block.low, see);
    block.ForByte(count, block.high, see);
    if (sides.unsure < 0) return;
    block.ForByte(count, sides.unsure, [&](int i) {
        block.fLeftV[i] = see(i);
        block.countL += block.fLeftV[i];
    });
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
    sides = {};
}

// Each chunk writes its left rows behind those of the chunks before, and its right rows likewise.
template <typename IsLeft>
void RowPartition::MoveInAscendingOrder(TreeRows& rows, int begin, int count, int countL,
                                        const IsLeft& isLeft) {
    const int* const rowV = rows.ascendingV.data() + begin;
    const Chunks chunks = {count, pool != nullptr ? kChunkRows : count};
    countV.assign(static_cast<size_t>(chunks.Num()) + 1, 0);
    if (chunks.Num() > 1) {
        ForChunks(count, [&](size_t chunk, int from, int to) {
            int numLeft = 0;
            for (int i = from; i < to; ++i) numLeft += isLeft(rowV[i]);
            countV[chunk + 1] = numLeft;
        });
        std::partial_sum(countV.begin(), countV.end(), countV.begin());
    }
    const auto move = [&](int chunk, int) {
        const int from = chunks.Begin(chunk);
        const int to = chunks.End(chunk);
        const int numBefore = countV[static_cast<size_t>(chunk)];
        int* left = rows.nextAscendingV.data() + begin + numBefore;
        int* right = rows.nextAscendingV.data() + begin + countL + (from - numBefore);
        int sideVV[2][kBlockRows];
        for (int block = from; block < to; block += kBlockRows) {
            const int num = std::min(kBlockRows, to - block);
            int numLeft = 0;
            for (int i = 0; i < num; ++i) {
                const int row = rowV[block + i];
                sideVV[0][numLeft] = sideVV[1][i - numLeft] = row;
                numLeft += isLeft(row);
            }
            left = std::copy_n(sideVV[0], numLeft, left);
            right = std::copy_n(sideVV[1], num - numLeft, right);
        }
    };
    if (pool != nullptr) return pool->For(chunks.Num(), move);
    move(0, 0);
}

void RowPartition::Move(TreeRows& rows, int begin, int count, const SplitPoint& split,
                        bool fOpenSons) {
    MoveInPlainOrder(rows, begin, count, split.countL);
    if (!fOpenSons || !rows.fKeepAscending) return;
    if (sides.bytes != nullptr) {
        MoveInAscendingOrder(rows, begin, count, split.countL,
                             [this](int row) { return sides.IsLeft(row); });
    } else if (split.fSlicesTrue) {
        MoveInAscendingOrder(rows, begin, count, split.countL, [&](int row) {
            return data.Value(row, split.column) <= split.threshold;
        });
    } else {  // only the slices themselves tell who is where
        const auto first = rows.nextAscendingV.begin() + begin;
        std::copy_n(rows.indexV.begin() + begin, count, first);
        std::sort(first, first + split.countL);
        std::sort(first + split.countL, first + count);
    }
}

void RowPartition::MoveInPlainOrder(TreeRows& rows, int begin, int count, int countL) {
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

// Writes the places in [begin, begin + count) that are marked `fLeft` to the front of placeV, in
// order, and returns how many they are.
int RowPartition::ListMisplaced(const TreeRows& rows, int begin, int count, uint8_t fLeft,
                                std::vector<int>& placeV) {
    if (placeV.size() < static_cast<size_t>(count)) placeV.resize(static_cast<size_t>(count));
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

}  // namespace engine
}  // namespace sylvora
