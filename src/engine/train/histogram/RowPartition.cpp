// The partition of a node's rows; see RowPartition.h.
#include "RowPartition.h"

#include <emmintrin.h>

#include <algorithm>
#include <numeric>
#include <utility>

#include "base/Gather.h"
#include "engine/train/RowExchange.h"
#include "engine/train/RowKernels.h"

namespace sylvora {
namespace engine {
namespace {

constexpr int kBlockRows = 512;

}  // namespace

// The 8-bit codes of a block of rows in the split's column, and their sides.
struct RowPartition::CodeBlock {
    alignas(16) uint8_t codeV[kBlockRows];
    alignas(16) uint8_t fLeftV[kBlockRows];
    int countL = 0;
    // The highest code of a row that surely goes left; 0 if none.
    int low = 0;
    // The lowest code of a row that surely goes right; 255 if none.
    int high = 255;

    // Gathers the codes of the rows, or their bins if binOfCodeV is not null, and pads them to a
    // multiple of 16.
    void Load(const uint8_t* codes, const uint8_t* binOfCodeV, const int* rowV, int count) {
        Gather(codes, rowV, count, codeV);
        for (int i = 0; i < count && binOfCodeV != nullptr; ++i) codeV[i] = binOfCodeV[codeV[i]];
        std::fill_n(codeV + count, (kBlockRows - count) % 16, uint8_t{255});  // never left
    }

    // Marks rows with codes below `pastLeft` (at most 255) as left. `undecidedCode` is as in Sides.
    void Mark(int count, int pastLeft, int undecidedCode) {
        const int firstRight = undecidedCode >= 0 ? undecidedCode + 1 : pastLeft;
        const __m128i past = _mm_set1_epi8(static_cast<char>(pastLeft));
        const __m128i right = _mm_set1_epi8(static_cast<char>(std::min(firstRight, 255)));
        const __m128i zero = _mm_setzero_si128();
        const __m128i all = _mm_set1_epi8(-1);
        __m128i lows = zero;
        __m128i highs = all;
        __m128i num = zero;
        // Sixteen codes at a time; the loop has no branch. Padding has code 255 and is never left.
        for (int i = 0; i < count; i += 16) {
            const __m128i codes = _mm_load_si128(reinterpret_cast<const __m128i*>(codeV + i));
            const __m128i fNotLeft = _mm_cmpeq_epi8(_mm_max_epu8(codes, past), codes);
            const __m128i fRight = _mm_cmpeq_epi8(_mm_max_epu8(codes, right), codes);
            const __m128i fLeft = _mm_andnot_si128(fNotLeft, _mm_set1_epi8(1));
            _mm_store_si128(reinterpret_cast<__m128i*>(fLeftV + i), fLeft);
            lows = _mm_max_epu8(lows, _mm_andnot_si128(fNotLeft, codes));
            highs = _mm_min_epu8(highs, _mm_or_si128(codes, _mm_andnot_si128(fRight, all)));
            num = _mm_add_epi64(num, _mm_sad_epu8(fLeft, zero));
        }
        uint8_t lowV[16], highV[16];
        _mm_storeu_si128(reinterpret_cast<__m128i*>(lowV), lows);
        _mm_storeu_si128(reinterpret_cast<__m128i*>(highV), highs);
        low = *std::max_element(lowV, lowV + 16);
        high = *std::min_element(highV, highV + 16);
        countL = static_cast<int>(_mm_cvtsi128_si64(_mm_add_epi64(num, _mm_srli_si128(num, 8))));
    }

    // The first row of the block with this code. There must be one.
    int IndexOf(int code, int count) const {
        return static_cast<int>(std::find(codeV, codeV + count, code) - codeV);
    }

    // Calls visit(i) for the rows with this code. Fast if they are few.
    template <typename Visit>
    void ForCode(int count, int code, const Visit& visit) const {
        const __m128i wanted = _mm_set1_epi8(static_cast<char>(code));
        for (int begin = 0; begin < count; begin += 16) {
            const __m128i codes = _mm_load_si128(reinterpret_cast<const __m128i*>(codeV + begin));
            unsigned bits = static_cast<unsigned>(_mm_movemask_epi8(_mm_cmpeq_epi8(codes, wanted)));
            if (count - begin < 16) bits &= (1u << (count - begin)) - 1;
            for (; bits != 0; bits &= bits - 1) visit(begin + __builtin_ctz(bits));
        }
    }

    // Marks the rows with this code as left where isLeft(i). Does nothing if the code is -1.
    template <typename IsLeft>
    void Decide(int count, int code, const IsLeft& isLeft) {
        if (code < 0) return;
        ForCode(count, code, [&](int i) {
            fLeftV[i] = isLeft(i);
            countL += fLeftV[i];
        });
    }
};

// The chunks of a slice: one chunk if the node is not shared.
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

// In a narrow column the bin is the rank, and no bin is undecided. In a wide one, lastRank's code
// is undecided unless lastRank is the last rank of it.
RowPartition::Sides RowPartition::SidesOf(const Column& column, uint32_t lastRank) const {
    const int last = static_cast<int>(lastRank);
    if (column.fNarrow) {
        const ColumnGroup& group = data.GroupOf(column);
        const uint8_t* const binOfCodeV = group.IsJoint() ? data.BinsOfCodes(column) : nullptr;
        return {group.codeV.data(), binOfCodeV, nullptr, last + 1, -1, last};
    }
    const int code = column.Code8Of(lastRank);
    const bool fLastOfByte = column.Code8Of(lastRank + 1) != code;
    return {column.code8V.data(),    nullptr, &column.ranks, fLastOfByte ? code + 1 : code,
            fLastOfByte ? -1 : code, last};
}

// The neighbours of all chunks are merged in chunk order. Only their values matter, which all rows
// of a rank share, so the choice of the row does not.
SplitPoint RowPartition::MarkByRank(TreeRows& rows, int begin, int count, int id,
                                    uint32_t lastRank) {
    sides = SidesOf(data.At(id), lastRank);
    fMarksOfRows = false;
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

// Gathers a block of codes before using them: in a loop with nothing else, many loads overlap.
RowPartition::Marked RowPartition::Mark(TreeRows& rows, int begin, int end) const {
    Marked marked;
    CodeBlock block;
    // Block by block, so that codes and sides stay in the L1 cache.
    for (int from = begin, count; from < end; from += count) {
        const int* rowV = rows.indexV.data() + from;
        count = std::min(kBlockRows, end - from);
        block.Load(sides.codes, sides.binOfCodeV, rowV, count);
        block.Mark(count, sides.pastLeft, sides.undecidedCode);
        if (sides.ranks == nullptr) {
            UpdateNeighbours(block, rowV, count, marked);
        } else {
            DecideByRank(block, rowV, count, marked);
        }
        std::copy_n(block.fLeftV, count, rows.fLeftV.begin() + from);
        marked.countL += block.countL;
    }
    return marked;
}

// Updates the split's neighbours from a block of a narrow column, whose codes are ranks.
void RowPartition::UpdateNeighbours(const CodeBlock& block, const int* rowV, int count,
                                    Marked& marked) const {
    if (block.countL > 0 && block.low > marked.low.rank) {
        marked.low = {block.low, rowV[block.IndexOf(block.low, count)], block.low};
    }
    if (block.countL < count && block.high < marked.high.rank) {
        marked.high = {block.high, rowV[block.IndexOf(block.high, count)], block.high};
    }
}

// Decides the rows of a wide column whose code does not, and updates the neighbours. A neighbour
// has the undecided code or, if no row on its side has it, the next code with rows.
void RowPartition::DecideByRank(CodeBlock& block, const int* rowV, int count,
                                Marked& marked) const {
    const auto decide = [&](int i, int code) {
        const int rank = sides.RankOf(rowV[i], code);
        const bool fLeft = rank <= sides.lastRank;
        if (fLeft && rank > marked.low.rank) marked.low = {rank, rowV[i], code};
        if (!fLeft && rank < marked.high.rank) marked.high = {rank, rowV[i], code};
        return fLeft;
    };
    block.Decide(count, sides.undecidedCode, [&](int i) { return decide(i, sides.undecidedCode); });
    if (block.low >= marked.low.code) {
        block.ForCode(count, block.low, [&](int i) { decide(i, block.low); });
    }
    if (block.high <= marked.high.code) {
        block.ForCode(count, block.high, [&](int i) { decide(i, block.high); });
    }
}

// Compares as the reference cursors do, which treat a NaN threshold differently on either side
// (SplitPoint::BelongsLeft). Runs alone: it is rare.
void RowPartition::MarkByValue(TreeRows& rows, int begin, int count, SplitPoint& split) {
    int numLeft = 0;
    for (int i = begin; i < begin + count; ++i) {
        const size_t at = static_cast<size_t>(i);
        const double value = data.Value(rows.indexV[at], split.column);
        rows.fLeftV[at] = split.BelongsLeft(value, i < begin + split.countL);
        numLeft += value <= split.threshold;
    }
    split.fSlicesMatchThreshold = numLeft == split.countL;
    sides = {};
    fMarksOfRows = false;
}

void RowPartition::TakeMarks(TreeRows& rows, int begin, int count) {
    sides = {};
    fMarksOfRows = true;
    if (!rows.fKeepAscending) return;
    ForChunks(count, [&](size_t, int from, int to) {
        for (int i = begin + from; i < begin + to; ++i) {
            const size_t at = static_cast<size_t>(i);
            rows.fLeftOfRowV[static_cast<size_t>(rows.indexV[at])] = rows.fLeftV[at];
        }
    });
}

// Partitions the ascending order. Each chunk writes its left rows after those of the chunks before
// it, and its right rows likewise, so both stay ascending. markBlock(rows, number, block) marks the
// sides of up to kBlockRows rows.
template <typename MarkBlock>
void RowPartition::MoveAscending(TreeRows& rows, int begin, int count, int countL,
                                 const MarkBlock& markBlock) {
    const int* const rowV = rows.ascendingV.data() + begin;
    const RowKernels& kernels = BestRowKernels();
    const Chunks chunks = ChunksOf(count);
    leftBeginV.assign(static_cast<size_t>(chunks.Num()) + 1, 0);
    if (chunks.Num() > 1) {
        // The first pass only counts, so that each chunk knows where to write.
        ForChunks(count, [&](size_t chunk, int from, int to) {
            CodeBlock block;
            int numLeft = 0;
            for (int i = from, num; i < to; i += num) {
                num = std::min(kBlockRows, to - i);
                markBlock(rowV + i, num, block);
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
        CodeBlock block;
        int sideVV[2][kBlockRows + RowKernels::kSlack];
        for (int i = from, num; i < to; i += num) {
            num = std::min(kBlockRows, to - i);
            markBlock(rowV + i, num, block);
            const int numLeft = kernels.split(rowV + i, block.fLeftV, num, sideVV[0], sideVV[1]);
            left = std::copy_n(sideVV[0], numLeft, left);
            right = std::copy_n(sideVV[1], num - numLeft, right);
        }
    });
}

// Repeats the marking on the ascending order rather than look up fLeftV, which is parallel to the
// other order.
void RowPartition::MoveInAscendingOrder(TreeRows& rows, int begin, int count,
                                        const SplitPoint& split) {
    if (sides.codes != nullptr) {
        MoveAscending(rows, begin, count, split.countL,
                      [&](const int* rowV, int num, CodeBlock& block) {
                          block.Load(sides.codes, sides.binOfCodeV, rowV, num);
                          block.Mark(num, sides.pastLeft, sides.undecidedCode);
                          block.Decide(num, sides.undecidedCode, [&](int i) {
                              return sides.RankOf(rowV[i], sides.undecidedCode) <= sides.lastRank;
                          });
                      });
    } else if (split.fSlicesMatchThreshold && fMarksOfRows) {
        MoveAscending(rows, begin, count, split.countL,
                      [&](const int* rowV, int num, CodeBlock& block) {
                          Gather(rows.fLeftOfRowV.data(), rowV, num, block.fLeftV);
                          block.countL = std::accumulate(block.fLeftV, block.fLeftV + num, 0);
                      });
    } else if (split.fSlicesMatchThreshold) {
        MoveAscending(
            rows, begin, count, split.countL, [&](const int* rowV, int num, CodeBlock& block) {
                block.countL = 0;
                for (int i = 0; i < num; ++i) {
                    block.fLeftV[i] = data.Value(rowV[i], split.column) <= split.threshold;
                    block.countL += block.fLeftV[i];
                }
            });
    } else {  // only the slices tell which side a row is on
        const auto first = rows.nextAscendingV.begin() + begin;
        std::copy_n(rows.indexV.begin() + begin, count, first);
        std::sort(first, first + split.countL);
        std::sort(first + split.countL, first + count);
    }
}

// When shared, workers exchange chunks of pairs in parallel. Pair k is the same whatever the chunks
// are, so the result is the same.
void RowPartition::MoveInReferenceOrder(TreeRows& rows, int begin, int count, int countL) {
    const auto exchange = [&rows](int left, int right) {
        const size_t a = static_cast<size_t>(left);
        const size_t b = static_cast<size_t>(right);
        std::swap(rows.indexV[a], rows.indexV[b]);
        std::swap(rows.gradV[a], rows.gradV[b]);
        if (!rows.weightV.empty()) std::swap(rows.weightV[a], rows.weightV[b]);
    };
    const int middle = begin + countL;
    const int end = begin + count;
    const uint8_t* fLeftV = rows.fLeftV.data();
    if (!fShared) {
        MisplacedRows left(fLeftV, 0, begin, middle);
        MisplacedRows right(fLeftV, 1, middle, end);
        return ExchangeMisplaced(left, right, count, exchange);
    }
    CountMisplaced(rows, begin, countL, 0, wrongLeftV);
    CountMisplaced(rows, middle, count - countL, 1, wrongRightV);
    // The counts differ only if the threshold does not separate the values next to it.
    ForChunks(std::min(wrongLeftV.back(), wrongRightV.back()), [&](size_t, int from, int to) {
        const auto startAt = [from](const std::vector<int>& beginV) {
            return static_cast<int>(std::upper_bound(beginV.begin(), beginV.end(), from) -
                                    beginV.begin()) -
                   1;
        };
        const int leftChunk = startAt(wrongLeftV);
        const int rightChunk = startAt(wrongRightV);
        MisplacedRows left(fLeftV, 0, begin + leftChunk * chunkRows, middle);
        MisplacedRows right(fLeftV, 1, middle + rightChunk * chunkRows, end);
        left.Skip(from - wrongLeftV[static_cast<size_t>(leftChunk)]);
        right.Skip(from - wrongRightV[static_cast<size_t>(rightChunk)]);
        ExchangeMisplaced(left, right, to - from, exchange);
    });
}

// Counts the rows marked `fWrong` before each chunk of a slice, and in all.
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
