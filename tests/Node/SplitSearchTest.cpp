// The searches against a plain one that follows the formulas, and rules that random data hits too
// rarely.
#include <cmath>
#include <limits>
#include <set>
#include <tuple>

#include "../Support.h"
#include "Bench.h"

namespace {

using namespace sylvora::tests;

const int kThreads[] = {kOne, 1, 2, 3, 8};

typedef std::tuple<double, int, double, int> Found;  // score, column, threshold, rows on the left

Found Search(Table& table, bool fClasses, SamplingFeatureType sampler, int numThread,
             double ratio = 1.0) {
    Root root(table, fClasses, ratio, table.indexV.size() > 1 ? 1 : 0);
    double score = 0;
    if (root.ComputeOutput() != 0 || root.Sample(sampler, -9) != 0) ADD_FAILURE();
    EXPECT_EQ(root.Search(numThread, score), 0);
    EXPECT_EQ(root.selFeaV, nullptr);
    EXPECT_EQ(numThread == kOne ? root.boundElemFea : root.bestCriteria, score);
    return {score, root.splitFea, root.splitElemFea, root.countL};
}

// Every cut of every sampled column in turn, each added up from nothing.
Found SearchPlainly(const Root& root) {
    Found best = {-1.0, -1, -1.0, 0};
    double bestBalance = 0;
    const VecInt rowV(root.table.indexV.begin() + root.startDoc, root.table.indexV.end());
    const auto value = [&](int row, int column) {
        return root.table.rowV[static_cast<size_t>(row)][column];
    };
    for (const int column : root.drawnV) {
        std::set<double> values;
        for (const int row : rowV) values.insert(value(row, column));
        for (auto high = std::next(values.begin()); high != values.end(); ++high) {
            const double low = *std::prev(high);
            double gradients[2] = {}, classes[2][kNumClass] = {};
            int numRows[2] = {}, weights[2] = {};
            for (const int row : rowV) {
                const int side = value(row, column) > low;
                const size_t i = static_cast<size_t>(row);
                ++numRows[side];
                gradients[side] += root.table.gradV[i];
                weights[side] += root.table.weightV[i];
                if (root.fRegCls) ++classes[side][static_cast<int>(root.table.gradV[i])];
            }
            if (!root.fRegCls && (weights[0] == 0 || weights[1] == 0)) continue;
            double score = 0;
            for (const int side : {0, 1}) {
                double squares = 0;
                for (const double count : classes[side]) squares += count * count;
                score += root.fRegCls ? squares / numRows[side]
                                      : gradients[side] * gradients[side] / weights[side];
            }
            const double balance =
                root.fRegCls ? std::fabs(1.0 * numRows[0] / root.countDoc - 0.5) : 0.0;
            if (score < std::get<0>(best)) continue;
            if (score == std::get<0>(best) && balance >= bestBalance) continue;
            best = {score, column, (low + *high) / 2, numRows[0]};
            bestBalance = balance;
        }
    }
    return best;
}

TEST(SplitSearch, FindsWhatAPlainSearchFinds) {
    std::mt19937 random(20);
    int numCuts = 0;
    for (int run = 0; run < 400; ++run) {
        const bool fClasses = run % 2 == 1;
        Table table(random, 2 + run % 37, 1 + run % 11, fClasses);
        Root root(table, fClasses, 0.7, 1);
        ASSERT_EQ(root.ComputeOutput(), 0);
        if (root.status == "TERMINAL") continue;  // one class only
        ASSERT_EQ(root.Sample(nullptr, -9), 0);
        const Found expected = SearchPlainly(root);
        numCuts += std::get<1>(expected) != -1;
        for (const int numThread : kThreads) {
            EXPECT_EQ(Search(table, fClasses, nullptr, numThread, 0.7), expected)
                << "run " << run << ", threads " << numThread;
        }
    }
    EXPECT_GT(numCuts, 250);
}

int Descending(int dimF, int*& selF, double*&, int countSel, int, bool&) {
    for (int i = 0; i < countSel; ++i) selF[i] = dimF - 1 - i;
    return 0;
}

// The first row is not part of the node.
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
        int regression, classification;  // rows on the left; 0: no cut
    } cases[] = {{2e-10, {1, 1, 1}, 1, 1}, {5e-11, {1, 1, 1}, 0, 1}, {5e-324, {1, 1, 1}, 0, 1},
                 {0.0, {1, 1, 1}, 0, 0},   {1.0, {1, 0, 1}, 0, 1},   {1.0, {1, 1, 0}, 0, 1}};
    for (const auto& c : cases) {
        Table table({{0}, {0}, {c.high}}, {0, 0, 1}, c.weightV);
        for (const int numThread : kThreads) {
            const Found cut = Search(table, false, nullptr, numThread);
            if (c.regression == 0) {
                EXPECT_EQ(cut, Found(-1.0, -1, -1.0, 0)) << c.high;
            }
            EXPECT_EQ(std::get<3>(cut), c.regression) << c.high;
            EXPECT_EQ(std::get<3>(Search(table, true, nullptr, numThread)), c.classification);
        }
    }
}

double userValue = 0;

// All columns, each with the same split value.
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
