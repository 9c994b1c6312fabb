// The lists that a tree grows on, kept and made afresh, against a sort of each node's rows.
#include "engine/train/lists/SortedColumns.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numeric>
#include <tuple>
#include <vector>

#include "../RandomColumns.h"
#include "engine/train/Separable.h"

namespace sylvora::tests {
namespace {

using namespace sylvora::engine;

constexpr int kColumns = RandomColumns::kColumns;

// With the number of workers, and whether lists are kept.
class SortedColumnsTest : public testing::TestWithParam<std::tuple<int, bool>> {
  protected:
    void SetUp() override { ASSERT_EQ(pool.Start(std::get<0>(GetParam())), 0); }
    bool AreKept() const { return std::get<1>(GetParam()); }

    // A node's list: its rows by value; equal ones by row where lists are kept, else by position.
    void Check(const RandomColumns& columns, const SortedColumns& lists, int begin, int count) {
        const NodeRows node = {rowV, begin, count};
        ListBuffers buffers;
        std::vector<Entry> made(static_cast<size_t>(count));
        std::vector<int> expectedV(static_cast<size_t>(count));  // positions
        for (int column = 0; column < kColumns && !HasFailure(); ++column) {
            const auto value = [&](int at) { return columns.Value(RowAt(at), column); };
            std::iota(expectedV.begin(), expectedV.end(), begin);
            std::sort(expectedV.begin(), expectedV.end(), [&](int a, int b) {
                if (value(a) != value(b)) return value(a) < value(b);
                return AreKept() ? RowAt(a) < RowAt(b) : a < b;
            });
            if (lists.IsConstant(column)) {
                const double first = columns.Value(0, column);
                for (const int at : expectedV) EXPECT_EQ(value(at), first) << column;
                continue;
            }
            const Entry* list = lists.List(column, node, buffers, made.data());
            for (size_t i = 0; i < expectedV.size() && !HasFailure(); ++i) {
                EXPECT_EQ(PositionOf(list[i]), expectedV[i]) << column << ' ' << i;
                if (i == 0) continue;
                EXPECT_EQ(Rises(list[i]), value(expectedV[i - 1]) < value(expectedV[i]))
                    << column << ' ' << i;
            }
        }
    }

    // Parts a node's rows at a random place, perhaps with nothing on one side; within its part a
    // row goes anywhere. Returns the rows of the left part.
    int Part(RandomColumns& columns, SortedColumns& lists, int begin, int count) {
        const int countL = static_cast<int>(columns.Below(static_cast<unsigned>(count) + 1));
        const std::vector<int> placeV = columns.Shuffled(count);  // new ones in the node
        std::vector<uint32_t> toV(rowV.size());                   // by position
        const std::vector<int> oldV = rowV;
        for (int i = 0; i < count; ++i) {
            const int to = begin + placeV[static_cast<size_t>(i)];
            toV[static_cast<size_t>(begin + i)] = static_cast<uint32_t>(to);
            rowV[static_cast<size_t>(to)] = oldV[static_cast<size_t>(begin + i)];
        }
        pool.For(kColumns, [&](int column, int) {
            std::vector<Entry> other(static_cast<size_t>(count) + 1);
            const uint32_t* const nodeToV = toV.data() + begin;
            lists.Partition(column, {rowV, begin, count}, nodeToV, begin + countL, other.data());
        });
        return countL;
    }

    void Grow(RandomColumns& columns, SortedColumns& lists, int num) {
        rowV = columns.Shuffled(columns.NumRows());
        rowV.resize(static_cast<size_t>(num));
        lists.Take(rowV.data(), num, pool);
        Check(columns, lists, 0, num);
        std::vector<int> cutV = {0, num};  // where nodes begin, then the end
        for (int depth = 0; depth < 4 && !HasFailure(); ++depth) {
            std::vector<int> nextV;
            for (size_t i = 0; i + 1 < cutV.size(); ++i) {
                const int countL = Part(columns, lists, cutV[i], cutV[i + 1] - cutV[i]);
                nextV.insert(nextV.end(), {cutV[i], cutV[i] + countL});
            }
            nextV.push_back(num);
            cutV = nextV;
            for (size_t i = 0; i + 1 < cutV.size(); ++i) {
                Check(columns, lists, cutV[i], cutV[i + 1] - cutV[i]);
            }
        }
    }

    std::unique_ptr<SortedColumns> MakeLists(const Matrix& matrix) {
        const auto form = AreKept() ? ColumnOrders::Form::kLists : ColumnOrders::Form::kRanks;
        return SortedColumns::Make(std::make_shared<ColumnOrders>(matrix, form, pool));
    }

    int RowAt(int position) const { return rowV[static_cast<size_t>(position)]; }

    WorkerPool pool;
    std::vector<int> rowV;
};

TEST_P(SortedColumnsTest, ListsAreSortedAndStaySo) {
    for (unsigned seed = 1; seed <= 60 && !HasFailure(); ++seed) {
        SCOPED_TRACE(seed);
        const int numRows = 1 + static_cast<int>(seed * seed % 400);
        RandomColumns columns(numRows, seed);
        const auto lists = MakeLists({columns.Rows(), numRows, kColumns});
        EXPECT_FALSE(lists->HasNan());
        // Several trees. The first needs buffers behind entries that fill whole cache lines.
        for (const int num : {std::min(numRows, 48), numRows, 1, (numRows + 1) / 2}) {
            Grow(columns, *lists, num);
        }
    }
}

TEST_P(SortedColumnsTest, TellCleanColumnsAndNan) {
    for (unsigned seed = 1; seed <= 300; ++seed) {
        RandomColumns columns(1 + static_cast<int>(seed % 20), seed);
        const Matrix matrix = {columns.Rows(), columns.NumRows(), kColumns};
        const auto lists = MakeLists(matrix);
        for (int column = 0; column < kColumns; ++column) {
            const std::vector<double> valueV = columns.Distinct(column);
            bool fClean = true;
            for (size_t i = 1; i < valueV.size(); ++i) {
                fClean = fClean && IsSeparable(valueV[i - 1], valueV[i]);
            }
            EXPECT_EQ(lists->AllSeparable(column), fClean) << seed << ' ' << column;
        }
        columns.Set(columns.NumRows() / 2, static_cast<int>(seed % kColumns), std::nan(""));
        EXPECT_TRUE(MakeLists(matrix)->HasNan()) << seed;
    }
}

INSTANTIATE_TEST_SUITE_P(Workers, SortedColumnsTest,
                         testing::Combine(testing::Values(1, 3), testing::Bool()));

}  // namespace
}  // namespace sylvora::tests
