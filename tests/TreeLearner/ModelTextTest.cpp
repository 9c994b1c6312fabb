// Models in memory, and descriptions. Damaged ones are in tests/damage/.
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>

#include "../damage/DescribedModel.h"
#include "EvaluationCases.h"
#include "ModelText.h"

namespace sylvora::tests {
namespace {

// Trained on 60 rows.
std::unique_ptr<TreeLearner> Trained(const Model& model, bool fPacked, bool fCovers) {
    auto learner = MakeLearner(ConfigOf(model, 3, 1), Data(60, 7, model.labels), nullptr);
    learner->setPackedTrees(fPacked);
    learner->trainingOptions.fCovers = fCovers;
    EXPECT_EQ(learner->Boosting(), 0);
    return learner;
}

std::string Saved(TreeLearner& learner, int digits, const ModelDescription* description) {
    std::string text;
    EXPECT_EQ(ModelText::Save(learner, digits, description, text), 0);
    return text;
}

TEST(TextSum, IsTheStandardChecksum) {
    EXPECT_EQ(SumOf("").Figures(), "0 00000000");
    EXPECT_EQ(SumOf("123456789").Figures(), "9 cbf43926");  // the check value of CRC-32
    const std::string text = kSmallModel;
    for (size_t at = 0; at <= text.size(); ++at) {
        TextSum sum = SumOf(text.substr(0, at));
        sum.Add(text.data() + at, text.size() - at);
        EXPECT_EQ(sum.Figures(), SumOf(text).Figures());
    }
}

// All model types; texts, covers and files with descriptions, in a locale with decimal commas.
TEST(ModelText, IsTheTextOfTheFile) {
    const TempFolder folder;
    const std::string file = folder.Path("model");
    const std::locale before = UseCommas();
    for (const Model& model : {kBoosted[0], kBoosted[3], kOthers[0], kOthers[1], kOthers[3]}) {
        std::vector<int> coverVV[2];
        for (const bool fPacked : {false, true}) {
            const auto learner = Trained(model, fPacked, true);
            ModelDescription description = SmallDescription();
            description.columnV.resize(kColumns);
            description.classV.resize(static_cast<size_t>(learner->numClass));
            ASSERT_EQ(ModelText::Covers(*learner, description.coverV), 0);
            coverVV[fPacked] = description.coverV;
            EXPECT_EQ(description.coverV.at(0), 42) << model.modelType;
            for (const int digits : {6, 17}) {
                ASSERT_EQ(learner->SaveModelFull(file, digits), 0);
                const std::string text = Saved(*learner, digits, nullptr);
                EXPECT_EQ(text, ReadFile(file));
                const std::string described = Saved(*learner, digits, &description);
                ASSERT_EQ(ModelText::SaveFile(*learner, digits, description, file), 0);
                EXPECT_EQ(described, ReadFile(file));
                TreeLearner fromText, fromFile, plain;
                fromText.setPackedTrees(fPacked);
                fromFile.setPackedTrees(fPacked);
                ModelDescription found, inFile;
                ASSERT_EQ(ModelText::Load(described.data(), described.size(), fromText, &found), 0);
                ASSERT_EQ(ModelText::LoadFile(file, fromFile, inFile), 0);
                ASSERT_EQ(plain.LoadModelFull(file), 0);
                EXPECT_EQ(found, description);
                EXPECT_EQ(inFile, description);
                EXPECT_EQ(Saved(fromText, digits, nullptr), Saved(plain, digits, nullptr));
                EXPECT_EQ(Saved(fromFile, digits, &found), Saved(plain, digits, &description));
                double row[] = {0.5, 3, 0.5, 3, 0.5}, score[2];
                ASSERT_EQ(fromText.OnlineTesting(row, score[0], kColumns, nullptr), 0);
                ASSERT_EQ(plain.OnlineTesting(row, score[1], kColumns, nullptr), 0);
                EXPECT_EQ(score[0], score[1]);
                ASSERT_EQ(ModelText::Covers(fPacked ? fromFile : plain, found.coverV), 0);
                EXPECT_TRUE(found.coverV.empty());
            }
        }
        EXPECT_EQ(coverVV[0], coverVV[1]) << model.modelType;
        const auto learner = Trained(model, true, false);
        ASSERT_EQ(ModelText::Covers(*learner, coverVV[0]), 0);
        EXPECT_TRUE(coverVV[0].empty());
    }
    std::locale::global(before);
}

// The start value of a loss is a tree of its own, reached by all rows.
TEST(ModelText, CoversIncludeTheStartValue) {
    CheckCfgCLS cfg = Settings("GBDT", "LogLoss");
    cfg.valSmpRt = 0.5;
    for (const bool fPacked : {false, true}) {
        const auto learner = Prepare(cfg, {0, 1, 0, 1, 1, 1, 0, 1});
        learner->setPackedTrees(fPacked);
        learner->trainingOptions.fCovers = true;
        ASSERT_EQ(learner->Boosting(), 0);
        ModelDescription description;
        ASSERT_EQ(ModelText::Covers(*learner, description.coverV), 0);
        ASSERT_GT(description.coverV.size(), 1u);
        EXPECT_EQ(description.coverV[0], 8);
        EXPECT_EQ(description.coverV[1], 4);
        EXPECT_NE(Saved(*learner, 6, &description), "");
    }
}

TEST(ModelText, AnyTextsSurvive) {
    std::mt19937 random(11);
    const std::string pieceV[] = {"[end] 0 00000000\n",
                                  "[description] 1",
                                  "\n",
                                  "\r",
                                  "\\",
                                  "\\x",
                                  "\\n",
                                  " ",
                                  "\t",
                                  std::string(1, '\0'),
                                  "\x7f",
                                  "\xc3\xbc",
                                  "x"};
    const auto draw = [&] {
        std::string text;
        for (auto n = random() % 5; n > 0; --n) text += pieceV[random() % std::size(pieceV)];
        return text;
    };
    TreeLearner learner;
    ASSERT_EQ(LoadText(learner, kSmallModel).status, 0);
    for (int i = 0; i < 300; ++i) {
        ModelDescription description;
        if (i % 2 != 0) description.columnV = {draw(), draw()};
        if (i % 3 != 0) description.classV = {draw(), draw()};
        description.link = draw();
        description.missing = draw();
        description.bestRound = static_cast<int>(random() % 3);
        for (auto n = random() % 4; n > 0; --n) description.settingV.emplace_back(draw(), draw());
        if (i % 5 != 0) description.coverV = {2147483647, 0, 2147483647, 2147483647, 0, 0};
        const std::string text = Saved(learner, 6, &description);
        TreeLearner loaded;
        ModelDescription found = SmallDescription();
        ASSERT_EQ(ModelText::Load(text.data(), text.size(), loaded, &found), 0) << text;
        ASSERT_EQ(found, description) << text;
    }
}

TEST(ModelText, TheBlockFollowsTheDebugReport) {
    const TempFolder folder;
    TreeLearner learner;
    ASSERT_EQ(LoadText(learner, kSmallModel).status, 0);
    learner.fDebug = true;
    const ModelDescription description = SmallDescription();
    for (const char* report : {"", "a\n[end] 1\nb", "a\n\n", "[description] 1\n"}) {
        learner.fileDebug = folder.Write("report", report);
        std::string text = Saved(learner, 6, nullptr);
        if (text.back() != '\n') text += '\n';
        const std::string described = Saved(learner, 6, &description);
        ASSERT_EQ(described.substr(0, text.size()), text);
        EXPECT_EQ(described.substr(text.size(), 16), "[description] 1\n");
        TreeLearner loaded, old;
        ModelDescription found;
        EXPECT_EQ(ModelText::Load(described.data(), described.size(), loaded, &found), 0);
        EXPECT_EQ(found, description);
        EXPECT_EQ(LoadText(old, described).status, 0);
    }
}

// More text than is read at once, before the block and in it.
TEST(ModelText, LongFilesAreChecked) {
    const TempFolder folder;
    TreeLearner learner;
    ASSERT_EQ(LoadText(learner, ModelHead(1, 0, 50000) + "idxTreeArray: 0 size: 1 shrink: 1\n"
                                                         "0 1\n0 TERMINAL -1 -1 -1 -1 1\n")
                  .status,
              0);
    ModelDescription description, found;
    description.columnV.assign(50000, "a name");
    const std::string file = folder.Path("model");
    ASSERT_EQ(ModelText::SaveFile(learner, 6, description, file), 0);
    const std::string text = ReadFile(file);
    EXPECT_EQ(text, Saved(learner, 6, &description));
    TreeLearner loaded;
    ASSERT_EQ(ModelText::LoadFile(file, loaded, found), 0);
    EXPECT_EQ(found, description);
    for (size_t at = 50; at < text.size(); at += 9973) {
        std::string damaged = text;
        damaged[at] ^= 1;
        folder.Write("model", damaged);
        TreeLearner other;
        EXPECT_EQ(Observe([&] { return ModelText::LoadFile(file, other, found); }).status, -1);
    }
}

TEST(ModelText, ContentIsChecked) {
    const std::string tail = "; take an intact copy, or load the model without its description!\n";
    const std::string line = "has an error in its line 3";
    const struct {
        std::string lines, fault;
    } cases[] = {
        {"", ""},
        {"later a b\n\n weight\n", ""},  // of a later version
        {"column a\ncolumn \n", ""},
        {"column a\n", "has 1 column names for 2 columns"},
        {"class a\nclass b\nclass c\n", "has 3 class names for 2 classes"},
        {"column \\n\n", line},
        {"column \\x4G\n", line},
        {"column \\x0\n", line},
        {"setting \n", line},
        {"bestRound 0\n", line},
        {"bestRound 2147483648\n", line},
        {"bestRound +1\n", line},
        {"link a\nlink b\n", "has an error in its line 4"},
        {"cover 9 4 5 3 2\ncover 10\n", ""},
        {"cover 9 4 5 3 2\ncover -10\n", "has an error in its line 4"},
        {"cover 9 4 5 3 2 10 \n", ""},
        {"cover 9  4\n", line},
        {"cover 9 4 5 3 2\n", "has the rows of 5 nodes for a model of 6"},
        {"cover 9 4 5 3 2\ncover 10\ncover 1\n", "has the rows of 7 nodes for a model of 6"},
        {"cover 9 4 5 3 1 10\n", "has 5 rows for node 2 and 4 for its children of group 0, tree 0"},
        {"cover 0 2147483647 2147483647 2147483647 0 0\n",
         "has 0 rows for node 0 and 4294967294 for its children of group 0, tree 0"},
    };
    for (const auto& c : cases) {
        const std::string text = kSmallModel + BlockOf(kSmallModel, c.lines);
        TreeLearner learner;
        ModelDescription found;
        const Outcome loaded =
            Observe([&] { return ModelText::Load(text.data(), text.size(), learner, &found); });
        EXPECT_EQ(loaded.status, c.fault.empty() ? 0 : -1) << c.lines;
        EXPECT_EQ(loaded.err, c.fault.empty()
                                  ? ""
                                  : "ERROR: The description behind the model " + c.fault + tail);
    }
    const auto refusal = [](const std::string& text) {
        TreeLearner learner;
        ModelDescription found;
        return Observe([&] { return ModelText::Load(text.data(), text.size(), learner, &found); })
            .err;
    };
    EXPECT_EQ(refusal(kSmallModel + BlockOf(kSmallModel, "", "2")),
              "ERROR: The description behind the model has version 2, which needs a later library" +
                  tail);
    EXPECT_EQ(refusal(kSmallModel + BlockOf(kSmallModel + " ", "")),
              "ERROR: The description behind the model belongs to another model, or the model has "
              "been changed or damaged" +
                  tail);
    // The children of an inner node need not exist in a model that is only inspected.
    std::string odd = kSmallModel;
    odd.replace(odd.find("0.5 1 2"), 7, "0.5 1 9");
    EXPECT_NE(refusal(odd + BlockOf(odd, "cover 9 4 5 3 2 10\n")).find("do not exist"),
              std::string::npos);
}

TEST(ModelText, RefusalsChangeNothing) {
    const TempFolder folder;
    TreeLearner learner;
    ASSERT_EQ(LoadText(learner, kSmallModel).status, 0);
    ModelDescription description = SmallDescription();
    const std::string file = folder.Write("model", "older");
    std::string text = "older";
    const auto expectRefused = [&](int digits, const std::string& message) {
        const Outcome inMemory =
            Observe([&] { return ModelText::Save(learner, digits, &description, text); });
        const Outcome inFile =
            Observe([&] { return ModelText::SaveFile(learner, digits, description, file); });
        EXPECT_EQ(inMemory.err, message);
        EXPECT_EQ(inFile.err, message);
        EXPECT_EQ(text + ReadFile(file), "olderolder");
        EXPECT_EQ(folder.Names().size(), 1u);
    };
    expectRefused(7, "ERROR: Illegal digits: 7, it must be 6 or 17!\n");
    description.columnV.pop_back();
    expectRefused(6,
                  "ERROR: The description has 1 column names for 2 columns; nothing is saved!\n");
    description = SmallDescription();
    description.coverV.back() = -1;
    expectRefused(6,
                  "ERROR: The description has -1 rows for node 0 of group 1, tree 0; nothing is "
                  "saved!\n");
    description = {};
    description.bestRound = -1;
    expectRefused(6, "ERROR: The description has -1 as best round; nothing is saved!\n");
    std::string heard;
    learner.trainingOptions.sinkContext = &heard;
    learner.trainingOptions.sink = [](void* context, int, const char* message) {
        *static_cast<std::string*>(context) += message;
    };
    expectRefused(6, "");
    EXPECT_EQ(std::count(heard.begin(), heard.end(), '\n'), 2) << heard;
    TreeLearner other;
    const auto load = [&](const char* begin, size_t size) {
        return Observe([&] { return ModelText::Load(begin, size, other, nullptr); }).err;
    };
    EXPECT_EQ(load(nullptr, 3), "ERROR: The text of the model is null!\n");
    EXPECT_EQ(load(nullptr, 0), "ERROR: empty model file!\n");
    EXPECT_EQ(load(text.data(), 0), "ERROR: empty model file!\n");
    EXPECT_EQ(Observe([&] { return ModelText::LoadFile("/none", other, description); }).err,
              "ERROR: Cannot open model file!\n");
    EXPECT_EQ(Observe([&] { return ModelText::Save(other, 6, nullptr, text); }).err,
              "ERROR: The model was not loaded in full, nothing is saved!\n");
}

}  // namespace
}  // namespace sylvora::tests
