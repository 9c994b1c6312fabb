// Model files of every type with small damage: truncated at each byte, bytes changed and inserted
// at each position, each token replaced. The result is compared with a reader that shares no code
// with the library (ModelCheck.h). No walk may take more steps than its tree has nodes.
//
// SYLVORA_DAMAGE=all in the environment tries all byte values instead of a few; each test then
// prints the number of files that it tried.
#include <gtest/gtest.h>

#include <cstdio>
#include <random>
#include <string>
#include <vector>

#include "../Support.h"
#include "ModelCheck.h"
#include "claim.h"

namespace sylvora::tests {
namespace {

struct Type {
    const char* modelType;
    const char* fRegCls;
    int numTree;
};
void PrintTo(const Type& type, std::ostream* out) {
    *out << type.modelType << type.fRegCls;
}

std::string Trained(const Type& type) {
    CheckCfgCLS cfg;
    cfg.modelType = type.modelType;
    cfg.fRegCls = type.fRegCls;
    cfg.numTree = type.numTree;
    cfg.maxDepth = 2;
    cfg.numBound = 4;
    cfg.valShrink = 0.3;
    const TempFolder folder;
    cfg.fileModel = folder.Path("model");
    std::mt19937 random(3);
    const auto draw = [&random](unsigned n) { return static_cast<int>(random() % n); };
    VecDle labels;
    VecVecDle rows;
    VecInt queries;
    for (int i = 0; i < 24; ++i) {
        rows.push_back({draw(100) / 7.0, draw(10) * 1.0, draw(1000) * 1e5});
        labels.push_back(static_cast<int>(rows[static_cast<size_t>(i)][0]) % 3);
        queries.push_back(i / 8);
    }
    gseed = -1;
    const Messages silence;
    EXPECT_EQ(cfg.CheckCfg(), 0);
    TreeLearner learner(cfg);
    EXPECT_EQ(learner.DataInput(labels, rows, 0, queries, {}), 0);
    EXPECT_EQ(learner.ParamInit(), 0);
    EXPECT_EQ(learner.Boosting(), 0);
    return ReadFile(cfg.fileModel);
}

class ModelDamage : public testing::TestWithParam<Type> {
  protected:
    void SetUp() override {
        model = Trained(GetParam());
        ASSERT_EQ(check.Run(model), "") << model;
        ASSERT_TRUE(ModelOracle(model).Scores()) << model;
    }
    void TearDown() override {
        if (IsThorough()) std::puts(check.Tally().c_str());
    }

    std::string model;
    ModelCheck check;
};

// This includes the file without its last line feed, which may have lost digits.
TEST_P(ModelDamage, CutAnywhere) {
    for (size_t length = 0; length < model.size(); ++length) {
        const std::string cut = model.substr(0, length);
        ASSERT_EQ(check.Run(cut), "") << cut;
        ASSERT_FALSE(ModelOracle(cut).Scores()) << cut;
    }
}

TEST_P(ModelDamage, AnyByte) {
    std::string alphabet = std::string("\n 09-+.eEIx:\x80", 14) + '\0';
    if (IsThorough()) alphabet.clear();
    for (int c = 0; IsThorough() && c < 256; ++c) alphabet += static_cast<char>(c);
    for (size_t at = 0; at < model.size(); ++at) {
        for (const char c : alphabet) {
            for (const size_t numReplaced : {size_t{0}, size_t{1}}) {
                std::string text = model;
                text.replace(at, numReplaced, 1, c);
                ASSERT_EQ(check.Run(text), "") << "byte " << at << "\n" << text;
            }
        }
    }
}

// Each token in turn is removed, duplicated, and replaced by values near those that occur.
TEST_P(ModelDamage, AnyToken) {
    std::vector<std::string> replacementV = {"",           "nan",     "-",      "1e999",
                                             "2147483647", "1000000", "-2.5e9", "99999999999"};
    for (int number = -3; number < 40; ++number) replacementV.push_back(std::to_string(number));
    for (size_t begin = 0; begin < model.size();) {
        const size_t end = model.find_first_of(" \n", begin);
        const std::string token = model.substr(begin, end - begin);
        for (size_t k = 0; k <= replacementV.size(); ++k) {
            std::string text = model;
            text.replace(begin, end - begin,
                         k < replacementV.size() ? replacementV[k] : token + " " + token);
            ASSERT_EQ(check.Run(text), "") << "token at " << begin << "\n" << text;
        }
        begin = end + 1;
    }
}

INSTANTIATE_TEST_SUITE_P(All, ModelDamage,
                         testing::Values(Type{"GBDT", "REG", 3}, Type{"GBRank", "REG", 3},
                                         Type{"CART", "REG", 1}, Type{"CART", "CLS", 1},
                                         Type{"RandomForest", "REG", 2},
                                         Type{"RandomForest", "CLS", 2}),
                         testing::PrintToStringParamName());

}  // namespace
}  // namespace sylvora::tests
