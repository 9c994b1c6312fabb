// A model with a description, with every kind of small damage. Loading it with its description must
// fail, except that a text cut off right behind the model is a model without one. Loading it
// without its description must not notice damage behind the model.
#include <gtest/gtest.h>

#include <cstdio>
#include <random>
#include <string>

#include "../InMemory.h"
#include "DescribedModel.h"
#include "ModelCheck.h"

namespace sylvora::tests {
namespace {

class DescriptionDamage : public testing::Test {
  protected:
    void SetUp() override {
        TreeLearner learner;
        // Loaded trees are saved with a depth of 0.
        ASSERT_EQ(ModelText::Load(kSmallModel.data(), kSmallModel.size(), learner, nullptr), 0);
        ASSERT_EQ(ModelText::Save(learner, 6, nullptr, model), 0);
        const ModelDescription description = SmallDescription();
        ASSERT_EQ(ModelText::Save(learner, 6, &description, text), 0);
        ASSERT_EQ(text.substr(0, model.size()), model);
    }

    // Whether the new call refuses the text with one line, and loading without the description
    // gives the model.
    void Check(const std::string& damaged, bool fDamagedBehind) {
        ++numTried;
        TreeLearner learner;
        ModelDescription description;
        description.link = "kept";
        ASSERT_EQ(ModelText::Load(damaged.data(), damaged.size(), learner, &description), -1)
            << damaged;
        ASSERT_EQ(description.link, "kept");
        const std::string said = messages.Take();
        if (!fDamagedBehind) return;
        ASSERT_EQ(said.rfind("ERROR: The description behind the model ", 0), 0u) << said;
        ASSERT_EQ(said.find('\n'), said.size() - 1) << said;
        ASSERT_EQ(LoadAndSave(damaged), model) << damaged;
    }

    void TearDown() override {
        if (IsThorough() && numTried > 0) std::printf("%ld tried, all refused\n", numTried);
    }

    std::string model, text;
    Messages messages;
    long numTried = 0;
};

TEST_F(DescriptionDamage, AnyByteIsNoticed) {
    std::mt19937 random(5);
    for (size_t at = 0; at <= text.size(); ++at) {
        const bool fBehind = at >= model.size();
        std::string alphabet = "\n [\\";
        for (int i = 0; i < 8; ++i) alphabet += static_cast<char>(random());
        if (IsThorough()) alphabet.clear();
        for (int i = 0; IsThorough() && i < 256; ++i) alphabet += static_cast<char>(i);
        for (const char c : alphabet) {
            std::string damaged = text;
            damaged.insert(at, 1, c);
            ASSERT_NO_FATAL_FAILURE(Check(damaged, fBehind));
            if (at == text.size() || text[at] == c) continue;
            damaged.erase(at + 1, 1);
            ASSERT_NO_FATAL_FAILURE(Check(damaged, fBehind));
        }
        if (at == text.size()) continue;
        std::string shorter = text;
        ASSERT_NO_FATAL_FAILURE(Check(shorter.erase(at, 1), fBehind));
    }
    std::string returns;
    for (const char c : text) returns += c == '\n' ? "\r\n" : std::string(1, c);
    Check(returns, true);
}

TEST_F(DescriptionDamage, AnyCutIsNoticed) {
    for (size_t length = 1; length < text.size(); ++length) {
        // Right behind the model, or the line feed of its last number, the block is gone.
        if (length == model.size() || length == model.size() - 1) continue;
        ASSERT_NO_FATAL_FAILURE(Check(text.substr(0, length), length > model.size()));
    }
    ModelDescription description = SmallDescription();
    TreeLearner learner;
    EXPECT_EQ(ModelText::Load(model.data(), model.size(), learner, &description), 0);
    EXPECT_EQ(description, ModelDescription());
    TreeLearner unscored;
    EXPECT_EQ(ModelText::Load(model.data(), model.size() - 1, unscored, &description), 0);
    double row[] = {0, 0}, result = 7.0;
    EXPECT_EQ(learner.OnlineTesting(row, result, 2, nullptr), 0);
    EXPECT_EQ(unscored.OnlineTesting(row, result, 2, nullptr), -1);
}

// The reader of files against one that knows of no descriptions.
TEST_F(DescriptionDamage, FilesLoadAsBefore) {
    ModelCheck check;
    EXPECT_EQ(check.Run(text), "");
    for (size_t length = 0; length < text.size(); length += 7) {
        EXPECT_EQ(check.Run(text.substr(0, length)), "") << length;
    }
    for (size_t at = model.size(); at < text.size(); ++at) {
        std::string damaged = text;
        damaged[at] ^= 1;
        ASSERT_EQ(check.Run(damaged), "") << damaged;
    }
}

}  // namespace
}  // namespace sylvora::tests
