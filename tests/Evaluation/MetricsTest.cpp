// Metrics against plain implementations of their definitions.
#include "Evaluation/Metrics.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <map>
#include <string>
#include <vector>

#include "Evaluation/NamedMetrics.h"
#include "Evaluation/Pairs.h"
#include "Evaluation/Ranking.h"

namespace {

using namespace sylvora;

constexpr double kNan = std::numeric_limits<double>::quiet_NaN();
constexpr double kInfinity = std::numeric_limits<double>::infinity();

struct Rows {
    VecDle scoreV, labelV;
    ScoredRows View() const { return {scoreV.data(), labelV.data(), scoreV.size()}; }
};

// Scores with many ties, with values that differ in their last bits only, and some NaNs.
Rows RandomRows(std::mt19937& random, size_t count, int numLabels) {
    Rows rows;
    for (size_t i = 0; i < count; ++i) {
        const double base = static_cast<int>(random() % 9) - 4.0;
        const double odd[] = {base, std::nextafter(base, 9.0),     base * 1e-310, -0.0,
                              kNan, static_cast<double>(random()), -kInfinity};
        rows.scoreV.push_back(odd[random() % 7]);
        rows.labelV.push_back(static_cast<double>(random() % static_cast<unsigned>(numLabels)));
    }
    rows.labelV[0] = 0.0;
    rows.labelV[1] = 1.0;
    return rows;
}

// Rank of a score among others: NaN is below everything.
int Compare(double a, double b) {
    if (std::isnan(a) || std::isnan(b)) return static_cast<int>(std::isnan(b)) - std::isnan(a);
    return (a > b) - (a < b);
}

PairCount PlainPairs(const Rows& rows) {
    PairCount pairs;
    for (size_t i = 0; i < rows.scoreV.size(); ++i) {
        for (size_t j = 0; j < rows.scoreV.size(); ++j) {
            if (!(rows.labelV[i] < rows.labelV[j])) continue;
            pairs.all += 1.0;
            pairs.ordered += 0.5 + 0.5 * Compare(rows.scoreV[j], rows.scoreV[i]);
        }
    }
    return pairs;
}

TEST(Metrics, PairsAreThoseOfTheDefinition) {
    std::mt19937 random(5);
    for (const size_t count : {2U, 3U, 10U, 24U, 60U, 200U, 769U, 2000U}) {
        for (const int numLabels : {2, 5}) {
            const Rows rows = RandomRows(random, count, numLabels);
            const PairCount expected = PlainPairs(rows);
            std::vector<ScoredRow> group;
            for (size_t i = 0; i < count; ++i) group.push_back({rows.scoreV[i], rows.labelV[i]});
            const PairCount seen = CountPairs(group);
            EXPECT_EQ(seen.ordered, expected.ordered) << count;
            EXPECT_EQ(seen.all, expected.all) << count;
            const bool fTwo = HasTwoValues(rows.labelV.data(), count);
            EXPECT_TRUE(fTwo || numLabels > 2);
            if (fTwo) EXPECT_EQ(AreaUnderCurve(rows.View()), expected.ordered / expected.all);
        }
    }
    const VecDle one = {3.0, 3.0}, three = {1.0, 2.0, 3.0};
    EXPECT_FALSE(HasTwoValues(one.data(), 2));
    EXPECT_FALSE(HasTwoValues(three.data(), 3));
}

// The NDCG of one query: every row counts with the mean gain of the rows that share its score.
double PlainGain(const Rows& query, size_t cutoff, bool fIdeal) {
    std::vector<std::pair<double, double>> rankedV;  // what is sorted by, and the gain
    for (size_t i = 0; i < query.labelV.size(); ++i) {
        const double gain = std::exp2(query.labelV[i]) - 1.0;
        rankedV.emplace_back(fIdeal ? gain : query.scoreV[i], gain);
    }
    std::stable_sort(rankedV.begin(), rankedV.end(),
                     [](const auto& a, const auto& b) { return Compare(a.first, b.first) > 0; });
    double sum = 0.0;
    for (size_t at = 0; at < std::min(cutoff, rankedV.size()); ++at) {
        double gain = 0.0, equal = 0.0;
        for (const auto& other : rankedV) {
            if (Compare(other.first, rankedV[at].first) != 0) continue;
            gain += other.second;
            equal += 1.0;
        }
        sum += gain / equal / std::log2(static_cast<double>(at) + 2.0);
    }
    return sum;
}

TEST(Metrics, GainsAreThoseOfTheDefinition) {
    constexpr size_t kCount = 500;
    std::mt19937 random(6);
    const Rows rows = RandomRows(random, kCount, 4);
    VecInt queryV;
    std::map<int, Rows> queryM;
    for (size_t i = 0; i < kCount; ++i) {
        // Query 40 has only rows without a gain.
        int query = static_cast<int>(random() % 30) - 7;
        if (random() % 4 == 0) query = 30;  // a long one
        if (rows.labelV[i] == 0.0 && random() % 4 == 0) query = 40;
        queryV.push_back(query);
        queryM[query].scoreV.push_back(rows.scoreV[i]);
        queryM[query].labelV.push_back(rows.labelV[i]);
    }
    const std::vector<size_t> cutoffV = {1, 3, 10, 50};
    const RankedQueries queries(rows.labelV.data(), queryV.data(), kCount, cutoffV);
    EXPECT_EQ(queries.NumQueries(), queryM.size());
    const VecDle seen = queries.MeanGains(rows.scoreV.data());
    PairCount pairs;
    double numRelevant = 0.0;
    VecDle sumV(cutoffV.size(), 0.0);
    for (const auto& [id, query] : queryM) {
        const PairCount ofQuery = PlainPairs(query);
        pairs.ordered += ofQuery.ordered;
        pairs.all += ofQuery.all;
        if (!(PlainGain(query, 1, true) > 0.0)) continue;
        numRelevant += 1.0;
        for (size_t k = 0; k < cutoffV.size(); ++k) {
            sumV[k] += PlainGain(query, cutoffV[k], false) / PlainGain(query, cutoffV[k], true);
        }
    }
    EXPECT_EQ(static_cast<double>(queries.NumRelevant()), numRelevant);
    EXPECT_LT(queries.NumRelevant(), queries.NumQueries());
    for (size_t k = 0; k < cutoffV.size(); ++k) {
        EXPECT_NEAR(seen[k], sumV[k] / numRelevant, 1e-13);
    }
    EXPECT_EQ(queries.OrderedPairs(rows.scoreV.data()), pairs.ordered / pairs.all);
}

TEST(Metrics, MeansAreThoseOfTheDefinition) {
    const Rows rows = {{1.0, -2.0, 0.5, 3.0}, {0.0, 1.0, 1.0, 0.0}};
    EXPECT_EQ(RootMeanSquareError(rows.View()), std::sqrt((1.0 + 9.0 + 0.25 + 9.0) / 4.0));
    EXPECT_EQ(MeanAbsoluteError(rows.View()), (1.0 + 3.0 + 0.5 + 3.0) / 4.0);
    EXPECT_EQ(MeanPinballLoss(rows.View(), 0.75), (0.25 + 2.25 + 0.375 + 0.75) / 4.0);
    EXPECT_EQ(ShareOfSigns(rows.View()), 0.25);
    const Rows odd = {{kNan, -0.5, 0.0}, {0.0, 0.0, 0.0}};
    EXPECT_EQ(ShareOfSigns(odd.View()), 2.0 / 3.0);
    EXPECT_EQ(ShareOfClasses(odd.View()), 2.0 / 3.0);
    EXPECT_TRUE(std::isnan(RootMeanSquareError(odd.View())));
    EXPECT_TRUE(std::isnan(MeanPinballLoss(odd.View(), 0.5)));
    EXPECT_TRUE(std::isnan(MeanLogLoss(odd.View(), Link::kLogit)));
}

long double PlainProbability(Link link, long double f) {
    if (link == Link::kHalfLogit) f *= 2.0L;
    if (link != Link::kSoftplusShare) return 1.0L / (1.0L + std::exp(-f));
    const auto softplus = [](long double x) {
        return std::max(x, 0.0L) + std::log1p(std::exp(-std::fabs(x)));
    };
    return softplus(f) / (softplus(f) + softplus(-f));
}

TEST(Metrics, LinksAreAccurateAtEveryScore) {
    EXPECT_EQ(LinkOf("Square"), Link::kNone);
    EXPECT_EQ(LinkOf("HingeSquare"), Link::kNone);
    for (const char* loss : {"LogLoss", "Exponential", "Logistic"}) {
        const Link link = LinkOf(loss);
        VecDle scoreV;
        for (double f = 1e-320; f < 700.0; f *= f < 1.0 ? 1e20 : 1.01) scoreV.push_back(f);
        const size_t half = scoreV.size();
        for (size_t i = 0; i < half; ++i) scoreV.push_back(-scoreV[i]);
        VecDle seenV(scoreV.size());
        ProbabilitiesOf(link, scoreV.data(), scoreV.size(), seenV.data());
        for (size_t i = 0; i < scoreV.size(); ++i) {
            const double expected =
                static_cast<double>(PlainProbability(link, static_cast<long double>(scoreV[i])));
            EXPECT_NEAR(seenV[i], expected, 1e-15 * expected + 1e-320) << loss << scoreV[i];
        }
        const VecDle farV = {0.0, 1e6, -1e6, 1e308, -1e308, kInfinity, -kInfinity};
        VecDle atV(farV.size());
        ProbabilitiesOf(link, farV.data(), farV.size(), atV.data());
        EXPECT_EQ(atV, (VecDle{0.5, 1.0, 0.0, 1.0, 0.0, 1.0, 0.0})) << loss;
        double nan = kNan;
        ProbabilitiesOf(link, &nan, 1, &nan);
        EXPECT_TRUE(std::isnan(nan)) << loss;
    }
}

TEST(Metrics, LogLossIsLimited) {
    Rows rows;
    double sum = 0.0;
    for (int i = 0; i < 600; ++i) {
        const double score = (i - 300) * 0.05;
        rows.scoreV.push_back(score);
        rows.labelV.push_back(i % 3 == 0 ? 1.0 : -1.0);
        sum += std::log1p(std::exp(i % 3 == 0 ? -score : score));
    }
    EXPECT_NEAR(MeanLogLoss(rows.View(), Link::kLogit), sum / 600.0, 1e-13);
    const Rows wrong = {{-1e9, 1e9}, {1.0, 0.0}};
    const Rows right = {{1e9, -1e9}, {1.0, 0.0}};
    for (const Link link : {Link::kLogit, Link::kHalfLogit, Link::kSoftplusShare}) {
        EXPECT_NEAR(MeanLogLoss(wrong.View(), link), -std::log(1e-15), 1e-13);
        EXPECT_NEAR(MeanLogLoss(right.View(), link), 1e-15, 1e-16);
    }
}

TEST(Metrics, NamesAreReadExactly) {
    for (const char* name :
         {"rmse", "mae", "pinball", "logloss", "auc", "accuracy", "pairs", "ndcg@1", "ndcg@100"}) {
        EXPECT_NE(NamedMetric::Parse(name).kind, NamedMetric::kUnknown) << name;
    }
    for (const char* name : {"", "RMSE", "rmse ", "ndcg", "ndcg@", "ndcg@0", "ndcg@-1", "ndcg@1.5",
                             "ndcg@1e1", "ndcg@99999999999", "nd"}) {
        EXPECT_EQ(NamedMetric::Parse(name).kind, NamedMetric::kUnknown) << name;
    }
    EXPECT_EQ(NamedMetric::Parse("ndcg@25").cutoff, 25U);
    EXPECT_TRUE(NamedMetric::Parse("ndcg@5").IsLargerBetter());
    EXPECT_FALSE(NamedMetric::Parse("logloss").IsLargerBetter());
}

TEST(Metrics, DefaultsSuitTheLoss) {
    typedef std::vector<std::string> Names;
    struct Case {
        MetricContext context;
        Names metrics;
        const char* stop;
    };
    const Case cases[] = {
        {{"GBDT", "Square", false, 0.5}, {"rmse", "mae"}, "rmse"},
        {{"GBDT", "Huber", false, 0.5}, {"rmse", "mae"}, "rmse"},
        {{"GBDT", "Quantile", false, 0.5}, {"pinball", "mae"}, "pinball"},
        {{"GBDT", "LogLoss", false, 0.5}, {"logloss", "auc", "accuracy"}, "logloss"},
        {{"GBDT", "Logistic", false, 0.5}, {"logloss", "auc", "accuracy"}, "logloss"},
        {{"GBDT", "HingeSquare", false, 0.5}, {"auc", "accuracy"}, "auc"},
        {{"GBDT", "USER", false, 0.5}, {"rmse"}, "rmse"},
        {{"GBRank", "CrossEntropy", false, 0.5}, {"ndcg@10", "pairs"}, "ndcg@10"},
        {{"RandomForest", "Label", true, 0.5}, {"accuracy"}, "rmse"},
        {{"CART", "Label", false, 0.5}, {"rmse", "mae"}, "rmse"}};
    for (const Case& each : cases) {
        EXPECT_EQ(DefaultMetrics(each.context), each.metrics) << each.context.lossFunc;
        EXPECT_EQ(DefaultStopMetric(each.context), each.stop) << each.context.lossFunc;
    }
}

}  // namespace
