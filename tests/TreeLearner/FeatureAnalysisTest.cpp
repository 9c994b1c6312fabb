// Feature analysis: the report on a model small enough to follow by hand.
#include <gtest/gtest.h>

#include <string>

#include "ModelText.h"

namespace {

using namespace sylvora::tests;

// A tree of 0.5 (column 3 at 2: 0, or column 1 at 0.5: 1 or 3), then one of 4 (column 3 at 1: 2 on
// both sides) and one of 0.
const std::string kModel = ModelHead(2, 0, 4) +
                           "idxTreeArray: 0 size: 1 shrink: 0.5\n0 5\n"
                           "0 INTERMEDIATE 3 2 1 2 0.5\n1 TERMINAL -1 -1 -1 -1 0\n"
                           "2 INTERMEDIATE 1 0.5 3 4 2\n3 TERMINAL -1 -1 -1 -1 1\n"
                           "4 TERMINAL -1 -1 -1 -1 3\n"
                           "idxTreeArray: 1 size: 2 shrink: 1\n0 3\n"
                           "0 INTERMEDIATE 3 1 1 2 4\n1 TERMINAL -1 -1 -1 -1 2\n"
                           "2 TERMINAL -1 -1 -1 -1 2\n0 1\n0 TERMINAL -1 -1 -1 -1 0\n";

// Row 1: label 3; value 2 of column 3 equals the threshold and goes right, as does 0.5 of column 1.
//   tree 1: column 3 earns (|0.5-3| - |2-3|) * 0.5 = 0.75, column 1 (|2-3| - |3-3|) * 0.5 = 0.5;
//   prediction 1.5, 1.5 remain. Group 2: column 3 earns |4-1.5| - |2-1.5| = 2; prediction
//   1.5 + (2 + 0) / 2 = 2.5, difference 0.5.
// Row 2: label 7, mapped to 0. Tree 1: column 3 earns (0.5 - 0) * 0.5 = 0.25. Group 2, value 0:
//   column 3 earns 4 - 2 = 2; prediction (2 + 0) / 2 = 1, difference -1.
TEST(FeatureAnalysis, Report) {
    const TempFolder folder;
    TreeLearner learner;
    ASSERT_EQ(LoadText(learner, kModel).status, 0);
    ASSERT_EQ(learner.DataInput({3, 7}, {{0, 0.5, 0, 2}, {0, 0, 0, 0}}, 1, {}, {}), 0);
    learner.tranMap = {{7, 0}};
    EXPECT_EQ(learner.FeatureAnalysis(folder.Path("report")), 0);
    EXPECT_EQ(ReadFile(folder.Path("report")),
              "Average Accumulated Absolute Difference: 0.75\n"
              "Average Square Root Difference: 0.790569\n"  // sqrt((0.25 + 1) / 2)
              "3\t2.5\t2\n"
              "1\t0.25\t0.5\n"
              "0\t0\t0\n"
              "2\t0\t0\n");
    // With label 0 for both rows the right turns lose: column 1 earns -0.5, column 3 -0.75 + 2
    // and 0.25 + 2.
    learner.tranMap = {{7, 0}, {3, 0}};
    EXPECT_EQ(learner.FeatureAnalysis(folder.Path("report")), 0);
    const std::string report = ReadFile(folder.Path("report"));
    EXPECT_EQ(report.substr(report.find("\n3\t")),
              "\n3\t1.75\t2\n0\t0\t0\n2\t0\t0\n1\t-0.25\t0.5\n");
}

TEST(FeatureAnalysis, NeedsAPlaceForTheReport) {
    TreeLearner learner;
    ASSERT_EQ(LoadText(learner, kModel).status, 0);
    ASSERT_EQ(learner.DataInput({3}, {{0, 0, 0, 0}}, 1, {}, {}), 0);
    const Outcome outcome = Observe([&] { return learner.FeatureAnalysis("/none/report"); });
    EXPECT_EQ(outcome.status, -1);
    EXPECT_EQ(outcome.err, "ERROR: Can not open feature analysis output file!\n");
}

}  // namespace
