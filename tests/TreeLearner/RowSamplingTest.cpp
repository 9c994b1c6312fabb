// Which rows a tree is grown on, in which order, and what the debug report says of them.
#include <numeric>
#include <set>

#include "../Support.h"
#include "Prepared.h"
#include "god.h"

namespace {

using namespace sylvora::tests;

typedef int (TreeLearner::*Sampler)(int*&, int&, long*);

VecInt Draw(TreeLearner& learner, Sampler sampler, long& seed) {
    int* selected = nullptr;
    int count = -1;
    EXPECT_EQ((learner.*sampler)(selected, count, &seed), 0);
    const std::unique_ptr<int[]> owner(selected);
    return VecInt(selected, selected + count);
}

// Twelve rows; those of the last two queries have no partner of another label and weigh nothing.
std::unique_ptr<TreeLearner> Ranking(double valSmpRt) {
    CheckCfgCLS cfg = Settings("GBRank", "CrossEntropy");
    cfg.valSmpRt = valSmpRt;
    return Prepare(cfg, {0, 1, 2, 0, 1, 1, 1, 3, 3, 3, 3, 0}, {3, 4, 4, 1});
}

TEST(RowSampling, DrawsRowsWithoutReplacementAndLeavesWeightlessOnesOut) {
    for (const double valSmpRt : {0.0, 0.2, 0.99, 1.0}) {
        long seed = -11, again = -11;
        const VecInt drawnV = Draw(*Ranking(valSmpRt), &TreeLearner::RandomSelectURL, seed);
        VecInt pool(12), expectedV;
        std::iota(pool.begin(), pool.end(), 0);
        for (int i = 0; i < static_cast<int>(12 * valSmpRt); ++i) {
            const size_t k = static_cast<size_t>(static_cast<double>(pool.size()) * ranz(&again));
            if (pool[k] < 7) expectedV.push_back(pool[k]);
            pool[k] = pool.back();
            pool.pop_back();
        }
        EXPECT_EQ(drawnV, expectedV) << valSmpRt;
        EXPECT_EQ(seed, again);
    }
}

TEST(RowSampling, DrawsWholeQueriesInRowOrder) {
    for (const double valSmpRt : {0.2, 0.5, 0.8, 1.0}) {
        for (long start = -1; start > -20; --start) {
            long seed = start, again = start;
            const VecInt drawnV = Draw(*Ranking(valSmpRt), &TreeLearner::RandomSelectQuery, seed);
            std::set<int> queries;
            while (queries.size() < static_cast<size_t>(4 * valSmpRt)) {
                queries.insert(static_cast<int>(4 * ranz(&again)));
            }
            VecInt expectedV;
            for (int row = 0; row < 7; ++row) {
                if (queries.count(row < 3 ? 0 : 1) > 0) expectedV.push_back(row);
            }
            EXPECT_EQ(drawnV, expectedV) << valSmpRt << ", " << start;
            EXPECT_EQ(seed, again);
        }
    }
}

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
    Draw(learner, &TreeLearner::RandomSelectURL, seed);
    learner.of_debug.close();
    EXPECT_EQ(ReadFile(folder.Path("debug.txt")), "1000001 1000001 1 ");
}

}  // namespace
