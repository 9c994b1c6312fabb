// The partition of a node's rows, against two cursors that exchange rows one by one.
#include "engine/train/histogram/RowPartition.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <vector>

#include "../RandomColumns.h"

namespace sylvora::tests {
namespace {

using namespace sylvora::engine;

struct Slice {
    int begin, count;
};

// A tree's rows, parted by the engine and in expectedV.
class RowPartitionTest : public testing::TestWithParam<int> {
  protected:
    void SetUp() override { ASSERT_EQ(pool.Start(GetParam()), 0); }

    // Parts a tree of `num` rows three levels deep.
    void Grow(RandomColumns& columns, int num, const Tuning& tuning, bool fShared) {
        const BinnedColumns data({columns.Rows(), columns.NumRows(), RandomColumns::kColumns},
                                 tuning, pool);
        RowPartition partition(data, pool, tuning.chunkRows);
        partition.SetShared(fShared);
        std::vector<double> gradV;
        std::vector<int> weightV;
        for (int row = 0; row < columns.NumRows(); ++row) {
            gradV.push_back(row + 0.5);
            weightV.push_back(row + 1);
        }
        expectedV = columns.Shuffled(columns.NumRows());
        expectedV.resize(static_cast<size_t>(num));
        rows.Take(gradV.data(), num % 2 == 0 ? weightV.data() : nullptr, expectedV.data(), num,
                  columns.NumRows(), pool);
        std::vector<Slice> levelV = {{0, num}};
        for (int depth = 0; depth < 3 && !HasFailure(); ++depth) {
            std::vector<Slice> nextV;
            for (const Slice& node : levelV) {
                const int countL = Part(columns, partition, node);
                if (countL == 0 || countL == node.count) continue;
                nextV.push_back({node.begin, countL});
                nextV.push_back({node.begin + countL, node.count - countL});
            }
            levelV = nextV;
            rows.EndLevel();
        }
    }

    // Parts a node's rows at a random place of a random column; returns how many go left.
    int Part(RandomColumns& columns, RowPartition& partition, const Slice& node) {
        constexpr double kInfinity = std::numeric_limits<double>::infinity();
        const int column = static_cast<int>(columns.Below(RandomColumns::kColumns));
        const std::vector<double> valueV = columns.Distinct(column);
        const unsigned numRanks = static_cast<unsigned>(valueV.size());
        const unsigned near = columns.Below(std::min(numRanks, 3u));
        const unsigned rankV[] = {near, numRanks - 1 - near, columns.Below(numRanks)};
        const uint32_t lastRank = rankV[columns.Below(3)];
        double low = -kInfinity, high = kInfinity;
        int countL = 0;
        for (int i = node.begin; i < node.begin + node.count; ++i) {
            const double value = columns.Value(expectedV[static_cast<size_t>(i)], column);
            const bool fLeft = value <= valueV[lastRank];
            countL += fLeft;
            (fLeft ? low : high) = fLeft ? std::max(low, value) : std::min(high, value);
        }
        SplitPoint split;
        split.column = column;
        split.countL = countL;
        split.SetThreshold(low, high);
        if (countL > 0 && countL < node.count && columns.Below(4) != 0) {
            const SplitPoint expected = split;
            split = partition.MarkByRank(rows, node.begin, node.count, column, lastRank);
            EXPECT_EQ(split.countL, countL);
            EXPECT_EQ(split.fNarrow, expected.fNarrow);
            EXPECT_TRUE(split.threshold == expected.threshold || std::isnan(expected.threshold));
        } else {
            partition.MarkByValue(rows, node.begin, node.count, split);
        }
        partition.MoveInReferenceOrder(rows, node.begin, node.count, countL);
        partition.MoveInAscendingOrder(rows, node.begin, node.count, split);
        EXPECT_EQ(split.fSlicesMatchThreshold, Exchange(columns, node, split))
            << "column " << column;
        CheckPart(node.begin, countL);
        CheckPart(node.begin + countL, node.count - countL);
        return countL;
    }

    // Whether in the end the rows at or below the threshold are those of the left part.
    bool Exchange(const RandomColumns& columns, const Slice& node, const SplitPoint& split) {
        const auto value = [&](int row) { return columns.Value(row, split.column); };
        const auto isLow = [&](int row) { return value(row) <= split.threshold; };
        // Not !isLow: a threshold between infinities is NaN.
        const auto isHigh = [&](int row) { return value(row) > split.threshold; };
        const auto begin = expectedV.begin() + node.begin;
        const auto middle = begin + split.countL;
        const auto end = begin + node.count;
        for (auto left = begin, right = middle;; std::iter_swap(left++, right++)) {
            left = std::find_if_not(left, middle, isLow);
            right = std::find_if_not(right, end, isHigh);
            if (left == middle || right == end) break;
        }
        return std::all_of(begin, middle, isLow) && std::none_of(middle, end, isLow);
    }

    // Rows of a part in both orders, and what lies alongside them.
    void CheckPart(int begin, int count) {
        const auto first = expectedV.begin() + begin;
        std::vector<int> rowV(first, first + count);
        EXPECT_TRUE(std::equal(rowV.begin(), rowV.end(), rows.indexV.begin() + begin));
        for (size_t i = static_cast<size_t>(begin); i < static_cast<size_t>(begin + count); ++i) {
            ASSERT_EQ(rows.gradV[i], expectedV[i] + 0.5);
            ASSERT_EQ(rows.weightV.empty() ? expectedV[i] + 1 : rows.weightV[i], expectedV[i] + 1);
        }
        std::sort(rowV.begin(), rowV.end());
        EXPECT_TRUE(std::equal(rowV.begin(), rowV.end(), rows.nextAscendingV.begin() + begin));
    }

    WorkerPool pool;
    TreeRows rows{true};
    std::vector<int> expectedV;
};

TEST_P(RowPartitionTest, ExchangesRowsLikeTwoCursors) {
    for (unsigned seed = 1; seed <= 300 && !HasFailure(); ++seed) {
        SCOPED_TRACE(seed);
        const bool fMany = seed % 30 == 0;  // enough for bytes that stand for several bins
        RandomColumns columns(fMany ? 6000 : 1 + static_cast<int>(seed * seed % 1500), seed);
        const unsigned numRows = static_cast<unsigned>(columns.NumRows());
        const int num = static_cast<int>(seed % 3 == 0 ? numRows : 1 + columns.Below(numRows));
        Tuning tuning;
        const int mosts[] = {3000, 256, 1 + static_cast<int>(columns.Below(40))};
        tuning.mostBins = mosts[columns.Below(3)];
        tuning.rankBits = 1 + static_cast<int>(columns.Below(16));
        tuning.chunkRows = 1 + static_cast<int>(columns.Below(seed % 5 == 0 ? 1200 : 60));
        Grow(columns, num, tuning, GetParam() > 1 || seed % 4 == 0);
    }
}

INSTANTIATE_TEST_SUITE_P(Workers, RowPartitionTest, testing::Values(1, 3));

}  // namespace
}  // namespace sylvora::tests
