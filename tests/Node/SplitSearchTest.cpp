// Rules of the split search that random data rarely reaches; tests/differential/ covers the rest.
#include <tuple>

#include "../Support.h"
#include "Fixture.h"

namespace {

using namespace sylvora::tests;

const int kThreads[] = {kCallingThread, 1, 2, 3, 8};

typedef std::tuple<double, int, double, int> Found;  // score, column, threshold, rows on the left

Found Search(Table& table, bool fClasses, SamplingFeatureType sampler, int numThread) {
    Root root(table, fClasses, 1.0, table.indexV.size() > 1 ? 1 : 0);
    double score = 0;
    if (root.ComputeOutput() != 0 || root.Sample(sampler, -9) != 0) ADD_FAILURE();
    EXPECT_EQ(root.Search(numThread, score), 0);
    EXPECT_EQ(root.selFeaV, nullptr);
    EXPECT_EQ(numThread == kCallingThread ? root.boundElemFea : root.bestCriteria, score);
    return {score, root.splitFea, root.splitElemFea, root.countL};
}

int Descending(int dimF, int*& selF, double*&, int countSel, int, bool&) {
    for (int i = 0; i < countSel; ++i) selF[i] = dimF - 1 - i;
    return 0;
}

// The first row does not belong to the node.
TEST(SplitSearch, EqualScoresGoToTheLowerSlotAndThenToTheLeft) {
    const VecVecDle rows = {{9, 9, 9}, {0, 0, 3}, {1, 1, 3}, {2, 2, 3}, {3, 3, 3}};
    Table gradients(rows, {0, 1, 0, 0, 1}, VecInt(5, 1));
    Table classes(rows, {0, 0, 1, 1, 0}, VecInt(5, 1));
    for (const int numThread : kThreads) {
        EXPECT_EQ(Search(gradients, false, Descending, numThread), Found(1 + 1 / 3.0, 1, 0.5, 1));
        EXPECT_EQ(Search(classes, true, Descending, numThread), Found(1 + 5 / 3.0, 1, 0.5, 1));
    }
}

TEST(SplitSearch, OnlyRegressionAsksForAGapAndForWeightOnBothSides) {
    const struct {
        double high;
        VecInt weightV;
        int regression, classification;  // rows on the left; 0: no split
    } cases[] = {{2e-10, {1, 1, 1}, 1, 1}, {5e-11, {1, 1, 1}, 0, 1}, {5e-324, {1, 1, 1}, 0, 1},
                 {0.0, {1, 1, 1}, 0, 0},   {1.0, {1, 0, 1}, 0, 1},   {1.0, {1, 1, 0}, 0, 1}};
    for (const auto& c : cases) {
        Table table({{0}, {0}, {c.high}}, {0, 0, 1}, c.weightV);
        for (const int numThread : kThreads) {
            const Found found = Search(table, false, nullptr, numThread);
            if (c.regression == 0) {
                EXPECT_EQ(found, Found(-1.0, -1, -1.0, 0)) << c.high;
            }
            EXPECT_EQ(std::get<3>(found), c.regression) << c.high;
            EXPECT_EQ(std::get<3>(Search(table, true, nullptr, numThread)), c.classification);
        }
    }
}

double userValue = 0;

// Samples all columns and gives each the threshold userValue.
int WithValues(int, int*& selF, double*& selFeaValue, int countSel, int, bool& fspecify) {
    fspecify = true;
    std::iota(selF, selF + countSel, 0);
    std::fill(selFeaValue, selFeaValue + countSel, userValue);
    return 0;
}

TEST(SplitSearch, AUserValueReplacesTheThresholdAndTheRowsAreCountedAgain) {
    const std::string notice =
        "Notice: Aritificial split point used, feature id: 0, details:\n      split point of cart: "
        "1.5, split point given by user: 2, current depth: 0\n";
    Table table({9, 0, 1, 2, 3}, {0, -1, -1, 1, 1});
    Table constant({9, 4, 4}, {0, 1, 2});
    for (const int numThread : kThreads) {
        for (const auto& [value, countL] : {std::pair(1.5, 2), {2.0, 3}, {-1.0, 0}, {9.0, 4}}) {
            userValue = value;
            const auto seen =
                Observe([&] { return std::get<3>(Search(table, false, WithValues, numThread)); });
            EXPECT_EQ(seen.status, countL);
            if (value <= 2 && value > 0) {
                EXPECT_EQ(seen.out, value == 2.0 ? notice : "");
            }
        }
        EXPECT_EQ(std::get<1>(Search(constant, false, WithValues, numThread)), -1);
    }
}

}  // namespace
