// Groups of narrow columns.
#include "engine/train/histogram/ColumnGroups.h"

#include <gtest/gtest.h>

#include <map>
#include <random>
#include <vector>

namespace sylvora::tests {
namespace {

using namespace sylvora::engine;

typedef std::vector<LargeArray<uint8_t>> Bins;  // by column and row

// Flags of one category, mirrored flags, constants, independent columns with few and with many
// bins, and bins that occur only in the last row, which no trial may see.
Bins MakeBins(int numRows, unsigned seed) {
    std::mt19937 engine(seed);
    const auto below = [&engine](unsigned bound) { return static_cast<uint8_t>(engine() % bound); };
    Bins bins(30, LargeArray<uint8_t>(static_cast<size_t>(numRows)));
    for (size_t row = 0; row < static_cast<size_t>(numRows); ++row) {
        const unsigned category = below(12);
        for (unsigned flag = 0; flag < 12; ++flag) bins[flag][row] = category == flag;
        bins[12][row] = static_cast<uint8_t>(1 - bins[3][row]);
        for (size_t c = 14; c < 20; ++c) bins[c][row] = below(2);
        for (size_t c = 20; c < 26; ++c) bins[c][row] = below(c % 2 == 0 ? 5 : 55);
        for (size_t c = 26; c < 30; ++c) bins[c][row] = below(256);
    }
    for (auto& column : bins) column.back() = static_cast<uint8_t>(column.back() ^ 1);
    return bins;
}

std::vector<ColumnGroup> GroupsOf(const Bins& bins, WorkerPool& pool) {
    std::vector<NarrowColumn> narrowV;
    for (size_t c = 0; c < bins.size(); ++c) {
        narrowV.push_back({static_cast<int>(c), kGroupCodes, bins[c]});
    }
    return GroupColumns(std::move(narrowV), pool);
}

// Every row's bins can be read from the codes, and the frequent and rare bins of a code are its
// bins.
TEST(ColumnGroups, KeepTheBinsOfAllRows) {
    WorkerPool alone, three;
    ASSERT_EQ(three.Start(3), 0);
    for (const int numRows : {1, 2, 300, 5000, 200000}) {
        const Bins bins = MakeBins(numRows, static_cast<unsigned>(numRows));
        const std::vector<ColumnGroup> groupV = GroupsOf(bins, alone);
        const std::vector<ColumnGroup> sameV = GroupsOf(bins, three);
        ASSERT_EQ(groupV.size(), sameV.size());
        std::map<int, int> timesByColumn;
        for (size_t g = 0; g < groupV.size(); ++g) {
            const ColumnGroup& group = groupV[g];
            EXPECT_TRUE(group.codeV == sameV[g].codeV && group.columnV == sameV[g].columnV);
            ASSERT_LE(group.numCodes, kGroupCodes);
            for (size_t m = 0; m < group.columnV.size(); ++m) {
                ++timesByColumn[group.columnV[m]];
                const auto& column = bins[static_cast<size_t>(group.columnV[m])];
                for (size_t row = 0; row < column.size(); ++row) {
                    ASSERT_LT(group.codeV[row], group.numCodes);
                    ASSERT_EQ(group.BinsOfCodes(m)[group.codeV[row]], column[row]);
                }
            }
            for (size_t code = 0; code < static_cast<size_t>(group.numCodes); ++code) {
                std::vector<int> binV = group.frequentBinV;
                for (size_t r = group.firstRareV[code]; r < group.firstRareV[code + 1]; ++r) {
                    binV[group.rareBinV[r].member] = group.rareBinV[r].bin;
                }
                for (size_t m = 0; m < binV.size(); ++m) {
                    EXPECT_EQ(binV[m], group.BinsOfCodes(m)[code]);
                }
            }
        }
        EXPECT_EQ(timesByColumn.size(), bins.size());
        for (const auto& [column, times] : timesByColumn) EXPECT_EQ(times, 1) << column;
        // Twelve flags with their mirror image and a constant have few combinations.
        if (numRows >= 300) EXPECT_LT(groupV.size(), 16u);
    }
}

}  // namespace
}  // namespace sylvora::tests
