// The number of bins for a node adapts to the work of searches.
#include "engine/train/histogram/BinChoice.h"

#include <gtest/gtest.h>

#include <cmath>

namespace sylvora::engine {
namespace {

constexpr int kMost = 1000;

// The least of kMost / 2^shift bins that are at least `wanted`; all if none are.
int ExpectedShift(double wanted) {
    int shift = 0;
    while ((kMost >> (shift + 1)) >= wanted) ++shift;
    return shift;
}

TEST(BinChoice, GrowsWithTheRootOfTheRows) {
    const BinChoice choice(kMost);
    for (const int count : {1, 2, 3, 127, 128, 1000, 4095, 4096, 27777, 27778, 2147483647}) {
        EXPECT_EQ(choice.ShiftFor(count), ExpectedShift(3.0 * std::sqrt(count))) << count;
    }
}

// In nodes of 2^10 rows and more, `numRows` rows are looked at, with so many bins as are chosen.
struct Search {
    BinChoice& choice;
    double numRows;

    int ShiftAfter(int numTrees) {
        for (int tree = 0; tree < numTrees; ++tree) {
            const double rowsOfBins = numRows * (1 << choice.ShiftFor(1024)) / 16;
            choice.Note(1024, {kMost >> choice.ShiftFor(1024), static_cast<int64_t>(rowsOfBins)});
            choice.Adapt();
        }
        return choice.ShiftFor(1024);
    }
};

TEST(BinChoice, AdaptsToTheRowsLookedAt) {
    BinChoice choice(kMost);
    const int plain = choice.ShiftFor(1024);
    ASSERT_GE(plain, 3);
    // Many rows: twice as many bins per tree, up to four times.
    EXPECT_EQ(Search({choice, 1e6}).ShiftAfter(1), plain - 1);
    EXPECT_EQ(Search({choice, 1e6}).ShiftAfter(1), plain - 2);
    EXPECT_EQ(Search({choice, 1e6}).ShiftAfter(5), plain - 2);
    EXPECT_EQ(choice.ShiftFor(2047), ExpectedShift(12.0 * std::sqrt(2047.0)));
    // Other sizes are not affected, nor is anything by trees without such nodes.
    EXPECT_EQ(choice.ShiftFor(1023), ExpectedShift(3.0 * std::sqrt(1023.0)));
    EXPECT_EQ(choice.ShiftFor(2048), ExpectedShift(3.0 * std::sqrt(2048.0)));
    choice.Adapt();
    EXPECT_EQ(choice.ShiftFor(1024), plain - 2);
    // Few rows: back, and not further.
    EXPECT_EQ(Search({choice, 1}).ShiftAfter(1), plain - 1);
    EXPECT_EQ(Search({choice, 1}).ShiftAfter(5), plain);
}

TEST(BinChoice, SettlesForAnyWork) {
    for (double numRows = 1; numRows < 1e5; numRows *= 1.1) {
        BinChoice choice(kMost);
        const int settled = Search({choice, numRows}).ShiftAfter(3);
        EXPECT_EQ(Search({choice, numRows}).ShiftAfter(1), settled) << numRows;
        EXPECT_EQ(Search({choice, numRows}).ShiftAfter(1), settled) << numRows;
    }
}

}  // namespace
}  // namespace sylvora::engine
