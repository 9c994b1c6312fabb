// Checks the arithmetic of the reference implementation and the tables of the fast path against GNU
// MPFR, with the error bounds of docs/exact-math.md.
#include "god/WideExpLog.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>

#include "Mpfr.h"
#include "god/ExpLogTables.h"

namespace {

using namespace sylvora;
using sylvora::tests::Difference;
using sylvora::tests::Number;

constexpr int kBits = 700;  // enough for exact products of wide numbers

double Units(double count) {
    return std::ldexp(count, -Wide::kFractionBits);
}

TEST(WideNumber, Arithmetic) {
    std::mt19937_64 random(1);
    for (int i = 0; i < 2000; ++i) {
        // Numbers of all sizes, with integer parts small enough for a product.
        const auto draw = [&random] {
            Wide wide = {
                {random(), random(), random(), random(), random() >> (34 + random() % 30)}};
            for (int k = Wide::kLimbs - 1; k > 1 && random() % 2 == 0; --k) {
                wide.limbV[k] = random() % 2 == 0 ? 0 : ~std::uint64_t{0} * (k < 4);
            }
            return wide;
        };
        const Wide a = draw(), b = draw();
        const int n = static_cast<int>(random() % 1000 + 1);
        Number exact(kBits, a), other(kBits, b);
        mpfr_sub(exact, exact, other, MPFR_RNDN);
        ASSERT_EQ(Difference(exact, Number(kBits, a - b)), 0);
        mpfr_add(exact, exact, other, MPFR_RNDN);
        ASSERT_EQ(Difference(exact, Number(kBits, (a - b) + b)), 0);
        mpfr_mul(exact, exact, other, MPFR_RNDN);
        const double ofProduct = Difference(exact, Number(kBits, a * b));
        ASSERT_TRUE(ofProduct >= 0 && ofProduct < Units(1));
        mpfr_div_ui(other, other, static_cast<unsigned long>(n), MPFR_RNDN);
        const double ofQuotient = Difference(other, Number(kBits, b / n));
        ASSERT_TRUE(ofQuotient > -Units(1e-9) && ofQuotient < Units(1));
    }
}

TEST(WideNumber, FromAndToDoubles) {
    for (const double value : {1.0, -1.0, 0x1.fffffffffffffp61, -0x1.8p-106, 0x1.123456789abcdp-3,
                               0x1.fffffffffffffp-64, 0.0, 0x1p-300}) {
        const double kept = std::fabs(value) < 0x1p-256 ? 0.0 : value;
        EXPECT_EQ(Difference(Number(kBits, kept), Number(kBits, WideNumber(value))), 0) << value;
    }
    const Wide one = WholeNumber(1), belowTwo = WholeNumber(2) - WideNumber(0x1p-60);
    const Wide belowOne = one - WideNumber(0x1p-60);
    EXPECT_EQ(NearestDouble(belowTwo, 0), 2.0) << "a carry";
    EXPECT_EQ(NearestDouble(belowTwo, 1023), std::numeric_limits<double>::infinity());
    EXPECT_EQ(NearestDouble(one, 1024), std::numeric_limits<double>::infinity());
    EXPECT_EQ(NearestDouble(belowTwo, -1023), 0x1p-1022) << "a carry out of the subnormal numbers";
    EXPECT_EQ(NearestDouble(belowTwo, -1075), 0x1p-1074);
    EXPECT_EQ(NearestDouble(belowOne, -1075), 0.0);
    EXPECT_EQ(NearestDouble(one, -1080), 0.0);
    EXPECT_EQ(NearestDouble(WideNumber(0x1.8p-100), -900), 0x1.8p-1000);
    // Slightly above a midpoint; slightly below it; and a subnormal result, which must be rounded
    // only once.
    EXPECT_EQ(NearestDouble(one + WideNumber(0x1p-53) + WideNumber(0x1p-200), 0), 1 + 0x1p-52);
    EXPECT_EQ(NearestDouble(one + WideNumber(0x1p-53) - WideNumber(0x1p-200), 0), 1.0);
    EXPECT_EQ(NearestDouble(one + WideNumber(0x1p-2) - WideNumber(0x1p-60), -1073), 0x1p-1073);
}

TEST(WideExpLog, KeepsItsBounds) {
    std::mt19937_64 random(2);
    std::uniform_real_distribution<double> exponents(-1100, 1100), reduced(0.7, 1.42);
    double worst = 0;
    for (int i = 0; i < 3000; ++i) {
        const double x = i % 3 == 0 ? exponents(random) : std::ldexp(exponents(random), -i % 80);
        const Power power = WideExp(WideNumber(x), static_cast<int>(x * 1.5));
        Number exact(kBits, x);
        exact.Apply(mpfr_exp);
        mpfr_mul_2si(exact, exact, -power.exponent, MPFR_RNDN);
        const double ofExp = std::fabs(Difference(exact, Number(kBits, power.value)));
        ASSERT_LE(ofExp, Units(0x1p13)) << x;
        const double z =
            i % 2 == 0 ? reduced(random) : 1 + std::ldexp(reduced(random), -2 - i % 51);
        const double ofLog =
            Difference(Number(kBits, z).Apply(mpfr_log), Number(kBits, WideLog(z)));
        ASSERT_LE(std::fabs(ofLog), Units(0x1p13)) << z;
        worst = std::max(worst, ofExp);
    }
    EXPECT_GE(worst, Units(1)) << "too good to be measured";
}

// Checks that high is a multiple of 2^exponent, and that high + low differs from `exact` by at most
// half a unit in the last place of low.
void ExpectParts(double high, double low, int exponent, Number& exact) {
    EXPECT_EQ(std::ldexp(high, -exponent), std::rint(std::ldexp(high, -exponent)));
    Number sum(kBits, high);
    mpfr_add_d(sum, sum, low, MPFR_RNDN);
    EXPECT_LE(std::fabs(Difference(exact, sum)), std::ldexp(std::fabs(low), -53)) << high;
    EXPECT_LE(std::fabs(low), std::ldexp(1.0, exponent - 1)) << high;
}

Number& Ln2(Number& number) {
    mpfr_const_log2(number, MPFR_RNDN);
    return number;
}

TEST(ExpLogTables, AreWhatTheirNamesSay) {
    for (int j = 0; j < kExpEntries; ++j) {
        Number exact(kBits, j / double{kExpEntries});
        const double* entry = kExpTable + j * kExpMembers;
        ExpectParts(entry[0], entry[1], -26, exact.Apply(mpfr_exp2));
    }
    for (int i = 0; i < kLogEntries; ++i) {
        const double* entry = kLogTable + i * kLogMembers;
        Number exact(kBits, entry[0]);
        exact.Apply(mpfr_log);
        mpfr_neg(exact, exact, MPFR_RNDN);
        ExpectParts(entry[1], entry[2], -42, exact);
        EXPECT_EQ(entry[0] * 512, std::rint(entry[0] * 512));
    }
    Number ln2(kBits);
    ExpectParts(kLn2High, kLn2Low, -42, Ln2(ln2));
    EXPECT_LE(std::fabs(Difference(Number(kBits, kLn2), ln2)), Units(1));
    mpfr_ui_div(ln2, 1, ln2, MPFR_RNDN);
    EXPECT_LE(std::fabs(Difference(Number(kBits, kInverseOfLn2), ln2)), Units(1));
    mpfr_div_ui(ln2, Ln2(ln2), kExpEntries, MPFR_RNDN);
    ExpectParts(kExpStepHigh, kExpStepLow, -43, ln2);
    mpfr_ui_div(ln2, 1, ln2, MPFR_RNDN);
    EXPECT_EQ(kExpStepsPerUnit, ln2.Nearest());
}

}  // namespace
