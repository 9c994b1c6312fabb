// The partition of a node's rows; see RowPartition.h.
#include "RowPartition.h"

#include <emmintrin.h>

#include <algorithm>
#include <numeric>
#include <utility>

#include "base/Gather.h"

namespace sylvora {
namespace engine {
namespace {

constexpr int kBlockRows = 512;

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

    // Marks the rows with a byte for the left where isLeft(i) says so.
    template <typename IsLeft>
    void Decide(int count, int byte, const IsLeft& isLeft) {
        if (byte < 0) return;
        ForByte(count, byte, [&](int i) {
            fLeftV[i] = isLeft(i);
            countL += fLeftV[i];
        });
    }
};

// The chunks of a slice; the whole of it where it is not shared.
Chunks RowPartition::ChunksOf(int count) const {
    return {count, fShared ? chunkRows : std::max(count, 1)};
}

// Calls task(chunk, begin, end) for the chunks of [0, count).
template <typename Task>
void RowPartition::ForChunks(int count, const Task& task) {
    const Chunks chunks = ChunksOf(count);
    const auto run = [&](int chunk, int) {
        task(static_cast<size_t>(chunk), chunks.Begin(chunk), chunks.End(chunk));
    };
    pool.For(chunks.Num(), run);
}

RowPartition::Sides RowPartition::SidesOf(const Column& column, uint32_t lastRank) {
    const int last = static_cast<int>(lastRank);
    if (column.fNarrow) return {column.byteV.data(), nullptr, last + 1, -1, last};
    const int byte = column.ByteOf(lastRank);
    const bool fLastOfByte = column.ByteOf(lastRank + 1) != byte;
    return {column.byteV.data(), &column.ranks, fLastOfByte ? byte + 1 : byte,
            fLastOfByte ? -1 : byte, last};
}

SplitPoint RowPartition::MarkByRank(TreeRows& rows, int begin, int count, int id,
                                    uint32_t lastRank) {
    sides = SidesOf(data.At(id), lastRank);
    markedV.assign(static_cast<size_t>(ChunksOf(count).Num()), Marked());
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
        marked.low = {block.low, rowV[block.PlaceOf(block.low, count)], block.low};
    }
    if (block.countL < count && block.high < marked.high.rank) {
        marked.high = {block.high, rowV[block.PlaceOf(block.high, count)], block.high};
    }
}

// The neighbours in a wide column, and the sides of the rows whose byte does not tell: a neighbour
// has that byte or, where no row on its side has, the next one.
void RowPartition::SeeRanks(ByteBlock& block, const int* rowV, int count, Marked& marked) const {
    const auto see = [&](int i, int byte) {
        const int rank = sides.RankOf(rowV[i], byte);
        const bool fLeft = rank <= sides.lastRank;
        if (fLeft && rank > marked.low.rank) marked.low = {rank, rowV[i], byte};
        if (!fLeft && rank < marked.high.rank) marked.high = {rank, rowV[i], byte};
        return fLeft;
    };
    block.Decide(count, sides.unsure, [&](int i) { return see(i, sides.unsure); });
    if (block.low >= marked.low.byte) {
        block.ForByte(count, block.low, [&](int i) { see(i, block.low); });
    }
    if (block.high <= marked.high.byte) {
        block.ForByte(count, block.high, [&](int i) { see(i, block.high); });
    }
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
// markBlock(rows, number, block) marks the sides of up to kBlockRows rows.
template <typename MarkBlock>
void RowPartition::MoveAscending(TreeRows& rows, int begin, int count, int countL,
                                 const MarkBlock& markBlock) {
    const int* const rowV = rows.ascendingV.data() + begin;
    const Chunks chunks = ChunksOf(count);
    leftBeginV.assign(static_cast<size_t>(chunks.Num()) + 1, 0);
    if (chunks.Num() > 1) {
        ForChunks(count, [&](size_t chunk, int from, int to) {
            ByteBlock block;
            int numLeft = 0;
            for (int i = from; i < to; i += kBlockRows) {
                markBlock(rowV + i, std::min(kBlockRows, to - i), block);
                numLeft += block.countL;
            }
            leftBeginV[chunk + 1] = numLeft;
        });
        std::partial_sum(leftBeginV.begin(), leftBeginV.end(), leftBeginV.begin());
    }
    ForChunks(count, [&](size_t chunk, int from, int to) {
        const int numBefore = leftBeginV[chunk];
        int* left = rows.nextAscendingV.data() + begin + numBefore;
        int* right = rows.nextAscendingV.data() + begin + countL + (from - numBefore);
        ByteBlock block;
        int sideVV[2][kBlockRows];
        for (int i = from; i < to; i += kBlockRows) {
            const int num = std::min(kBlockRows, to - i);
            markBlock(rowV + i, num, block);
            int numLeft = 0;
            for (int k = 0; k < num; ++k) {
                sideVV[0][numLeft] = sideVV[1][k - numLeft] = rowV[i + k];
                numLeft += block.fLeftV[k];
            }
            left = std::copy_n(sideVV[0], numLeft, left);
            right = std::copy_n(sideVV[1], num - numLeft, right);
        }
    });
}

void RowPartition::MoveInAscendingOrder(TreeRows& rows, int begin, int count,
                                        const SplitPoint& split) {
    if (sides.bytes != nullptr) {
        MoveAscending(rows, begin, count, split.countL,
                      [&](const int* rowV, int num, ByteBlock& block) {
                          block.Load(sides.bytes, rowV, num);
                          block.Mark(num, sides.pastSure, sides.unsure);
                          block.Decide(num, sides.unsure, [&](int i) {
                              return sides.RankOf(rowV[i], sides.unsure) <= sides.lastRank;
                          });
                      });
    } else if (split.fSlicesTrue) {
        MoveAscending(
            rows, begin, count, split.countL, [&](const int* rowV, int num, ByteBlock& block) {
                block.countL = 0;
                for (int i = 0; i < num; ++i) {
                    block.fLeftV[i] = data.Value(rowV[i], split.column) <= split.threshold;
                    block.countL += block.fLeftV[i];
                }
            });
    } else {  // only the slices themselves tell who is where
        const auto first = rows.nextAscendingV.begin() + begin;
        std::copy_n(rows.indexV.begin() + begin, count, first);
        std::sort(first, first + split.countL);
        std::sort(first + split.countL, first + count);
    }
}

// The places of a stretch of rows that are marked for the other side, in order.
class RowPartition::Misplaced {
  public:
    Misplaced(const uint8_t* fLefts, uint8_t fWrongly, int begin, int pastLast)
        : fLeftV(fLefts), fWrong(fWrongly), next(begin), end(pastLast) {}

    // How many are at hand, at Places(); 0 when there are no more.
    int Look() {
        while (at == num && next < end) List();
        return num - at;
    }
    const int* Places() const { return placeV + at; }
    void Pass(int count) { at += count; }
    void Skip(int count) {
        for (int some; count > 0; count -= some) {
            some = std::min(count, Look());
            Pass(some);
        }
    }

  private:
    void List() {
        const int past = std::min(next + kBlockRows, end);
        at = num = 0;
        for (; next < past; ++next) {
            placeV[num] = next;
            num += fLeftV[next] == fWrong;
        }
    }

    const uint8_t* fLeftV;
    const uint8_t fWrong;
    int next;
    const int end;
    int at = 0;
    int num = 0;
    int placeV[kBlockRows];
};

void RowPartition::MoveInPlainOrder(TreeRows& rows, int begin, int count, int countL) {
    const auto exchange = [&](Misplaced& left, Misplaced& right, int mostPairs) {
        while (mostPairs > 0) {
            const int num = std::min({left.Look(), right.Look(), mostPairs});
            if (num == 0) break;
            for (int k = 0; k < num; ++k) {
                const size_t a = static_cast<size_t>(left.Places()[k]);
                const size_t b = static_cast<size_t>(right.Places()[k]);
                std::swap(rows.indexV[a], rows.indexV[b]);
                std::swap(rows.gradV[a], rows.gradV[b]);
                if (!rows.weightV.empty()) std::swap(rows.weightV[a], rows.weightV[b]);
            }
            left.Pass(num);
            right.Pass(num);
            mostPairs -= num;
        }
    };
    const int middle = begin + countL;
    const int end = begin + count;
    const uint8_t* fLeftV = rows.fLeftV.data();
    if (!fShared) {
        Misplaced left(fLeftV, 0, begin, middle);
        Misplaced right(fLeftV, 1, middle, end);
        return exchange(left, right, count);
    }
    CountMisplaced(rows, begin, countL, 0, wrongLeftV);
    CountMisplaced(rows, middle, count - countL, 1, wrongRightV);
    // The numbers differ only for a threshold that is not between its neighbours.
    ForChunks(std::min(wrongLeftV.back(), wrongRightV.back()), [&](size_t, int from, int to) {
        const auto startAt = [from](const std::vector<int>& beginV) {
            return static_cast<int>(std::upper_bound(beginV.begin(), beginV.end(), from) -
                                    beginV.begin()) -
                   1;
        };
        const int leftChunk = startAt(wrongLeftV);
        const int rightChunk = startAt(wrongRightV);
        Misplaced left(fLeftV, 0, begin + leftChunk * chunkRows, middle);
        Misplaced right(fLeftV, 1, middle + rightChunk * chunkRows, end);
        left.Skip(from - wrongLeftV[static_cast<size_t>(leftChunk)]);
        right.Skip(from - wrongRightV[static_cast<size_t>(rightChunk)]);
        exchange(left, right, to - from);
    });
}

// How many places of a stretch are marked `fWrong` before each of its chunks, and in all.
void RowPartition::CountMisplaced(const TreeRows& rows, int begin, int count, uint8_t fWrong,
                                  std::vector<int>& beginV) {
    beginV.assign(static_cast<size_t>(ChunksOf(count).Num()) + 1, 0);
    ForChunks(count, [&](size_t chunk, int from, int to) {
        const int numLeft = std::accumulate(rows.fLeftV.begin() + begin + from,
                                            rows.fLeftV.begin() + begin + to, 0);
        beginV[chunk + 1] = fWrong == 1 ? numLeft : to - from - numLeft;
    });
    std::partial_sum(beginV.begin(), beginV.end(), beginV.begin());
}

}  // namespace engine
}  // namespace sylvora
