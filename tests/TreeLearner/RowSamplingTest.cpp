// The rows that a tree is grown on: what cannot be drawn, and what the debug report says of them.
#include <algorithm>
#include <cstdlib>
#include <numeric>
#include <utility>

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
        EXPECT_EQ(Refused([&] { return learner->RandomSelectQuery(selected, count, &seed); }),
                  "ERROR: qid not found in training data!\n");
        EXPECT_EQ(selected, nullptr);
    }
}

// Whatever the type of the model. Weights do not move the draw itself.
TEST(RowSampling, LeavesOutRowsWithoutAWeight) {
    for (const char* modelType : {"GBRank", "GBDT", "CART"}) {
        const auto learner = Prepare(Settings(modelType, "Square"), {0, 1, 2, 3, 4, 5}, {2, 2, 2});
        VecInt queryV = {0, 0, 1, 1, 2, 2};
        int* const ownQueryV = std::exchange(learner->queryIdV, queryV.data());
        const auto drawn = [&](int (TreeLearner::*select)(int*&, int&, long*)) {
            int* selected = nullptr;
            int count = 0;
            long seed = -1;
            EXPECT_EQ((learner.get()->*select)(selected, count, &seed), 0);
            const VecInt rowV(selected, selected + count);
            delete[] selected;
            return rowV;
        };
        VecInt expected = drawn(&TreeLearner::RandomSelectURL);
        EXPECT_EQ(expected.size(), 6U);
        learner->numPairDistinctQueV[1] = 0;
        learner->numPairDistinctQueV[4] = -2;
        learner->numPairDistinctQueV[5] = 9;
        const auto isOut = [](int row) { return row == 1 || row == 4; };
        expected.erase(std::remove_if(expected.begin(), expected.end(), isOut), expected.end());
        EXPECT_EQ(drawn(&TreeLearner::RandomSelectURL), expected) << modelType;
        EXPECT_EQ(drawn(&TreeLearner::RandomSelectQuery), (VecInt{0, 2, 3, 5})) << modelType;
        learner->queryIdV = ownQueryV;
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
