// The index sort: it sorts, only permutes, stays inside its range, and puts equal values in exactly
// the order that models depend on.
#include <gtest/gtest.h>

#include <algorithm>
#include <limits>
#include <numeric>
#include <random>
#include <vector>

#include "Sort.h"

namespace {

std::vector<int> Ascending(int n) {
    std::vector<int> I(static_cast<size_t>(n));
    std::iota(I.begin(), I.end(), 0);
    return I;
}

// k * 7919 mod m for k < n: each value occurs about n / m times, unsorted.
std::vector<double> Pattern(int n, int m) {
    std::vector<double> v;
    for (int k = 0; k < n; ++k) v.push_back(k * 7919 % m);
    return v;
}

std::vector<int> OrderOf(std::vector<double> v) {
    std::vector<int> I = Ascending(static_cast<int>(v.size()));
    R_tsort_I(v.data(), I.data(), 1, static_cast<int>(v.size()));
    return I;
}

// Expected values were computed by a literal transcription of Algorithm 347 into Python.
TEST(IndexSort, KnownOrdersOfEqualValues) {
    EXPECT_EQ(OrderOf(Pattern(14, 1)),
              (std::vector<int>{0, 8, 9, 10, 11, 12, 7, 6, 5, 4, 3, 2, 1, 13}));
    EXPECT_EQ(OrderOf(Pattern(24, 3)),
              (std::vector<int>{0,  12, 15, 18, 21, 9, 6,  3,  14, 20, 2,  17,
                                23, 11, 5,  8,  13, 4, 16, 10, 19, 1,  22, 7}));
    long sum = 0;
    for (const int m : {1, 2, 5, 31, 1009}) {
        for (int n = 0; n <= 300; ++n) {
            for (const int index : OrderOf(Pattern(n, m)))
                sum = (sum * 31 + index + 1) % 1000000007;
        }
    }
    EXPECT_EQ(sum, 690034764);
}

// Sorts a range inside random arrays, with and without NaN.
TEST(IndexSort, SortsARangeAndTouchesNothingElse) {
    const double nan = std::numeric_limits<double>::quiet_NaN();
    std::mt19937 random(1);
    for (int round = 0; round < 3000; ++round) {
        const int n = static_cast<int>(random() % 200);
        const int begin = static_cast<int>(random() % 3);  // entries before the range
        const bool fWithNan = round % 2 != 0;
        const auto numValues = 1 + random() % 50;
        // Guards outside the range, with values that would move if they were compared.
        std::vector<double> v(static_cast<size_t>(begin + n + 2), round % 3 == 0 ? -1e9 : 25.0);
        for (int k = begin; k < begin + n; ++k) {
            v[static_cast<size_t>(k)] =
                fWithNan && random() % 4 == 0 ? nan : static_cast<double>(random() % numValues);
        }
        const std::vector<double> before = v;
        std::vector<int> I = Ascending(begin + n + 2);
        R_tsort_I(v.data(), I.data(), begin + 1, begin + n);

        for (size_t k = 0; k < v.size(); ++k) {  // values and indices were permuted alike
            const double value = before[static_cast<size_t>(I[k])];
            ASSERT_TRUE(v[k] == value || (v[k] != v[k] && value != value));
        }
        std::vector<int> sorted = I;
        std::sort(sorted.begin(), sorted.end());
        ASSERT_EQ(sorted, Ascending(begin + n + 2));
        for (const int k : {begin - 1, begin + n, begin + n + 1}) {
            ASSERT_TRUE(k < 0 || I[static_cast<size_t>(k)] == k);
        }
        ASSERT_TRUE(fWithNan || std::is_sorted(v.begin() + begin, v.begin() + begin + n));
    }
}

}  // namespace
