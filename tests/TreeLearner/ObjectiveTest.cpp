// Objectives of the user, and row weights.
#include <algorithm>
#include <climits>
#include <cmath>
#include <functional>
#include <random>
#include <stdexcept>
#include <thread>

#include "../Support.h"
#include "LossFunctions.h"
#include "Prepared.h"
#include "claim.h"

namespace {

using namespace sylvora::tests;

constexpr int kRows = 400;

VecVecDle MakeRows() {
    std::mt19937 random(5);
    VecVecDle rows(kRows, VecDle(5));
    for (VecDle& row : rows) {
        for (double& value : row) value = static_cast<double>(random() % 64) * 0.25;
    }
    return rows;
}

// Whole numbers, so that sums do not depend on their order; of two classes if wanted.
VecDle MakeLabels(bool fClasses) {
    VecDle labels;
    for (const VecDle& row : MakeRows()) {
        const double label = std::floor(row[0] * 2 + row[1] - row[2]);
        labels.push_back(!fClasses ? label : label > 20 ? 1 : 0);
    }
    return labels;
}

CheckCfgCLS MakeSettings(const char* loss, int numThread) {
    CheckCfgCLS cfg = Settings("GBDT", loss);
    cfg.numTree = 5;
    cfg.valSmpRt = cfg.ratio = 0.7;
    cfg.numThread = numThread;
    cfg.digits = 17;
    return cfg;
}

std::unique_ptr<TreeLearner> Make(const CheckCfgCLS& cfg) {
    gseed = -3;
    return Prepare(cfg, MakeLabels(cfg.lossFunc == "LogLoss"), {}, MakeRows());
}

void Train(TreeLearner& learner) {
    gseed = -3;
    EXPECT_EQ(learner.Boosting(), 0);
}

// The model text without its second line, which names the loss.
std::string Model(TreeLearner& learner) {
    const TempFolder folder;
    learner.fileModel = folder.Path("model");
    Train(learner);
    std::string text = ReadFile(learner.fileModel);
    const size_t begin = text.find('\n') + 1;
    return text.erase(begin, text.find('\n', begin) - begin);
}

// An objective and what it was called with.
struct Objective {
    std::function<int(const objective_round_t&)> compute;
    int numCalls = 0;
    std::thread::id caller = {};

    static int Call(void* context, const objective_round_t& round) {
        Objective& own = *static_cast<Objective*>(context);
        ++own.numCalls;
        EXPECT_EQ(round.round, own.numCalls);
        EXPECT_EQ(round.numRows, kRows);
        own.caller = std::this_thread::get_id();
        return own.compute(round);
    }
    void GiveTo(TreeLearner& learner) {
        learner.trainingOptions.objective = Call;
        learner.trainingOptions.objectiveContext = this;
    }
};

int Square(const objective_round_t& round) {
    EXPECT_EQ(round.hessianV, nullptr);
    for (int i = 0; i < round.numRows; ++i) {
        round.gradientV[i] = round.labelV[i] - round.scoreV[i];
    }
    return 0;
}

int LogLoss(const objective_round_t& round) {
    sylvora::LogLossGradient(round.labelV, round.scoreV, round.numRows, round.gradientV,
                             round.hessianV);
    return 0;
}

VecInt MakeWeights() {
    VecInt weights;
    for (int i = 0; i < kRows; ++i) weights.push_back(i % 3);
    return weights;
}

TEST(Objective, EqualsTheLossWithTheSameFormula) {
    for (const bool fWeights : {false, true}) {
        const VecInt weights = MakeWeights();
        const auto weigh = [&](TreeLearner& learner) {
            if (fWeights) {
                ASSERT_EQ(learner.setWeights(weights.data(), kRows), 0);
            }
        };
        for (const int numThread : {1, 4}) {
            const auto square = Make(MakeSettings("Square", numThread));
            Objective objective = {Square};
            const auto user = Make(MakeSettings("USER", numThread));
            objective.GiveTo(*user);
            weigh(*square), weigh(*user);
            const std::string expected = Model(*square);
            EXPECT_EQ(Model(*user), expected) << numThread;
            EXPECT_EQ(objective.numCalls, 5);
            EXPECT_EQ(objective.caller, std::this_thread::get_id());

            const auto logLoss = Make(MakeSettings("LogLoss", numThread));
            const auto newton =
                Prepare(MakeSettings("USER", numThread), MakeLabels(true), {}, MakeRows());
            Objective second = {LogLoss};
            second.GiveTo(*newton);
            newton->trainingOptions.fHessian = newton->trainingOptions.fStart = true;
            newton->trainingOptions.startValue =
                sylvora::LogLossStart(newton->labelTrV, fWeights ? weights.data() : nullptr, kRows);
            weigh(*logLoss), weigh(*newton);
            const std::string exact = Model(*logLoss);
            EXPECT_EQ(Model(*newton), exact) << numThread;
        }
    }
}

TEST(Objective, FailuresEndTheRunWithALine) {
    const struct {
        std::function<int(const objective_round_t&)> compute;
        const char* err;
    } cases[] = {
        {[](const objective_round_t&) -> int { throw std::runtime_error("no idea"); },
         "ERROR: The user's objective threw an exception: no idea\n"},
        {[](const objective_round_t& round) { return round.round == 2 ? 7 : LogLoss(round); },
         "ERROR: The objective failed in round 2 with status 7!\n"},
        {[](const objective_round_t& round) {
             LogLoss(round);
             if (round.round == 3) round.gradientV[17] = NAN;
             return 0;
         },
         "ERROR: In round 3 the objective gave row 17 the gradient nan: gradients must be finite, "
         "second derivatives finite and not negative!\n"},
        {[](const objective_round_t& round) {
             LogLoss(round);
             round.hessianV[399] = -1;
             return 0;
         },
         "ERROR: In round 1 the objective gave row 399 the second derivative -1: gradients must be "
         "finite, second derivatives finite and not negative!\n"},
        {[](const objective_round_t& round) {
             LogLoss(round);
             round.hessianV[0] = INFINITY;
             return 0;
         },
         "ERROR: In round 1 the objective gave row 0 the second derivative inf: gradients must be "
         "finite, second derivatives finite and not negative!\n"}};
    for (const auto& c : cases) {
        const auto learner = Make(MakeSettings("USER", 4));
        Objective objective = {c.compute};
        objective.GiveTo(*learner);
        learner->trainingOptions.fHessian = true;
        EXPECT_EQ(Refused([&] { return learner->Boosting(); }), c.err);
    }
}

TEST(Objective, OptionsThatDoNotFitAreRefused) {
    Objective objective = {Square};
    const auto refused = [&](const char* loss, const std::function<void(TreeLearner&)>& change) {
        const auto learner = Make(MakeSettings(loss, 1));
        change(*learner);
        return Refused([&] { return learner->Boosting(); });
    };
    EXPECT_EQ(refused("Square", [&](TreeLearner& learner) { objective.GiveTo(learner); }),
              "ERROR: An objective needs modelType GBDT and the loss \"USER\", not GBDT and "
              "\"Square\"!\n");
    EXPECT_EQ(
        refused("LogLoss", [&](TreeLearner& learner) { learner.trainingOptions.fStart = true; }),
        "ERROR: A start value needs modelType GBDT and the loss \"USER\", not GBDT and "
        "\"LogLoss\"!\n");
    EXPECT_EQ(
        refused("USER", [&](TreeLearner& learner) { learner.trainingOptions.fHessian = true; }),
        "ERROR: Second derivatives (fHessian) need an objective!\n");
    EXPECT_EQ(refused("USER",
                      [&](TreeLearner& learner) {
                          objective.GiveTo(learner);
                          learner.trainingOptions.fStart = true;
                          learner.trainingOptions.startValue = NAN;
                      }),
              "ERROR: The start value of the loss \"USER\" is nan: it must be finite!\n");
    EXPECT_EQ(refused("USER",
                      [](TreeLearner& learner) {
                          ASSERT_EQ(learner.setWeights(MakeWeights().data(), kRows), 0);
                      }),
              "ERROR: Weights set with setWeights need an objective, not a function of "
              "setLossFunction, which may be called with a part of the rows!\n");
    EXPECT_EQ(refused("LogLoss",
                      [](TreeLearner& learner) {
                          VecInt weights(kRows, 0);
                          weights[3] = 2;
                          ASSERT_EQ(learner.setWeights(weights.data(), kRows), 0);
                      }),
              "ERROR: All rows of a weight above 0 have the same label: the loss \"LogLoss\" needs "
              "both!\n");
}

const char* const kWeightedLosses[] = {"Square",   "Logistic", "LogLoss",
                                       "Absolute", "Huber",    "Quantile"};

CheckCfgCLS WholeData(const char* loss) {
    CheckCfgCLS cfg = MakeSettings(loss, 2);
    cfg.valSmpRt = cfg.ratio = 1;
    cfg.valShrink = 0.3;
    cfg.quantile = 0.8;
    return cfg;
}

VecDle LabelsFor(const std::string& loss) {
    VecDle labels = MakeLabels(loss == "LogLoss" || loss == "Logistic");
    if (loss == "Logistic") {
        for (double& label : labels) label = label > 0 ? 1 : -1;
    }
    return labels;
}

void ExpectSameTrees(const TreeLearner& a, const TreeLearner& b, const std::string& what) {
    SCOPED_TRACE(what);
    ASSERT_EQ(a.TreeVV.size(), b.TreeVV.size());
    for (size_t g = 0; g < a.TreeVV.size(); ++g) {
        const auto &left = a.TreeVV[g][0]->NodeV, &right = b.TreeVV[g][0]->NodeV;
        ASSERT_EQ(left.size(), right.size()) << g;
        for (size_t n = 0; n < left.size(); ++n) {
            EXPECT_EQ(left[n]->splitFea, right[n]->splitFea) << g << ' ' << n;
            EXPECT_EQ(left[n]->splitElemFea, right[n]->splitElemFea);
            EXPECT_NEAR(left[n]->avgPredict, right[n]->avgPredict,
                        1e-9 * (1 + std::fabs(right[n]->avgPredict)));
        }
    }
}

// A row of weight w is the same as w rows, as long as every row is drawn. The order of the columns
// differs, so the data must have no equally good splits: labels with much noise, and few levels.
TEST(Weights, EqualRepeatedRows) {
    std::mt19937 random(2);
    std::normal_distribution<double> normal;
    VecVecDle rows = MakeRows();
    VecDle noisy;
    for (VecDle& row : rows) {
        for (double& value : row) value += 0.1 * normal(random);
        noisy.push_back(row[0] + 0.5 * row[1] - 12 + 6 * normal(random));
    }
    const VecInt weights = MakeWeights();
    for (const char* loss : kWeightedLosses) {
        CheckCfgCLS cfg = WholeData(loss);
        cfg.numTree = 3;
        cfg.maxDepth = 2;
        VecDle labels = noisy;
        for (double& label : labels) {
            if (*loss == 'L') label = label > 0 ? 1 : -1;
        }
        VecVecDle repeated;
        VecDle repeatedLabels;
        for (size_t i = 0; i < rows.size(); ++i) {
            const size_t weight = static_cast<size_t>(weights[i]);
            repeated.insert(repeated.end(), weight, rows[i]);
            repeatedLabels.insert(repeatedLabels.end(), weight, labels[i]);
        }
        const auto weighted = Prepare(cfg, labels, {}, rows);
        ASSERT_EQ(weighted->setWeights(weights.data(), kRows), 0);
        const auto plain = Prepare(cfg, repeatedLabels, {}, repeated);
        Train(*weighted);
        Train(*plain);
        ExpectSameTrees(*weighted, *plain, loss);
        // A second run starts over, with the same weights.
        std::fill_n(weighted->predictV, kRows, 0.0);
        Train(*weighted);
        ExpectSameTrees(*weighted, *plain, loss);
    }
}

// Their labels may be anything that the loss allows.
TEST(Weights, RowsOfWeight0DoNotCount) {
    VecInt weights(kRows, 1);
    for (size_t i = 0; i < weights.size(); i += 5) weights[i] = 0;
    for (const char* loss : kWeightedLosses) {
        VecDle labels = LabelsFor(loss);
        const auto one = Prepare(WholeData(loss), labels, {}, MakeRows());
        for (size_t i = 0; i < weights.size(); i += 5) {
            const double other = labels[i] > 0 ? labels[1] : labels[2];
            labels[i] = *loss == 'L' ? other : 1e6;
        }
        const auto other = Prepare(WholeData(loss), labels, {}, MakeRows());
        for (const auto* learner : {&one, &other}) {
            ASSERT_EQ((*learner)->setWeights(weights.data(), kRows), 0);
            Train(**learner);
        }
        ExpectSameTrees(*one, *other, loss);
        EXPECT_EQ(one->predictV[0], other->predictV[0]);
    }
}

// The gradient of a CART or a forest is the label.
TEST(Weights, ReachTreesOfLabels) {
    for (const char* type : {"CART", "RandomForest"}) {
        CheckCfgCLS cfg = Settings(type, "Label");
        cfg.maxDepth = 1;
        cfg.valShrink = 1;
        const auto learner = Prepare(cfg, {1, 2, 30, 60}, {}, {{0}, {0}, {1}, {1}});
        const int weights[] = {1, 3, 2, 1};
        ASSERT_EQ(learner->setWeights(weights, 4), 0);
        ASSERT_EQ(learner->Boosting(), 0);
        double score = 0, row[] = {0};
        ASSERT_EQ(learner->OnlineTesting(row, score, 1, nullptr), 0);
        EXPECT_EQ(score, 7 / 4.0) << type;
        row[0] = 1;
        ASSERT_EQ(learner->OnlineTesting(row, score, 1, nullptr), 0);
        EXPECT_EQ(score, 40) << type;
    }
}

TEST(Weights, ThatDoNotFitAreRefused) {
    const int good[] = {1, 1}, negative[] = {1, -2}, none[] = {0, 0}, large[] = {INT_MAX, 1};
    const auto learner = Prepare(Settings("GBDT", "Square"), {1, 2});
    const auto refused = [](TreeLearner& own, const int* weights, int count) {
        return Refused([&] { return own.setWeights(weights, count); });
    };
    EXPECT_EQ(refused(*learner, good, 1), "ERROR: There are 1 weights for 2 training rows!\n");
    EXPECT_EQ(refused(*learner, nullptr, 2), "ERROR: There are 0 weights for 2 training rows!\n");
    EXPECT_EQ(refused(*learner, negative, 2),
              "ERROR: Row 1 has the weight -2: weights must be 0 or more!\n");
    EXPECT_EQ(refused(*learner, none, 2),
              "ERROR: All weights are 0: at least one must be above 0!\n");
    EXPECT_EQ(refused(*learner, large, 2),
              "ERROR: The weights add up to 2147483648, more than 2147483647: use smaller "
              "weights!\n");
    EXPECT_EQ(learner->numPairDistinctQueV[0], 1) << "nothing was changed";
    TreeLearner fresh;
    EXPECT_EQ(refused(fresh, good, 2), "ERROR: setWeights needs ParamInit first!\n");
    const auto ranker = Prepare(Settings("GBRank", "CrossEntropy"), {1, 2}, {2});
    EXPECT_EQ(refused(*ranker, good, 2),
              "ERROR: Weights are for regressions other than GBRank, not for GBRank!\n");
    CheckCfgCLS cfg = Settings("CART", "Label");
    cfg.fRegCls = "CLS";
    cfg.numClass = 2;
    TreeLearner classes(cfg);
    ASSERT_EQ(classes.DataInput({0, 1}, {{0}, {1}}, 0, {}, {}), 0);
    ASSERT_EQ(classes.ParamInit(), 0);
    EXPECT_EQ(refused(classes, good, 2),
              "ERROR: Weights are for regressions other than GBRank, not for classifications!\n");
}

}  // namespace
