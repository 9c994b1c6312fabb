// Bits of rows that ranks send each other, and walks of many rows by ranks.
#include "engine/train/RankedWalk.h"

#include <gtest/gtest.h>

#include <numeric>
#include <random>
#include <vector>

#include "engine/train/SplitExchange.h"
#include "tests/ranks/ThreadRanks.h"

namespace sylvora::tests {
namespace {

using namespace sylvora::engine;

TEST(SplitExchange, RowsAsBits) {
    std::mt19937 random(1);
    for (int num = 0; num < 70; ++num) {
        std::vector<uint8_t> markV(static_cast<size_t>(num) + 1, 7);
        for (int i = 0; i < num; ++i) markV[static_cast<size_t>(i)] = random() % 2;
        std::vector<uint8_t> bitV(SplitExchange::NumBytes(num) + 1, 255);
        SplitExchange::Pack(markV.data(), num, bitV.data());
        EXPECT_EQ(bitV.back(), 255);
        for (int i = 0; i < num; ++i) {
            const size_t at = static_cast<size_t>(i);
            ASSERT_EQ(bitV[at / 8] >> (at % 8) & 1, markV[at]) << i << " of " << num;
        }
        EXPECT_EQ(SplitExchange::CountLeft(bitV.data(), num),
                  std::accumulate(markV.begin(), markV.end() - 1, 0));
        std::vector<uint8_t> copyV(markV.size(), 7);
        SplitExchange::Unpack(bitV.data(), num, copyV.data());
        EXPECT_EQ(copyV, markV);
    }
}

// A complete tree of depth 4 but for some leaves above; node k has the column k % columns.
std::vector<WalkSplit> MakeTree(int columns) {
    std::vector<WalkSplit> treeV(31);
    for (int k = 0; k < 15; ++k) {
        if (k == 5 || k == 9) continue;
        treeV[static_cast<size_t>(k)] = {k % columns, 2 * k + 1, 2 * k + 2};
    }
    return treeV;
}

// Node 6 sends all rows left.
bool GoesLeft(int node, int row) {
    const uint32_t word =
        static_cast<uint32_t>(row + 1) * 2654435761u ^ static_cast<uint32_t>(node) * 40503u;
    return node == 6 || (word * 2246822519u >> 8) % 5 < 3;
}

// The rows of more than one chunk, in an order that is not ascending.
TEST(RankedWalk, RowsReachTheirLeaves) {
    const std::vector<WalkSplit> treeV = MakeTree(4);
    const std::vector<int> ownerV = {0, 2, 1, 0};
    LargeArray<int> rowV(70001);
    for (size_t i = 0; i < rowV.size(); ++i) {
        rowV[i] = static_cast<int>(i * 20011 % rowV.size());
    }
    std::vector<std::vector<int>> expectedVV(treeV.size());
    for (const int row : rowV) {
        size_t at = 0;
        while (treeV[at].column >= 0) {
            const bool fLeft = GoesLeft(static_cast<int>(at), row);
            at = static_cast<size_t>(fLeft ? treeV[at].lson : treeV[at].rson);
        }
        expectedVV[at].push_back(row);
    }
    for (const int numThread : {1, 3}) {
        const std::vector<int> statusV = RunRanks(3, [&](Communicator& communicator) {
            Ranks ranks(communicator, ownerV);
            WorkerPool pool;
            if (pool.Start(numThread) != 0) return 1;
            std::vector<std::vector<int>> foundVV(treeV.size());
            std::atomic<bool> fOwn{true};
            WalkSteps steps;
            steps.markLeft = [&](int node, const int* rows, int count, uint8_t* fLeftV) {
                if (!ranks.Owns(treeV[static_cast<size_t>(node)].column)) fOwn = false;
                for (int i = 0; i < count; ++i) fLeftV[i] = GoesLeft(node, rows[i]);
            };
            steps.atLeaf = [&](int leaf, const int* begin, const int* end) {
                foundVV[static_cast<size_t>(leaf)].assign(begin, end);
            };
            WalkByRanks(treeV, rowV, ranks, pool, steps);
            return foundVV == expectedVV && fOwn ? 0 : 1;
        });
        EXPECT_EQ(statusV, std::vector<int>(3, 0)) << numThread;
    }
}

}  // namespace
}  // namespace sylvora::tests
