// Preparing a learner for a run, and releasing it.
#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <vector>

#include "../Support.h"
#include "Prepared.h"

namespace {

using namespace sylvora::tests;

TEST(SetUp, LabelsAreMappedAndChecked) {
    struct Case {
        const char* modelType;
        const char* task;
        const char* loss;
        double label;  // of the last of three samples; the others are mapped to -1 and 1
        std::string err;
    };
    const auto notInClass = [](const std::string& label) {
        return "ERROR: Class id must be consecutive integers, 3 classes but label: " + label +
               " found!\n";
    };
    const auto noSign = [](const std::string& loss) {
        return "ERROR: label should be \"-1\" or \"+1\" when using loss function \"" + loss +
               "\"!\n";
    };
    const Case cases[] = {
        {"CART", "CLS", "Label", 2.4, ""},
        {"CART", "CLS", "Label", 2.5, notInClass("2.5")},
        {"CART", "CLS", "Label", -7, ""},
        {"CART", "REG", "Label", 100, ""},
        {"GBDT", "REG", "Square", 0.5, ""},
        {"GBDT", "REG", "Logistic", 1.7, ""},
        {"GBDT", "REG", "Logistic", 0.5, noSign("Logistic")},
        {"GBDT", "REG", "Exponential", 2, noSign("Exponential")},
        {"GBDT", "REG", "HingeSquare", 3e9, noSign("HingeSquare")},
    };
    for (const Case& c : cases) {
        CheckCfgCLS cfg = Settings(c.modelType, c.loss);
        cfg.fRegCls = c.task;
        TreeLearner learner(cfg);
        ASSERT_EQ(learner.DataInput({0, 50, c.label}, VecVecDle(3, {1}), 0, {}, {}), 0);
        learner.tranMap = {{0, -1}, {50, 1}};
        const Outcome outcome = Observe([&] { return learner.ParamInit(); });
        EXPECT_EQ(outcome.status, c.err.empty() ? 0 : -1) << c.loss << c.label;
        EXPECT_EQ(outcome.err, c.err);
        EXPECT_EQ(std::vector<double>(learner.labelTrV, learner.labelTrV + 3),
                  (std::vector<double>{-1, 1, c.label}));
        EXPECT_EQ(learner.numDocQueV, c.err.empty() ? VecInt(3, 3) : VecInt());
    }
}

TEST(SetUp, QueriesAndOtherSets) {
    CheckCfgCLS cfg = Settings("GBRank", "CrossEntropy");
    cfg.fPrint = true;
    TreeLearner learner(cfg);
    const Outcome outcome = Observe([&] {
        return learner.DataInput({1, 2}, VecVecDle(2, {1}), 2, {}, {}) |
               learner.DataInput({1, 2, 3, 4, 5, 6}, VecVecDle(6, {1}), 0, {0, 0, 0, 1, 2, 2}, {}) |
               learner.ParamInit() | learner.Destroy() | learner.Destroy();
    });
    learner.CfgInfo.fPrint = false;
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(learner.numDocQueV, (VecInt{3, 3, 3, 1, 2, 2}));
    EXPECT_EQ(learner.devResVV, VecVecFt(2, {0}));
    EXPECT_EQ(outcome.out.substr(outcome.out.find("Init")),
              "Init parameters in ranking model ...\nTranform the label...\nInit dev set...\n"
              "Free data complete.\nFree data complete.\n");
    EXPECT_EQ(learner.featureVV, nullptr);
}

TEST(SetUp, NeedsDataAndOneRoundForAForest) {
    const std::string check = "Error: check modelType and numTree!\n";
    const std::string noData = "Error: no data exists in the tree models learning process!\n";
    for (const auto& [modelType, numTree, err] : {std::tuple("RandomForest", 2, check),
                                                  {"CART", 2, check},
                                                  {"RandomForest", 1, noData},
                                                  {"CART", 0, noData},
                                                  {"GBDT", 9, noData}}) {
        CheckCfgCLS cfg = Settings(modelType, "Label");
        cfg.numTree = numTree;
        TreeLearner learner(cfg);
        EXPECT_EQ(Observe([&] { return learner.ParamInit(); }).err, err) << modelType << numTree;
    }
}

}  // namespace
