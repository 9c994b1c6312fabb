// The checks of a run with verification, and their absence without.
#include <sys/stat.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>
#include <thread>

#include "../Support.h"
#include "Prepared.h"
#include "claim.h"
#include "god/Report.h"

namespace {

using namespace sylvora::tests;

// Trains with the path of an older model, and reports what became of that model.
struct Trained {
    Outcome outcome;
    bool fOlder;  // the older model is still there
    int numMissing;
};

Trained TrainOver(TreeLearner& learner, bool fVerify) {
    const TempFolder folder;
    learner.fileModel = folder.Write("model", "older");
    learner.setVerification(fVerify);
    gseed = -11;
    Trained trained = {Observe([&] { return learner.Boosting(); }), false, 0};
    trained.fOlder = ReadFile(learner.fileModel) == "older";
    trained.numMissing = learner.getMissingTreeNum();
    return trained;
}

CheckCfgCLS Ranking(double valSmpRt, int numTree) {
    CheckCfgCLS cfg = Settings("GBRank", "CrossEntropy");
    cfg.valSmpRt = valSmpRt;
    cfg.numTree = numTree;
    return cfg;
}

CheckCfgCLS Boosted(const char* loss, double valShrink, int numTree) {
    CheckCfgCLS cfg = Settings("GBDT", loss);
    cfg.valShrink = valShrink;
    cfg.numTree = numTree;
    return cfg;
}

TEST(Verification, ARunThatGoesWrongEndsInItsRound) {
    const VecDle signs = {1, -1, 1, 1, -1, -1, 1, 1};
    const double huge = 1.7e308;
    CheckCfgCLS forest = Settings("RandomForest", "Label");
    forest.sizeGroup = 3;
    CheckCfgCLS oddName = Boosted("Square", 0.5, 2);
    oddName.modelType = "My GBDT";
    const struct {
        CheckCfgCLS cfg;
        VecDle labels;
        VecInt queries;
        VecVecDle rows;
        const char* message;
    } cases[] = {
        {Ranking(1, 5), VecDle(8, 1.0), {3, 5}, {}, "ERROR: round 1: no query has two rows with"},
        {Ranking(1, 5), {1, 0, 1}, {1, 1, 1}, {}, "ERROR: round 1: no query has two rows with"},
        {Ranking(0.2, 50),
         {1, 0, 0, 0, 0, 0, 0, 0, 0, 0},
         {2, 8},
         {},
         "none of the drawn rows has a partner with another label; raise valSmpRt\n"},
        {Boosted("Exponential", 400, 9), signs, {}, VecVecDle(8, {0.0}), "lower valShrink\n"},
        {Boosted("Square", 4, 2000), signs, {}, {}, "hold; lower valShrink\n"},
        {Boosted("Square", 0.1, 5), VecDle(4, huge), {}, {}, "ERROR: round 1: the labels are too"},
        {forest, VecDle(4, huge), {}, {}, "ERROR: tree 1: the labels are too large"},
        {Boosted("Square", 0.1, 5),
         {0, 0, 1, 1},
         {},
         {{huge / 4}, {huge / 4}, {huge}, {huge}},
         "ERROR: the values of feature 1 are too large to be added up"},
        {Boosted("Square", 0.1, 5),
         {0, 0, 1, 1},
         {},
         {{-1.3e308}, {-1.3e308}, {1.3e308}, {-1e308}},
         "ERROR: round 1: a threshold of feature 1 is not finite; scale the values down\n"},
        {oddName, {0, 1, 1, 0}, {}, {}, "ERROR: read back, a parameter of the model is another\n"},
    };
    for (const auto& c : cases) {
        const auto train = [&](bool fVerify) {
            return TrainOver(*Prepare(c.cfg, c.labels, c.queries, c.rows), fVerify);
        };
        const Trained verified = train(true);
        EXPECT_EQ(verified.outcome.status, -1) << c.message;
        EXPECT_TRUE(verified.fOlder) << c.message;
        EXPECT_NE(verified.outcome.err.find(c.message), std::string::npos) << c.message << "\n"
                                                                           << verified.outcome.err;
        const Trained plain = train(false);
        EXPECT_EQ(plain.outcome.status, 0) << c.message;
        EXPECT_EQ(plain.outcome.err, "") << c.message;
        EXPECT_FALSE(plain.fOlder) << c.message;
        EXPECT_EQ(plain.numMissing, 0) << c.message;
    }
}

// A label that is no class makes each tree fail on its own.
TEST(Verification, AForestWithTreesMissing) {
    CheckCfgCLS cfg = Settings("RandomForest", "Label");
    cfg.fRegCls = "CLS";
    cfg.sizeGroup = 20;
    cfg.valSmpRt = 0.7;
    const VecDle labels = {0, 1, -1, 1, 0, 1};
    const Trained survived = TrainOver(*Prepare(cfg, labels), false);
    EXPECT_EQ(survived.outcome.status, 0);
    EXPECT_GT(survived.numMissing, 0);
    EXPECT_LT(survived.numMissing, 20);
    EXPECT_FALSE(survived.fOlder);
    const Trained verified = TrainOver(*Prepare(cfg, labels), true);
    EXPECT_EQ(verified.outcome.status, -1);
    EXPECT_GE(verified.numMissing, survived.numMissing);
    EXPECT_TRUE(verified.fOlder);
    EXPECT_NE(verified.outcome.err.find(" of 20 was not grown, for the reason above"),
              std::string::npos)
        << verified.outcome.err;
}

// The progress function is asked a last time when the model is written and verified.
TEST(Verification, AStopIsHeardUntilTheModelIsInItsPlace) {
    for (const bool fThrows : {false, true}) {
        const auto learner = Prepare(Boosted("Square", 0.5, 3), {0, 1, 1, 0});
        struct Calls {
            int num;
            bool fThrows;
        } calls = {0, fThrows};
        const auto stopAtFourth = [](void* context, int, int) {
            Calls& seen = *static_cast<Calls*>(context);
            if (++seen.num < 4) return 0;
            if (seen.fThrows) throw 7;
            return 1;
        };
        learner->setProgress(stopAtFourth, &calls);
        const Trained trained = TrainOver(*learner, true);
        EXPECT_EQ(calls.num, 4);
        EXPECT_EQ(trained.outcome.status, -1);
        EXPECT_TRUE(trained.fOlder);
        const std::string& err = trained.outcome.err;
        EXPECT_EQ(std::count(err.begin(), err.end(), '\n'), 1) << err;
    }
}

// The midpoint of two infinities is no number, and rounding moves no row across it.
TEST(Digits, ANanThresholdIsNotMoved) {
    constexpr double kInf = std::numeric_limits<double>::infinity();
    const VecVecDle rows = {{-kInf}, {-kInf}, {kInf}, {kInf}};
    const auto learner = Prepare(Boosted("Square", 0.5, 2), {0, 0, 1, 1}, {}, rows);
    ASSERT_EQ(Observe([&] { return learner->Boosting(); }).status, 0);
    rounding_effect_t effect;
    ASSERT_EQ(learner->MeasureRounding(effect, 1), 0);
    EXPECT_EQ(effect.numRows, 0);
}

// Bytes sent to a pipe cannot be taken back.
TEST(Verification, APipeGetsTheModelOnlyWhenItIsRight) {
    for (const bool fRight : {true, false}) {
        const TempFolder folder;
        CheckCfgCLS cfg = Boosted("Square", 0.5, 3);
        if (!fRight) cfg.modelType = "My GBDT";
        const auto learner = Prepare(cfg, {0, 1, 1, 0, 1});
        learner->fileModel = folder.Path("pipe");
        ASSERT_EQ(::mkfifo(learner->fileModel.c_str(), 0600), 0);
        std::string sent;
        std::thread reader([&] { sent = ReadFile(learner->fileModel); });
        learner->setVerification(true);
        const Outcome outcome = Observe([&] { return learner->Boosting(); });
        reader.join();
        EXPECT_EQ(outcome.status, fRight ? 0 : -1) << outcome.err;
        EXPECT_EQ(sent.empty(), !fRight);
        if (!fRight) continue;
        ASSERT_EQ(learner->SaveModelFull(folder.Path("model")), 0);
        EXPECT_EQ(sent, ReadFile(folder.Path("model")));
    }
}

// Times a minute apart: their midpoints have ten digits.
std::unique_ptr<TreeLearner> PrepareTimes(CheckCfgCLS cfg) {
    VecDle labels;
    VecVecDle rows;
    std::mt19937 random(5);
    for (int i = 0; i < 600; ++i) {
        rows.push_back({1.6e9 + 60 * i, static_cast<double>(random() % 50), -1e-3 * i});
        labels.push_back(i / 40 % 2 + (random() % 8 == 0));
    }
    return Prepare(std::move(cfg), labels, {}, rows);
}

TEST(Digits, SeventeenScoreAsInMemory) {
    const TempFolder folder;
    CheckCfgCLS cfg = Boosted("Square", 0.1, 20);
    cfg.maxDepth = 5;
    const auto learner = PrepareTimes(cfg);
    ASSERT_EQ(learner->Boosting(), 0);
    TreeLearner loaded;
    ASSERT_EQ(learner->SaveModelFull(folder.Path("17"), 17), 0);
    ASSERT_EQ(loaded.LoadModelFull(folder.Path("17")), 0);
    for (int i = 0; i < learner->sampleSize; ++i) {
        double exact = 0, read = 0;
        ASSERT_EQ(learner->OnlineTesting(learner->featureVV[i], exact, 3, nullptr), 0);
        ASSERT_EQ(loaded.OnlineTesting(learner->featureVV[i], read, 3, nullptr), 0);
        ASSERT_EQ(exact, read);
    }
    EXPECT_EQ(loaded.SaveModelFull(folder.Path("again"), 17), 0);
    // Depths are not restored.
    EXPECT_EQ(ReadFile(folder.Path("again")).size(), ReadFile(folder.Path("17")).size());
    learner->CfgInfo.digits = 17;
    ASSERT_EQ(learner->SaveModelFull(folder.Path("set")), 0);
    EXPECT_EQ(ReadFile(folder.Path("set")), ReadFile(folder.Path("17")));
    for (const int digits : {-1, 0, 7, 18}) {
        const auto save = [&] { return learner->SaveModelFull(folder.Path("17"), digits); };
        EXPECT_EQ(Observe(save).err,
                  sylvora::Text("ERROR: Illegal digits: ", digits, ", it must be 6 or 17!\n"));
    }
}

// Rows that reach another leaf of some tree of `loaded` than in memory, and the largest change.
rounding_effect_t CompareByWalks(const TreeLearner& exact, TreeLearner& loaded) {
    rounding_effect_t effect;
    for (int i = 0; i < exact.sampleSize; ++i) {
        double* row = exact.featureVV[i];
        bool fOther = false;
        for (size_t g = 0; g < exact.TreeVV.size(); ++g) {
            for (size_t t = 0; t < exact.TreeVV[g].size(); ++t) {
                VecInt leafV;
                for (const TreeCR* tree : {exact.TreeVV[g][t], loaded.TreeVV[g][t]}) {
                    int k = 0;
                    for (const NodeCR* node = tree->NodeV[0]; node->status != "TERMINAL";
                         node = tree->NodeV[static_cast<size_t>(k)]) {
                        k = row[node->splitFea] <= node->splitElemFea ? node->lson : node->rson;
                    }
                    leafV.push_back(k);
                }
                fOther |= leafV[0] != leafV[1];
            }
        }
        if (!fOther) continue;
        ++effect.numRows;
        VecDle allV(exact.TreeVV.size() + static_cast<size_t>(exact.getTreeNum()));
        double scores[2];
        EXPECT_EQ(const_cast<TreeLearner&>(exact).OnlineTesting(row, scores[0], exact.dimFea,
                                                                allV.data()),
                  0);
        EXPECT_EQ(loaded.OnlineTesting(row, scores[1], exact.dimFea, allV.data()), 0);
        effect.largestChange = std::max(effect.largestChange, std::fabs(scores[0] - scores[1]));
    }
    return effect;
}

TEST(Digits, SixMoveRowsToOtherLeaves) {
    CheckCfgCLS forest = Settings("RandomForest", "Label");
    forest.sizeGroup = 5;
    CheckCfgCLS votes = forest;
    votes.fRegCls = "CLS";
    CheckCfgCLS drawn = Boosted("Square", 0.1, 10);
    drawn.ratio = 0.7;
    CheckCfgCLS sampled = Boosted("Square", 0.1, 30);  // other rows lie between those of a tree
    sampled.valSmpRt = 0.05;
    for (const CheckCfgCLS& cfg : {Boosted("Square", 0.1, 10), drawn, forest, votes, sampled}) {
        const TempFolder folder;
        const auto learner = PrepareTimes(cfg);
        ASSERT_EQ(learner->Boosting(), 0);
        ASSERT_EQ(learner->SaveModelFull(folder.Path("6")), 0);
        TreeLearner loaded;
        ASSERT_EQ(loaded.LoadModelFull(folder.Path("6")), 0);
        const rounding_effect_t wanted = CompareByWalks(*learner, loaded);
        EXPECT_GT(wanted.numRows, 100);
        for (const int numThread : {1, 3}) {
            rounding_effect_t effect;
            ASSERT_EQ(learner->MeasureRounding(effect, numThread), 0);
            EXPECT_EQ(effect.numRows, wanted.numRows);
            EXPECT_TRUE(effect.fCrossed);
            EXPECT_FALSE(effect.fAtLeast);
            // The leaves' outputs are rounded, too, in the loaded model.
            EXPECT_NEAR(effect.largestChange, wanted.largestChange, 1e-4);
        }
    }
    const auto whole = Prepare(Boosted("Square", 0.1, 10), {0, 1, 1, 0, 1, 1, 0});
    ASSERT_EQ(whole->Boosting(), 0);
    rounding_effect_t effect;
    ASSERT_EQ(whole->MeasureRounding(effect, 1), 0);
    EXPECT_EQ(effect.numRows, 0);
    EXPECT_FALSE(effect.fCrossed);
}

// The same run, and the same model loaded, with trees as records and packed.
TEST(PackedTrees, DoAsRecordsDo) {
    CheckCfgCLS forest = Settings("RandomForest", "Label");
    forest.sizeGroup = 4;
    forest.numThread = 3;
    forest.valSmpRt = 0.6;
    CheckCfgCLS votes = forest;
    votes.fRegCls = "CLS";
    CheckCfgCLS tree = Settings("CART", "Label");
    tree.fTestRealTime = true;
    for (const bool fPlain : {false, true}) {
        setenv("SYLVORA_PLAIN", fPlain ? "1" : "0", 1);
        for (CheckCfgCLS cfg : {Boosted("Square", 0.1, 6), forest, votes, tree}) {
            const TempFolder folder;
            std::string text[2], report[2];
            VecDle scoreV[2];
            for (const bool fPacked : {false, true}) {
                cfg.fileModel = folder.Path("model");
                cfg.pathOutput = folder.Path("");
                const auto learner = PrepareTimes(cfg);
                learner->setPackedTrees(fPacked);
                gseed = -3;
                ASSERT_EQ(learner->Boosting(), 0);
                EXPECT_EQ(learner->TreeVV.empty(), fPacked);
                EXPECT_EQ(learner->getGroupNum(), cfg.numTree);
                EXPECT_EQ(learner->getTreeNum(), cfg.numTree * cfg.sizeGroup);
                TreeLearner loaded;
                loaded.setPackedTrees(fPacked);
                ASSERT_EQ(loaded.LoadModelFull(cfg.fileModel), 0);
                EXPECT_EQ(loaded.TreeVV.empty(), fPacked);
                text[fPacked] = ReadFile(cfg.fileModel);
                ASSERT_EQ(loaded.SaveModelFull(cfg.fileModel), 0);
                text[fPacked] += ReadFile(cfg.fileModel);
                VecDle labels, result(8);
                VecVecDle rows;
                for (int i = 0; i < learner->sampleSize; i += 7) {
                    double* row = learner->featureVV[i];
                    for (TreeLearner* scorer : {learner.get(), &loaded}) {
                        VecDle fullV(10, -7.0);
                        double score = 0;
                        ASSERT_EQ(scorer->OnlineTesting(row, score, 3, fullV.data()), 0);
                        scoreV[fPacked].push_back(score);
                        scoreV[fPacked].insert(scoreV[fPacked].end(), fullV.begin(), fullV.end());
                        ASSERT_EQ(scorer->OnlineTesting(row, score, 3, nullptr), 0);
                        scoreV[fPacked].push_back(score);
                    }
                    labels.push_back(learner->labelV[i]);
                    rows.push_back(VecDle(row, row + 3));
                }
                ASSERT_EQ(loaded.DataInput(labels, rows, 1, {}, {}), 0);
                ASSERT_EQ(loaded.FeatureAnalysis(folder.Path("report")), 0);
                report[fPacked] = ReadFile(folder.Path("report"));
            }
            EXPECT_EQ(text[0], text[1]);
            EXPECT_EQ(report[0], report[1]);
            EXPECT_EQ(scoreV[0], scoreV[1]);
        }
    }
    unsetenv("SYLVORA_PLAIN");
}

TEST(PackedTrees, TreesOfTheCallersAreNotMixedIn) {
    const auto learner = Prepare(Boosted("Square", 0.1, 2), {0, 1, 1, 0});
    learner->setPackedTrees(true);
    ASSERT_EQ(learner->Boosting(), 0);
    learner->TreeVV.resize(2);
    double result = 7.0;
    const auto score = [&] {
        return learner->OnlineTesting(learner->featureVV[0], result, 1, nullptr);
    };
    EXPECT_EQ(Observe(score).err, "ERROR: Wrong tree size or shrink size!\n");
    learner->TreeVV.clear();
    EXPECT_EQ(score(), 0);
    EXPECT_EQ(learner->ReleaseTrees(), 0);
    EXPECT_EQ(Observe(score).status, -1);
    rounding_effect_t effect;
    EXPECT_EQ(Observe([&] { return learner->MeasureRounding(effect, 1); }).status, -1);
    EXPECT_EQ(learner->getTreeNum(), 0);
    EXPECT_EQ(learner->sampleSize, 4);
}

}  // namespace
