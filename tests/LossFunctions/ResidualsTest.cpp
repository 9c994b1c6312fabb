// Quantiles and Huber's centre, against their definitions.
#include "LossFunctions/Residuals.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <utility>

#include "Libdef.h"
#include "NodeRules.h"

namespace {

using sylvora::tests::NodeRules;
using sylvora::tests::WeightedRow;

double Quantile(const VecDle& values, double q, const VecInt& weights = {}) {
    sylvora::QuantileBuffers buffers;
    const int* const weightV = weights.empty() ? nullptr : weights.data();
    return sylvora::QuantileOf({values.data(), weightV, static_cast<int>(values.size())}, q,
                               buffers);
}

TEST(Residuals, QuantilesOfFewValues) {
    EXPECT_EQ(Quantile({3, 1, 2}, 0.5), 2);
    EXPECT_EQ(Quantile({4, 1, 3, 2}, 0.5), 2.5) << "the textbook median";
    EXPECT_EQ(Quantile({4, 1, 3, 2}, 0.25), 1.5);
    EXPECT_EQ(Quantile({4, 1, 3, 2}, 0.3), 2);
    EXPECT_EQ(Quantile({1, 2, 3}, 0.5, {1, 1, 2}), 2.5);
    EXPECT_EQ(Quantile({1, 2, 3}, 0.5, {1, 1, 3}), 3);
    EXPECT_EQ(Quantile({7}, 1e-9), 7);
    EXPECT_EQ(Quantile({7, 8}, 1 - 1e-16), 8) << "the product is rounded to the whole weight";
    EXPECT_DOUBLE_EQ(Quantile({1.7e308, 1.6e308}, 0.5), 1.65e308) << "without overflow";
    EXPECT_EQ(Quantile({}, 0.5), 0);
    EXPECT_TRUE(std::isnan(Quantile({1, NAN, 2}, 0.5)));
    EXPECT_TRUE(std::isnan(Quantile({1, HUGE_VAL, 2}, 0.5)));
}

// Sizes around those from which on a bracket is guessed, and values that make it fail: sorted, all
// alike but a few, of two kinds.
TEST(Residuals, QuantilesEqualTheDefinition) {
    std::mt19937 random(3);
    std::normal_distribution<double> normal;
    for (int sample = 0; sample < 400; ++sample) {
        const int most = sample % 10 == 0 ? 30000 : sample % 10 == 1 ? 9000 : 40;
        const int count = 1 + static_cast<int>(random() % static_cast<unsigned>(most));
        const int kind = sample / 10 % 5;
        VecDle values;
        VecInt weights;
        for (int i = 0; i < count; ++i) {
            const double value = normal(random);
            const double few = static_cast<double>(random() % 4);
            values.push_back(kind == 0   ? value
                             : kind == 1 ? few
                             : kind == 2 ? i
                             : kind == 3 ? (i % 29 == 0 ? value : 0)
                                         : (i < count / 2 ? -1 : 1));
            if (sample % 3 == 0) weights.push_back(1 + static_cast<int>(random() % 3));
            if (sample % 6 == 0 && i % 50 == 0) weights.back() = 10000;
        }
        std::vector<WeightedRow> rows;
        for (size_t i = 0; i < values.size(); ++i) {
            rows.push_back({values[i], weights.empty() ? 1 : weights[i]});
        }
        for (const double q : {0.5, 0.25, 0.1, 0.9, 0.001, 0.9999, 1.0 / 3}) {
            ASSERT_EQ(Quantile(values, q, weights), NodeRules::Quantile(rows, q))
                << "sample " << sample << ", " << count << " values, q " << q;
        }
        sylvora::QuantileBuffers buffers;
        const int* const weightV = weights.empty() ? nullptr : weights.data();
        ASSERT_EQ(sylvora::HuberCentre({values.data(), weightV, count}, 0.7, buffers),
                  NodeRules::Huber(rows, 0.7));
    }
}

TEST(Residuals, Gradients) {
    EXPECT_EQ(sylvora::AbsoluteGradient(2, 1), 1);
    EXPECT_EQ(sylvora::AbsoluteGradient(1, 2), -1);
    EXPECT_EQ(sylvora::AbsoluteGradient(1, 1), 0);
    EXPECT_EQ(sylvora::QuantileGradient(2, 1, 0.75), 0.75);
    EXPECT_EQ(sylvora::QuantileGradient(1, 2, 0.75), -0.25);
    EXPECT_EQ(sylvora::QuantileGradient(1, 1, 0.75), 0);
    EXPECT_EQ(sylvora::HuberGradient(5, 1, 3), 3);
    EXPECT_EQ(sylvora::HuberGradient(-5, 1, 3), -3);
    EXPECT_EQ(sylvora::HuberGradient(1, 3, 3), -2);
}

}  // namespace
