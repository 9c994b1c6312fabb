// The rows that a tree is grown on: what cannot be drawn, and what the debug report says of them.
#include <algorithm>
#include <cstdlib>
#include <numeric>

#include "../Support.h"
#include "Prepared.h"

namespace {

using namespace sylvora::tests;

TEST(RowSampling, AsksForMoreThanOneQuery) {
    for (const char* modelType : {"GBRank", "GBDT"}) {  // the latter keeps no query ids
        const auto learner = Prepare(Settings(modelType, "Square"), {0, 1}, {2});
        int* selected = nullptr;
        int count = 0;
        long seed = -1;
        const auto seen =
            Observe([&] { return learner->RandomSelectQuery(selected, count, &seed); });
        EXPECT_EQ(seen.status, -1);
        EXPECT_EQ(seen.err, "ERROR: qid not found in training data!\n");
        EXPECT_EQ(selected, nullptr);
    }
}

// Counts are whole numbers in the report, however many digits they take.
TEST(RowSampling, ReportsAMillionQueriesInFull) {
    const TempFolder folder;
    CheckCfgCLS cfg = Settings("GBRank", "CrossEntropy");
    TreeLearner learner(cfg);
    learner.sampleSize = 1000001;
    const size_t numRows = static_cast<size_t>(learner.sampleSize);
    learner.queryIdV = static_cast<int*>(std::malloc(numRows * sizeof(int)));
    learner.numPairDistinctQueV = static_cast<int*>(std::malloc(numRows * sizeof(int)));
    std::iota(learner.queryIdV, learner.queryIdV + numRows, 0);
    std::fill_n(learner.numPairDistinctQueV, numRows, 1);
    learner.fDebug = true;
    learner.of_debug.open(folder.Path("debug.txt"));
    long seed = -1;
    int* selected = nullptr;
    int count = 0;
    EXPECT_EQ(learner.RandomSelectURL(selected, count, &seed), 0);
    delete[] selected;
    learner.of_debug.close();
    EXPECT_EQ(ReadFile(folder.Path("debug.txt")), "1000001 1000001 1 ");
}

}  // namespace
