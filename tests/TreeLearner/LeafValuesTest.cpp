// Losses that set the values of nodes from their rows, and their start values.
#include <algorithm>
#include <cmath>
#include <functional>
#include <numeric>
#include <random>
#include <sstream>

#include "../LossFunctions/NodeRules.h"
#include "../Support.h"
#include "LossFunctions.h"
#include "Prepared.h"
#include "claim.h"

namespace {

using namespace sylvora::tests;

struct Data {
    VecVecDle rows;
    VecDle labels;
};

// `numRows` rows of 4 columns with few distinct values; labels that follow them, or two classes.
Data MakeData(int numRows, bool fClasses, double low = 0) {
    std::mt19937 random(static_cast<unsigned>(numRows));
    std::normal_distribution<double> normal;
    Data data;
    for (int i = 0; i < numRows; ++i) {
        VecDle row;
        for (int j = 0; j < 4; ++j) row.push_back(static_cast<double>(random() % 50) * 0.1);
        double label = row[0] * row[1] + (row[2] > 2 ? 3 : 0) + normal(random);
        if (random() % 20 == 0) label *= 10;
        data.rows.push_back(row);
        data.labels.push_back(!fClasses ? label : label > 6 ? 1 : low);
    }
    return data;
}

CheckCfgCLS LossSettings(const char* loss, int numTree) {
    CheckCfgCLS cfg = Settings("GBDT", loss);
    cfg.numTree = numTree;
    cfg.valSmpRt = cfg.ratio = 0.8;
    cfg.huberDelta = 0.7;
    cfg.quantile = std::string(loss) == "Quantile" ? 0.8 : 0.5;
    return cfg;
}

std::unique_ptr<TreeLearner> Prepare(const CheckCfgCLS& cfg, const Data& data) {
    return sylvora::tests::Prepare(cfg, data.labels, {}, data.rows);
}

const char* const kLosses[] = {"LogLoss", "Absolute", "Huber", "Quantile"};

bool IsLogLoss(const std::string& loss) {
    return loss == "LogLoss";
}

// The value that `loss` gives a node with these rows, by the definition.
double Expected(const CheckCfgCLS& cfg, const VecDle& labels, const VecDle& scores,
                const VecInt& weights) {
    NodeRules::Rows rows;
    VecDle classes;
    for (size_t i = 0; i < labels.size(); ++i) {
        rows.push_back({labels[i] - scores[i], weights[i]});
        classes.push_back(labels[i] > 0);
    }
    if (cfg.lossFunc == "LogLoss") return NodeRules::LogLoss(classes, scores, weights);
    if (cfg.lossFunc == "Huber") return NodeRules::Huber(rows, cfg.huberDelta);
    return NodeRules::Quantile(rows, cfg.lossFunc == "Quantile" ? cfg.quantile : 0.5);
}

// Grows one tree by hand and compares the value of every node, inner ones too, with its rows: those
// drawn that reach it.
void CheckTree(TreeLearner& learner, const VecInt& weights) {
    boosting_info_t all = {&learner, 0, learner.sampleSize - 1};
    ASSERT_EQ(CalLossThreadFunction(&all), nullptr);
    long seed = -5;  // the tree below begins with the same state
    int* drawn = nullptr;
    int numDrawn = 0;
    ASSERT_EQ(learner.RandomSelectURL(drawn, numDrawn, &seed), 0);
    const std::unique_ptr<int[]> owner(drawn);
    gseed = -5;
    learner.TreeGroup.clear();
    ASSERT_EQ(learner.GenerateTree(), 0);
    const std::unique_ptr<TreeCR> tree(learner.TreeGroup.back());
    learner.TreeGroup.clear();
    ASSERT_GT(tree->NodeV.size(), 5U);
    std::vector<VecInt> rowsOf(tree->NodeV.size());
    for (int k = 0; k < numDrawn; ++k) {
        for (int at = 0; at >= 0;) {
            const NodeCR& node = *tree->NodeV[static_cast<size_t>(at)];
            rowsOf[static_cast<size_t>(at)].push_back(drawn[k]);
            if (node.splitFea < 0) break;
            at = learner.featureVV[drawn[k]][node.splitFea] <= node.splitElemFea ? node.lson
                                                                                 : node.rson;
        }
    }
    for (size_t n = 0; n < rowsOf.size(); ++n) {
        VecDle labels, scores;
        VecInt own;
        for (const int row : rowsOf[n]) {
            labels.push_back(learner.labelTrV[row]);
            scores.push_back(learner.predictV[row]);
            own.push_back(weights[static_cast<size_t>(row)]);
        }
        ASSERT_EQ(static_cast<int>(own.size()), tree->NodeV[n]->countDoc);
        const double expected = Expected(learner.CfgInfo, labels, scores, own);
        const double is = tree->NodeV[n]->avgPredict;
        ASSERT_NEAR(is, expected, 1e-12 * (1 + std::fabs(expected))) << "node " << n;
    }
}

TEST(LeafValues, FollowTheRuleOfTheLoss) {
    for (const std::string loss : kLosses) {
        for (const bool fWeights : {false, true}) {
            SCOPED_TRACE(loss + (fWeights ? " weighted" : ""));
            const auto learner =
                Prepare(LossSettings(loss.c_str(), 1), MakeData(301, IsLogLoss(loss), -1));
            VecInt weights(301, 1);
            for (size_t i = 0; i < weights.size() && fWeights; ++i) {
                weights[i] = static_cast<int>(i % 4);
            }
            if (fWeights) {
                ASSERT_EQ(learner->setWeights(weights.data(), 301), 0);
            }
            for (int i = 0; i < 301; ++i) learner->predictV[i] = i % 7 * 0.3 - 1;
            CheckTree(*learner, weights);
        }
    }
}

struct Trained {
    std::string model;
    VecDle predictions;
};

typedef std::function<void(TreeLearner&)> Change;

Trained Train(CheckCfgCLS cfg, const Data& data, const Change& change = {}) {
    const TempFolder folder;
    cfg.fileModel = folder.Path("model");
    cfg.digits = 17;
    gseed = -3;
    const auto learner = Prepare(cfg, data);
    if (change) change(*learner);
    learner->setVerification(true);
    EXPECT_EQ(learner->Boosting(), 0);
    EXPECT_EQ(learner->getMissingTreeNum(), 0);
    const double* const first = learner->predictV;
    return {ReadFile(cfg.fileModel), VecDle(first, first + learner->sampleSize)};
}

// The start value is the first group: OnlineTesting lists it, and the predictions begin with it.
TEST(LeafValues, TheStartValueIsTheFirstGroup) {
    const struct {
        const char* loss;
        VecDle labels;
        double start;
    } cases[] = {{"LogLoss", {1, 1, 0, 1}, std::log(3.0)},
                 {"LogLoss", {-1, 1, -1, -1}, std::log(1 / 3.0)},
                 {"Absolute", {1, 9, 2, 4}, 3},
                 {"Quantile", {1, 2, 3, 4, 5}, 4.5},
                 {"Huber", {0, 0, 10}, 0.7 / 3}};
    for (const auto& c : cases) {
        for (const bool fPacked : {false, true}) {
            CheckCfgCLS cfg = LossSettings(c.loss, 2);
            const auto learner = sylvora::tests::Prepare(cfg, c.labels);
            learner->setPackedTrees(fPacked);
            learner->setVerification(true);
            for (int run = 0; run < 2; ++run) {
                gseed = -1;
                ASSERT_EQ(learner->Boosting(), 0);
                EXPECT_EQ(learner->getGroupNum(), 3);
                EXPECT_EQ(learner->getTreeNum(), 3);
                EXPECT_EQ(learner->getMissingTreeNum(), 0);
                EXPECT_EQ(learner->StepLengthV, (VecFt{1, 0.5F, 0.5F}));
                for (int i = 0; i < learner->sampleSize; ++i) {
                    double score = 0, fullResult[3] = {};
                    ASSERT_EQ(learner->OnlineTesting(learner->featureVV[i], score, 1, fullResult),
                              0);
                    EXPECT_NEAR(fullResult[0], c.start, 1e-15) << c.loss;
                    EXPECT_EQ(score, learner->predictV[i]) << c.loss << " run " << run;
                }
                rounding_effect_t effect;
                EXPECT_EQ(learner->MeasureRounding(effect, 1), 0);
            }
        }
    }
}

TEST(LeafValues, ThreadsAndPackingChangeNothing) {
    for (const std::string loss : kLosses) {
        const Data data = MakeData(20000, IsLogLoss(loss));
        CheckCfgCLS cfg = LossSettings(loss.c_str(), 6);
        const Trained one = Train(cfg, data);
        cfg.numThread = 4;
        const Trained four =
            Train(cfg, data, [](TreeLearner& learner) { learner.setPackedTrees(true); });
        EXPECT_EQ(one.model, four.model) << loss;
        EXPECT_EQ(one.predictions, four.predictions) << loss;
    }
}

// Line by line: a block per tree, with a line of sampled columns and a line of values per split.
TEST(LeafValues, TheDebugReportHasThem) {
    const TempFolder folder;
    CheckCfgCLS cfg = LossSettings("Huber", 2);
    cfg.fDebug = true;
    cfg.fileDebug = folder.Path("debug");
    const auto learner = Prepare(cfg, MakeData(300, false));
    ASSERT_EQ(learner->Boosting(), 0);
    std::istringstream report(ReadFile(cfg.fileDebug));
    std::string line;
    std::getline(report, line);  // the settings
    for (size_t round = 1; round <= 2; ++round) {
        VecDle expected, seen;
        for (const NodeCR* node : learner->TreeVV[round][0]->NodeV) {
            if (node->splitFea >= 0) expected.push_back(node->avgPredict);
        }
        std::getline(report, line);
        EXPECT_EQ(line, std::to_string(round - 1));
        std::getline(report, line);  // rows drawn, and the number of splits
        for (size_t k = 0; k < expected.size(); ++k) std::getline(report, line);
        for (size_t k = 0; k < expected.size(); ++k) {
            double column, threshold, score, value;
            ASSERT_TRUE(report >> column >> threshold >> score >> value);
            seen.push_back(value);
            std::getline(report, line);
        }
        ASSERT_GT(expected.size(), 2U);
        for (size_t k = 0; k < expected.size(); ++k) {
            EXPECT_NEAR(seen[k], expected[k], 1e-5 * std::fabs(expected[k]));
        }
    }
}

TEST(LeafValues, ConstantLabelsNeedNoTree) {
    for (const char* loss : {"Absolute", "Huber", "Quantile"}) {
        Data data = MakeData(50, false);
        std::fill(data.labels.begin(), data.labels.end(), -7.25);
        EXPECT_EQ(Train(LossSettings(loss, 3), data).predictions, VecDle(50, -7.25)) << loss;
    }
}

// Probabilities reach 0 and 1; gradients and second derivatives then underflow.
TEST(LeafValues, SeparableClassesStayFinite) {
    Data data = MakeData(200, true);
    for (size_t i = 0; i < data.labels.size(); ++i) data.labels[i] = data.rows[i][0] > 2 ? 1 : 0;
    CheckCfgCLS cfg = LossSettings("LogLoss", 300);
    cfg.valShrink = 1;
    const Trained trained = Train(cfg, data);
    for (size_t i = 0; i < data.labels.size(); ++i) {
        ASSERT_TRUE(std::isfinite(trained.predictions[i]));
        EXPECT_EQ(trained.predictions[i] > 0, data.labels[i] > 0);
    }
    double gradient, second;
    for (const double score : {-1e308, -800.0, 800.0, 1e308, HUGE_VAL, -HUGE_VAL}) {
        const double label = score > 0 ? 0 : 1;
        sylvora::LogLossGradient(&label, &score, 1, &gradient, &second);
        EXPECT_NEAR(gradient, score > 0 ? -1 : 1, 1e-300);
        EXPECT_EQ(second, 0);
    }
}

TEST(LeafValues, LabelsThatDoNotFitAreRefused) {
    const char both[] =
        "the loss \"LogLoss\" needs labels -1 and 1, or 0 and 1, and both of them; a label map "
        "(labelTran) can rename them!\n";
    const struct {
        const char* loss;
        VecDle labels;
        std::string err;
    } cases[] = {
        {"LogLoss", {0, 1, 2}, std::string("Row 2 has the label 2: ") + both},
        {"LogLoss", {1, 1, NAN}, std::string("Row 2 has the label nan: ") + both},
        {"LogLoss", {1, -1, 0}, std::string("Row 2 has the label 0, row 1 has -1: ") + both},
        {"LogLoss", {0, 1, -1}, std::string("Row 2 has the label -1: ") + both},
        {"LogLoss", {1, 1}, std::string("All rows have the label 1: ") + both},
        {"LogLoss", {0, 0}, std::string("All rows have the label 0: ") + both},
        {"Huber",
         {0, -INFINITY},
         "Row 1 has the label -inf: the loss \"Huber\" needs finite labels; "
         "remove the row!\n"},
        {"Absolute",
         {NAN},
         "Row 0 has the label nan: the loss \"Absolute\" needs finite labels; "
         "remove the row!\n"}};
    for (const auto& c : cases) {
        CheckCfgCLS cfg = Settings("GBDT", c.loss);
        TreeLearner learner(cfg);
        ASSERT_EQ(learner.DataInput(c.labels, VecVecDle(c.labels.size(), {1}), 0, {}, {}), 0);
        EXPECT_EQ(Refused([&] { return learner.ParamInit(); }), "ERROR: " + c.err);
    }
    // After the label map.
    CheckCfgCLS cfg = Settings("GBDT", "LogLoss");
    TreeLearner learner(cfg);
    ASSERT_EQ(learner.DataInput({5, 7}, {{1}, {2}}, 0, {}, {}), 0);
    learner.tranMap = {{5, 0}, {7, 1}};
    EXPECT_EQ(learner.ParamInit(), 0);
    EXPECT_EQ(learner.Boosting(), 0);
}

}  // namespace
