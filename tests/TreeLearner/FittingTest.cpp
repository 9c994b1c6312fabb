// Data sets, models and rows that do not fit each other.
#include <limits>
#include <string>
#include <vector>

#include "../Support.h"
#include "ModelText.h"
#include "Prepared.h"

namespace {

using namespace sylvora::tests;

enum { kTraining = 0, kTest = 1, kDevelopment = 2 };

struct Given {
    int type, numColumns;
};

// Four rows; with one column or more, column 0 numbers them.
int Give(TreeLearner& learner, const Given& given) {
    VecVecDle rows(4, VecDle(static_cast<size_t>(given.numColumns), 0.5));
    for (size_t i = 0; i < rows.size(); ++i) rows[i][0] = static_cast<double>(i);
    return learner.DataInput({0, 1, 2, 3}, std::move(rows), given.type, {}, {});
}

std::unique_ptr<TreeLearner> Fresh(const std::vector<Given>& givenV,
                                   const std::string& fileModel = "/dev/null") {
    CheckCfgCLS cfg = Settings("GBDT", "Square");
    cfg.fileModel = fileModel;
    auto learner = std::make_unique<TreeLearner>(cfg);
    for (const Given& given : givenV) EXPECT_EQ(Give(*learner, given), 0);
    return learner;
}

std::string TrainingHas(int numColumns, const std::string& other) {
    return "ERROR: The training data have " + std::to_string(numColumns) + " columns, " + other +
           ": all sets must have the same columns!\n";
}

// The set that is given last determines the number of columns, so the others must have as many. The
// test set is only checked when it is used.
TEST(Fitting, TrainingNeedsRowsAsWideAsTheLastSet) {
    const struct {
        std::vector<Given> givenV;
        std::string err;
    } cases[] = {
        {{{kTraining, 3}, {kTest, 3}}, ""},
        {{{kTest, 3}, {kDevelopment, 3}, {kTraining, 3}}, ""},
        {{{kTest, 5}, {kTraining, 3}}, ""},
        {{{kTraining, 3}, {kTest, 5}, {kTraining, 5}}, ""},
        {{{kTraining, 3}, {kTest, 5}}, TrainingHas(3, "the test data have 5")},
        {{{kTraining, 5}, {kTest, 3}}, TrainingHas(5, "the test data have 3")},
        {{{kTraining, 3}, {kDevelopment, 4}}, TrainingHas(3, "the development data have 4")},
        {{{kTraining, 3}, {7, 4}}, TrainingHas(3, "dimFea is 4")},
    };
    for (const auto& c : cases) {
        const auto learner = Fresh(c.givenV);
        const auto seen = Observe([&] { return learner->ParamInit(); });
        EXPECT_EQ(seen.status, c.err.empty() ? 0 : -1);
        EXPECT_EQ(seen.err, c.err);
        if (c.err.empty()) EXPECT_EQ(learner->Boosting(), 0);
    }
}

// After ParamInit, every step that reads training rows.
TEST(Fitting, ASetThatComesLaterIsNoticed) {
    const std::string err = TrainingHas(3, "the test data have 5");
    for (const auto step : {&TreeLearner::Boosting, &TreeLearner::GenerateTree}) {
        const auto learner = Fresh({{kTraining, 3}});
        ASSERT_EQ(learner->ParamInit(), 0);
        ASSERT_EQ(Give(*learner, {kTest, 5}), 0);
        EXPECT_EQ(Refused([&] { return (learner.get()->*step)(); }), err);
    }
}

// The tree of an earlier run, rows of a later one.
TEST(Fitting, ATreeStepsOnlyAlongRowsThatAreWideEnough) {
    const auto learner = Fresh({{kTraining, 5}});
    ASSERT_EQ(learner->ParamInit(), 0);
    ASSERT_EQ(learner->Boosting(), 0);
    EXPECT_EQ(learner->UpdatePrediction(0, 3), 0);
    ASSERT_EQ(Give(*learner, {kTraining, 3}), 0);
    EXPECT_EQ(Observe([&] { return learner->UpdatePrediction(0, 3); }).err,
              "ERROR: UpdatePrediction needs ParamInit first!\n");
    EXPECT_EQ(Observe([&] { return learner->GenerateTree(); }).err,
              "ERROR: Growing a tree needs ParamInit first!\n");
    ASSERT_EQ(learner->ParamInit(), 0);
    EXPECT_EQ(Observe([&] { return learner->UpdatePrediction(0, 3); }).err,
              "ERROR: The tree was grown on 5 columns, the training data have 3!\n");
}

// An older file stays.
TEST(Fitting, AModelIsNotSavedWithOtherColumns) {
    const struct {
        Given given;
        const char* err;
    } cases[] = {
        {{kTest, 3}, ""},
        {{kTraining, 3}, ""},
        {{kTest, 500}, "ERROR: The model has 3 columns, the test data have 500"},
        {{kDevelopment, 2}, "ERROR: The model has 3 columns, the development data have 2"},
        {{kTraining, 500}, "ERROR: The model has 3 columns, the training data have 500"},
    };
    const std::string tree =
        "idxTreeArray: 0 size: 1 shrink: 1\n0 3 0 INTERMEDIATE 2 0.5 1 2 0\n"
        "1 TERMINAL -1 -1 -1 -1 0\n2 TERMINAL -1 -1 -1 -1 1\n";
    for (const bool fTree : {true, false}) {
        for (const auto& c : cases) {
            const TempFolder folder;
            const std::string path = folder.Write("model.txt", "older");
            TreeLearner learner;
            ASSERT_EQ(LoadText(learner, ModelHead(fTree, 0, 3) + (fTree ? tree : "")).status, 0);
            ASSERT_EQ(Give(learner, c.given), 0);
            const auto seen = Observe([&] { return learner.SaveModelFull(path); });
            // Without trees, the means of the columns may be those of the training set.
            const bool fFits = *c.err == '\0' || (!fTree && c.given.type == kTraining);
            EXPECT_EQ(seen.status, fFits ? 0 : -1);
            if (fTree) EXPECT_EQ(seen.err.substr(0, std::string(c.err).size()), c.err);
            EXPECT_EQ(seen.err.empty(), fFits);
            EXPECT_EQ(ReadFile(path) == "older", !fFits);
        }
    }
}

// Also for trees that a stopped run left, and for a tree that was grown by hand.
TEST(Fitting, TestRowsMustBeAsWideAsTheModel) {
    const TempFolder folder;
    for (const bool fByHand : {false, true}) {
        const auto learner = Fresh({{kTraining, 5}});
        ASSERT_EQ(learner->ParamInit(), 0);
        if (fByHand) {
            std::copy_n(learner->labelV, 4, learner->gradientV);
            ASSERT_EQ(learner->GenerateTree(), 0);
            learner->TreeVV.push_back(learner->TreeGroup);
            learner->StepLengthV.push_back(1.0F);
        } else {
            learner->setProgress([](void*, int, int) { return 1; }, nullptr);
            EXPECT_EQ(Observe([&] { return learner->Boosting(); }).status, -1);
        }
        VecDle row(5, 0.5);
        double score = 0.0;
        for (const int numColumns : {3, 5, 8}) {
            const int status = numColumns < 5 ? -1 : 0;
            ASSERT_EQ(Give(*learner, {kTest, numColumns}), 0);
            const auto seen =
                Observe([&] { return learner->FeatureAnalysis(folder.Path("report.txt")); });
            EXPECT_EQ(seen.status, status) << numColumns;
            EXPECT_EQ(seen.err, status == 0 ? ""
                                            : "ERROR: Input data dimension does not match the "
                                              "model!\n");
            row.resize(static_cast<size_t>(numColumns));
            EXPECT_EQ(Observe([&] {
                          return learner->OnlineTesting(row.data(), score, numColumns, nullptr);
                      }).status,
                      status);
        }
    }
}

// Their numbers may be anything, as long as a query does not come back.
TEST(Fitting, RowsOfAQueryMustBeTogether) {
    const struct {
        VecInt queries;
        const char* err;
    } cases[] = {
        {{0, 0, 1, 2}, ""},
        {{5, 5, -1, 2}, ""},
        {{7, 7, 7, 7}, ""},
        {{0, 0, 1, 0},
         "ERROR: Row 3 is of query 0, the row before it of query 1, other rows of query 0 stand "
         "above: the rows of a query must be together!\n"},
        {{-4, 9, -4, 9},
         "ERROR: Row 2 is of query -4, the row before it of query 9, other rows of query -4 stand "
         "above: the rows of a query must be together!\n"},
    };
    for (const auto& c : cases) {
        for (const char* modelType : {"GBRank", "GBDT"}) {  // which has no queries
            CheckCfgCLS cfg = Settings(modelType, "CrossEntropy");
            TreeLearner learner(cfg);
            ASSERT_EQ(learner.DataInput({0, 1, 2, 3}, VecVecDle(4, {1}), 0, c.queries, {}), 0);
            const auto seen = Observe([&] { return learner.ParamInit(); });
            EXPECT_EQ(seen.err, cfg.modelType == "GBRank" ? c.err : "");
            EXPECT_EQ(seen.status, seen.err.empty() ? 0 : -1);
        }
    }
}

TEST(Fitting, RowsThatNoMemoryHoldsAreNotScored) {
    TreeLearner learner;
    ASSERT_EQ(LoadText(learner, ModelHead(1, 0, 3) +
                                    "idxTreeArray: 0 size: 1 shrink: 1\n0 1 0 TERMINAL -1 -1 -1 "
                                    "-1 0.5\n")
                  .status,
              0);
    constexpr size_t kMost = std::numeric_limits<size_t>::max();
    double row[] = {1, 2, 3};
    double result = 7.0;
    const struct {
        size_t n, stride;
    } cases[] = {{kMost, 3}, {kMost / 3 + 2, 3}, {kMost / 16, 3}, {2, kMost / 2}};
    for (const auto& c : cases) {
        EXPECT_EQ(
            Refused([&] { return learner.OnlineTestingBatch(row, c.n, c.stride, &result, 1); }),
            "ERROR: " + std::to_string(c.n) + " rows of " + std::to_string(c.stride) +
                " values cannot be in memory!\n");
        EXPECT_EQ(result, 7.0);
    }
}

}  // namespace
