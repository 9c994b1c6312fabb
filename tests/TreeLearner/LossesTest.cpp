// Gradients and weights in cases that golden runs do not cover.
#include <algorithm>
#include <cmath>
#include <numeric>
#include <random>
#include <tuple>

#include "../Support.h"
#include "Prepared.h"
#include "god/CorrectRounding.h"

namespace {

using namespace sylvora::tests;

// The gradients after a worker computed the rows begin..end; all others are 99.
VecDle Gradients(TreeLearner& learner, const VecDle& predictions, int begin, int end) {
    std::copy(predictions.begin(), predictions.end(), learner.predictV);
    std::fill_n(learner.gradientV, learner.sampleSize, 99.0);
    boosting_info_t share = {&learner, begin, end};
    EXPECT_EQ(CalLossThreadFunction(&share), nullptr);
    return VecDle(learner.gradientV, learner.gradientV + learner.sampleSize);
}

TEST(Losses, HingeSquareEndsAtTheMargin) {
    const auto learner = Prepare(Settings("GBDT", "HingeSquare"), {1, 1, -1, -1});
    EXPECT_EQ(Gradients(*learner, {0.99, 1, -0.99, -1}, 0, 3), (VecDle{1, 0, -1, 0}));
    EXPECT_EQ(Gradients(*learner, VecDle(4), 2, 1), VecDle(4, 99)) << "an empty range";
}

// Only rows of one query form pairs, and a range that splits a query has only the pairs inside it.
TEST(Losses, OfPairsStayInsideQueryAndRange) {
    const auto learner = Prepare(Settings("GBRank", "CrossEntropy"), {2, 1, 0, 5, 4}, {3, 2});
    const VecDle predictions = {0.1, 0.4, -0.3, 7, 9};
    const VecDle whole = Gradients(*learner, predictions, 0, 4);
    EXPECT_NEAR(whole[0] + whole[1] + whole[2], 0, 1e-15);
    EXPECT_EQ(whole[3], -whole[4]);
    EXPECT_EQ(Gradients(*learner, predictions, 0, 2),
              (VecDle{whole[0], whole[1], whole[2], 99, 99}));
    EXPECT_EQ(Gradients(*learner, predictions, 2, 3), (VecDle{99, 99, 0, 0, 99}));
}

// Rows and pairs are computed in blocks, which must not show. The range begins and ends
// inside blocks, and inside a query.
TEST(Losses, OfManyRowsAreTheFormulas) {
    const int numRows = 1100, begin = 7, end = 1050;
    std::mt19937 random(4);
    std::normal_distribution<double> normal(0, 3);
    VecDle classes, grades, predictions;
    for (int i = 0; i < numRows; ++i) {
        classes.push_back(i % 3 == 0 ? 1 : -1);
        grades.push_back(static_cast<double>(random() % 3));
        predictions.push_back(normal(random));
    }
    const auto rows = [&](const char* loss) {
        return Gradients(*Prepare(Settings("GBDT", loss), classes), predictions, begin, end);
    };
    const VecDle logistic = rows("Logistic"), exponential = rows("Exponential");
    const VecInt lengths(static_cast<size_t>(numRows / 50), 50);
    const auto ranking = Prepare(Settings("GBRank", "CrossEntropy"), grades, lengths);
    VecDle pairs(static_cast<size_t>(numRows), 99);
    std::fill(pairs.begin() + begin, pairs.begin() + end + 1, 0.0);
    for (size_t i = begin; i <= end; ++i) {
        const double y = classes[i], e = sylvora::Exp(-y * predictions[i]);
        ASSERT_EQ(logistic[i], y * sylvora::Log(1 + e)) << i;
        ASSERT_EQ(exponential[i], y * e) << i;
        for (size_t j = i + 1; j <= end && j / 50 == i / 50; ++j) {
            const double d = predictions[i] - predictions[j];
            const double margin = ranking->valTau * std::fabs(grades[i] - grades[j]);
            const double s = grades[i] > grades[j]   ? 1 / (1 + sylvora::Exp(d - margin))
                             : grades[j] > grades[i] ? -1 / (1 + sylvora::Exp(-d - margin))
                                                     : 0;
            pairs[i] += s;
            pairs[j] -= s;
        }
    }
    EXPECT_EQ(Gradients(*ranking, predictions, begin, end), pairs);
    EXPECT_EQ(logistic[end + 1], 99);
    EXPECT_EQ(exponential[begin - 1], 99);
}

int TwiceTheLabel(double* labelV, double* predictV, double** gradientV, int count) {
    for (int i = 0; i < count; ++i) (*gradientV)[i] = 2 * labelV[i] - predictV[i];
    return 0;
}

int Refuse(double*, double*, double**, int) {
    return 1;
}

TEST(Losses, AUserLossGetsTheFirstRowsWhateverTheRange) {
    const auto learner = Prepare(Settings("GBDT", "USER"), {1, 2, 3, 4});
    learner->setLossFunction(TwiceTheLabel);
    EXPECT_EQ(Gradients(*learner, {0, 1, 0, 1}, 2, 3), (VecDle{2, 3, 99, 99}));
}

TEST(Losses, FailuresNameTheLoss) {
    const char userFailed[] =
        "ERROR: Failed to compute the negative gradient of loss function by user given loss!\n"
        "ERROR: Failed when computing the regression gradient!\n";
    const struct {
        const char *lossFunc, *fRegCls;
        LossFuncType function;
        const char* expected;
    } cases[] = {
        {"Hinge", "REG", nullptr,
         "ERROR: Such loss function for regression: \"Hinge\" is not supported yet!\n"},
        {"Square", "CLS", nullptr, "ERROR: modelType does not exist: CART for classification!\n"},
        {"USER", "CLS", Refuse, userFailed},
        {"USER", "REG", nullptr, userFailed}};
    for (const auto& c : cases) {
        CheckCfgCLS cfg = Settings("CART", c.lossFunc);
        cfg.fRegCls = c.fRegCls;
        const auto learner = Prepare(cfg, {0, 1});
        learner->setLossFunction(c.function);
        boosting_info_t share = {learner.get(), 0, 1};
        const auto seen = Observe([&] {
            return static_cast<int>(reinterpret_cast<intptr_t>(CalLossThreadFunction(&share)));
        });
        EXPECT_EQ(seen.status, -1) << "the exit value of a failed worker";
        EXPECT_EQ(seen.err, c.expected);
    }
}

TEST(Losses, AWeightIsTheNumberOfPartnersWithAnotherLabel) {
    const auto learner = Prepare(Settings("GBRank", "CrossEntropy"),
                                 {1, 1, 0, 1, 3, NAN, NAN, 0, -0.0}, {3, 1, 3, 2});
    const int* weightV = learner->numPairDistinctQueV;
    EXPECT_EQ(VecInt(weightV, weightV + 9), (VecInt{1, 1, 2, 0, 2, 2, 2, 0, 0}));
    const auto equal = Prepare(Settings("GBDT", "Square"), {1, 2});
    EXPECT_EQ(VecInt(equal->numPairDistinctQueV, equal->numPairDistinctQueV + 2), VecInt(2, 1));
}

// Nodes add weights up as ints. Two queries have 2^31 pair weights in all, the larger one most of
// them: without a row, a tree can have fewer, but not without the smaller query.
TEST(Losses, PairWeightsOfOneTreesRowsMustFitAnInt) {
    const char refused[] =
        "ERROR: The pair weights of the rows of one tree can add up to 2147534622, more than "
        "2147483647: split large queries or lower valSmpRt!\n";
    for (const auto& [randomMode, valSmpRt, err] :
         {std::tuple("DOC", 0.999, ""), {"QUERY", 0.5, refused}}) {
        CheckCfgCLS cfg = Settings("GBRank", "CrossEntropy");
        cfg.randomMode = randomMode;
        cfg.valSmpRt = valSmpRt;
        TreeLearner learner(cfg);
        VecDle labels(46347);
        std::iota(labels.begin(), labels.end(), 0.0);
        VecInt queries(labels.size(), 0);
        std::fill_n(queries.rbegin(), 5, 1);
        ASSERT_EQ(learner.DataInput(labels, VecVecDle(labels.size(), {1}), 0, queries, {}), 0);
        const auto seen = Observe([&] { return learner.ComputeDistinctPair(); });
        EXPECT_EQ(seen.err, err) << randomMode;
        EXPECT_EQ(seen.status, *err == '\0' ? 0 : -1);
    }
}

}  // namespace
