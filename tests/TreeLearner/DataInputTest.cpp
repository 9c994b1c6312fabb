// Data sets and the label map on their way into the learner.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "../Support.h"
#include "TreeLearner.h"

namespace {

using namespace sylvora::tests;

enum { kTraining = 0, kTest = 1, kDevelopment = 2 };

CheckCfgCLS Settings(const char* modelType, const char* task) {
    CheckCfgCLS cfg;
    cfg.modelType = modelType;
    cfg.fRegCls = task;
    return cfg;
}

TEST(DataInput, Refusals) {
    struct Case {
        VecDle labels;
        VecVecDle rows;
        int type;
        VecInt queries;
        VecDle virtualLabels;
        const char* err;
    };
    const char wrong[] = "ERROR: Data transformed into Ranking Model is wrong!\n";
    const char noData[] = "ERROR: No training data for tree models!\n";
    const char ragged[] =
        "ERROR: Row 1 has 2 features, row 0 has 1: all rows must be of one length!\n";
    const char queries[] = "ERROR: Size of qid does not match the data!\n";
    const Case cases[] = {
        {{1}, {{1}, {2}}, kTraining, {0}, {}, wrong},
        {{1}, {{1}}, kTraining, {0}, {1}, wrong},
        {{}, {}, kTraining, {}, {}, noData},
        {{}, {}, 3, {}, {}, noData},
        {{1}, {{}}, kTest, {0}, {}, "ERROR: None features for training data!\n"},
        {{1, 2}, {{1}, {1, 2}}, kTraining, {0, 0}, {}, ragged},
        {{1, 2}, {{1}, {2}}, kTraining, {0}, {}, queries},
        {{1, 2}, {{1}, {2}}, kTraining, {}, {}, queries},
    };
    for (const Case& c : cases) {
        CheckCfgCLS cfg = Settings("GBRank", "REG");
        TreeLearner learner(cfg);
        const Outcome outcome = Observe([&] {
            return learner.DataInput(c.labels, c.rows, c.type, c.queries, c.virtualLabels);
        });
        EXPECT_EQ(outcome.status, -1);
        EXPECT_EQ(outcome.err, c.err);
    }
}

TEST(DataInput, CopiesEachSetToItsPlace) {
    CheckCfgCLS cfg = Settings("GBRank", "REG");
    TreeLearner learner(cfg);
    EXPECT_EQ(learner.DataInput({5, 6}, {{1, 2}, {3, 4}}, kTest, {0}, {}), 0);  // no query ids
    EXPECT_EQ(learner.DataInput({7}, {{8, 9}}, kDevelopment, {4}, {}), 0);
    EXPECT_EQ(learner.DataInput({0}, {{0, 0}}, 3, {}, {}), 0);
    EXPECT_EQ(learner.DataInput({1, 2}, {{2, 10}, {4, 20}}, kTraining, {0, 1}, {}), 0);
    const auto last = [](const double* labels, double** rows, int size) {
        return VecDle{labels[size - 1], rows[size - 1][0], rows[size - 1][1]};
    };
    EXPECT_EQ(last(learner.labelV, learner.featureVV, learner.sampleSize), (VecDle{2, 4, 20}));
    EXPECT_EQ(last(learner.labelTestV, learner.featureTestVV, learner.testSize), (VecDle{6, 3, 4}));
    EXPECT_EQ(last(learner.labelDevV, learner.featureDevVV, learner.devSize), (VecDle{7, 8, 9}));
    EXPECT_EQ(learner.queryIdV[1], 1);
    EXPECT_EQ(learner.queryIdTestV, nullptr);
    EXPECT_EQ(learner.queryIdDevV[0], 4);
    EXPECT_EQ(learner.featureMean[1], (10 / 2.0 + 20) / 2);
}

// Two rows of two columns, and what they are adopted as.
struct Adopted {
    double* labels = static_cast<double*>(std::calloc(2, sizeof(double)));
    double** rows = static_cast<double**>(std::calloc(2, sizeof(double*)));

    Adopted() {
        for (int i = 0; i < 2; ++i) {
            labels[i] = i + 1;
            rows[i] = static_cast<double*>(std::calloc(2, sizeof(double)));
            rows[i][0] = 2 * i + 2;
        }
    }
    int GiveTo(TreeLearner& learner, int numColumn, const VecInt& queries, int type) const {
        return learner.DataAdopt(labels, rows, 2, numColumn, queries, type);
    }
};

// What is refused or of no use is freed all the same, which a leak would show.
TEST(DataInput, AdoptsArraysAsTheyAre) {
    CheckCfgCLS cfg = Settings("GBRank", "REG");
    TreeLearner learner(cfg);
    const Adopted test, training;
    EXPECT_EQ(test.GiveTo(learner, 2, {0}, kTest), 0);
    EXPECT_EQ(Adopted().GiveTo(learner, 2, {0, 0}, kDevelopment), 0);
    EXPECT_EQ(Adopted().GiveTo(learner, 2, {}, 3), 0);
    EXPECT_EQ(training.GiveTo(learner, 2, {0, 1}, kTraining), 0);
    EXPECT_EQ(learner.labelV, training.labels);
    EXPECT_EQ(learner.featureVV, training.rows);
    EXPECT_EQ(learner.queryIdV[1], 1);
    EXPECT_EQ(learner.featureMean[0], 2.5);
    EXPECT_EQ(learner.featureTestVV, test.rows);
    EXPECT_EQ(learner.queryIdTestV, nullptr);
    EXPECT_EQ(learner.queryIdDevV[1], 0);
    const Outcome outcome = Observe([&] {
        return Adopted().GiveTo(learner, 0, {}, kTest) +
               learner.DataAdopt(nullptr, nullptr, 0, 2, {}, kTest) +
               Adopted().GiveTo(learner, 2, {0}, kTraining);
    });
    EXPECT_EQ(outcome.status, -3);
    EXPECT_EQ(outcome.err,
              "ERROR: None features for training data!\n"
              "ERROR: No training data for tree models!\n"
              "ERROR: Size of qid does not match the data!\n");
}

TEST(DataInput, CountsClasses) {
    for (const auto& [task, numClass] : {std::pair("CLS", 3), std::pair("REG", 0)}) {
        CheckCfgCLS cfg = Settings("CART", task);
        TreeLearner learner(cfg);
        EXPECT_EQ(learner.DataInput({0, 1.2, 1.9, 2}, VecVecDle(4, {1}), kTraining, {}, {}), 0);
        EXPECT_EQ(learner.numClass, numClass);
        EXPECT_EQ(learner.CfgInfo.numClass, numClass);
        EXPECT_EQ(learner.queryIdV, nullptr);
    }
}

TEST(DataInput, EachSetStartsTheDebugReportAnew) {
    const TempFolder folder;
    CheckCfgCLS cfg = Settings("GBDT", "REG");
    cfg.fDebug = true;
    cfg.fileDebug = folder.Path("debug");
    cfg.ratio = 0.5;
    TreeLearner learner(cfg);
    EXPECT_EQ(learner.DataInput({5}, {VecDle(10, 0.0)}, kTest, {}, {}), 0);
    EXPECT_EQ(learner.DataInput({1, 2}, VecVecDle(2, VecDle(10, 0.0)), kTraining, {}, {}), 0);
    learner.of_debug.flush();
    EXPECT_EQ(ReadFile(cfg.fileDebug), "500 20 2 5\n");
}

TEST(LabelTransform, Table) {
    struct Case {
        const char* text;
        const char* task;   // with two classes
        std::string found;  // the label that ends the reading
        const char* out;    // the map as printed
    };
    const Case cases[] = {
        {"5 0\n7 1\n5 1\n", "CLS", "", "\t5\t0\n\t7\t1\n"},
        {"x\n\n7 1.4\n-1.5e0\t0.25 more\r\n3\nnone 1\n", "CLS", "", "\t-1.5\t0.25\n\t7\t1.4\n"},
        {"1 1.4\n2 1.5\n3 0\n", "CLS", "1.5", ""},
        {"1 -0.5", "CLS", "-0.5", ""},
        {"1 -5\n2 1e3", "REG", "", "\t1\t-5\n\t2\t1000\n"},
    };
    for (const Case& c : cases) {
        const TempFolder folder;
        CheckCfgCLS cfg = Settings("CART", c.task);
        cfg.numClass = 2;
        TreeLearner learner(cfg);
        learner.CfgInfo.fPrint = true;
        learner.tranMap = {{99, 99}};
        const Outcome outcome =
            Observe([&] { return learner.ReadLabelTran(folder.Write("labels", c.text)); });
        learner.CfgInfo.fPrint = false;
        const std::string err =
            "ERROR: Class id must be trans to consecutive integers, there are 2 classes but "
            "transformed label: " +
            c.found + " found!\n";
        const bool fRead = c.found.empty();
        EXPECT_EQ(outcome.status, fRead ? 0 : -1);
        EXPECT_EQ(outcome.err, fRead ? "" : err);
        EXPECT_EQ(outcome.out, fRead ? std::string("Read Label Tran:\n") + c.out : "");
        EXPECT_EQ(learner.tranMap.count(99), 0u);
    }
}

TEST(LabelTransform, ToleratesAMissingFile) {
    for (const char* path : {"/none", "/"}) {
        TreeLearner learner;
        const Outcome outcome = Observe([&] { return learner.ReadLabelTran(path); });
        EXPECT_EQ(outcome.status, 0);
        EXPECT_EQ(outcome.err, "Notice: No label tran file found, using the original label!\n");
    }
}

}  // namespace
