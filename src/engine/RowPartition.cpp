// The partition of a node's rows; see RowPartition.h.
#include "RowPartition.h"

#include <algorithm>
#include <limits>
#include <utility>

namespace sylvora {
namespace engine {
namespace {

constexpr int kAhead = 32;

}  // namespace

SplitPoint RowPartition::MarkByRank(TreeRows& rows, int begin, int count, int id,
                                    uint32_t lastRank) {
    const Column& column = data.At(id);
    if (column.fNarrow) return Mark(rows, begin, count, column.codeV.data(), lastRank, id);
    return Mark(rows, begin, count, column.rankV.data(), lastRank, id);
}

template <typename Rank>
SplitPoint RowPartition::Mark(TreeRows& rows, int begin, int count, const Rank* rankV,
                              uint32_t lastRank, int column) {
    SplitPoint split;
    split.column = column;
    // The neighbours of the cut within the node, as rank and row in one word each.
    uint64_t highestLeft = 0;
    uint64_t lowestRight = std::numeric_limits<uint64_t>::max();
    const int end = begin + count;
    const int* indexV = rows.indexV.data();
    for (int i = begin; i < end; ++i) {
        __builtin_prefetch(rankV + indexV[std::min(i + kAhead, end - 1)]);
        const uint32_t row = static_cast<uint32_t>(indexV[i]);
        const uint32_t rank = rankV[row];
        const uint64_t word = (static_cast<uint64_t>(rank) << 32) | row;
        const bool fLeft = rank <= lastRank;
        rows.fLeftV[static_cast<size_t>(i)] = fLeft;
        split.countL += fLeft;
        highestLeft = std::max(highestLeft, fLeft ? word : 0);
        lowestRight = std::min(lowestRight, fLeft ? lowestRight : word);
    }
    const double low = data.Value(static_cast<int>(highestLeft & 0xffffffffu), column);
    const double high = data.Value(static_cast<int>(lowestRight & 0xffffffffu), column);
    split.threshold = (low + high) * 0.5;
    // The midpoint of neighbouring doubles can round up to the higher one, or overflow.
    if (!(low <= split.threshold && split.threshold < high)) {
        MarkByValue(rows, begin, count, split);
    }
    return split;
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

void RowPartition::Move(TreeRows& rows, int begin, int count, int countL) {
    wrongLeftV.resize(static_cast<size_t>(count));
    wrongRightV.resize(static_cast<size_t>(count));
    const uint8_t* fLeftV = rows.fLeftV.data() + begin;
    size_t numLeft = 0;
    for (int i = 0; i < countL; ++i) {
        wrongLeftV[numLeft] = begin + i;
        numLeft += fLeftV[i] == 0;
    }
    size_t numRight = 0;
    for (int i = countL; i < count; ++i) {
        wrongRightV[numRight] = begin + i;
        numRight += fLeftV[i] != 0;
    }
    // The counts differ only for a threshold that is not between its neighbours.
    const size_t numSwaps = std::min(numLeft, numRight);
    for (size_t k = 0; k < numSwaps; ++k) {
        const size_t a = static_cast<size_t>(wrongLeftV[k]);
        const size_t b = static_cast<size_t>(wrongRightV[k]);
        std::swap(rows.indexV[a], rows.indexV[b]);
        std::swap(rows.gradV[a], rows.gradV[b]);
        if (!rows.weightV.empty()) std::swap(rows.weightV[a], rows.weightV[b]);
    }
}

}  // namespace engine
}  // namespace sylvora
