// Compares exponentials and logarithms with GNU MPFR, and kernels and builds with each other.
//
// The environment variable SYLVORA_ROUNDING multiplies the number of random arguments.
#include "god/CorrectRounding.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "Mpfr.h"
#include "god/ExpLogKernels.h"

// The same sources, compiled with other options (CMakeLists.txt).
namespace sylvora_unoptimised {
void ExpEach(const double* xV, double* resultV, size_t count);
void LogEach(const double* xV, double* resultV, size_t count);
}  // namespace sylvora_unoptimised
namespace sylvora_with_fma {
void ExpEach(const double* xV, double* resultV, size_t count);
void LogEach(const double* xV, double* resultV, size_t count);
}  // namespace sylvora_with_fma

namespace {

using namespace sylvora;
using sylvora::tests::MpfrFunction;
using sylvora::tests::NearestResult;
using sylvora::tests::Number;

typedef std::vector<double> Reals;
typedef std::mt19937_64 Random;
typedef void (*EachFunction)(const double* xV, double* resultV, size_t count);

constexpr double kInfinity = std::numeric_limits<double>::infinity();

struct Function {
    const char* name;
    double (*one)(double x);
    EachFunction each;  // null: there is none
    MpfrFunction mpfr;
    long double (*approximate)(long double x);  // good to much more than kApproximateError
};
const Function kExp = {"exp", Exp, ExpEach, mpfr_exp, expl};
const Function kLog = {"log", Log, LogEach, mpfr_log, logl};
const Function kExp2 = {"exp2", Exp2, nullptr, mpfr_exp2, exp2l};
const Function kLog2 = {"log2", Log2, nullptr, mpfr_log2, log2l};
constexpr long double kApproximateError = 0x1p-60L;

uint64_t BitsOf(double value) {
    uint64_t bits;
    std::memcpy(&bits, &value, sizeof bits);
    return bits;
}

double FromBits(uint64_t bits) {
    double value;
    std::memcpy(&value, &bits, sizeof value);
    return value;
}

bool Same(double a, double b) {
    return BitsOf(a) == BitsOf(b) || (std::isnan(a) && std::isnan(b));
}

// Counts the wrong results and reports the first.
class Checker {
  public:
    void Check(const char* name, double x, double result, double expected) {
        if (Same(result, expected) || ++numWrong > 1) return;
        char text[200];
        std::snprintf(text, sizeof text, "%s(%a) is %a, not %a", name, x, result, expected);
        first = text;
    }
    ~Checker() { EXPECT_EQ(numWrong, 0) << "wrong results, the first: " << first; }

  private:
    long numWrong = 0;
    std::string first;
};

Reals Results(EachFunction each, const Reals& xV) {
    Reals resultV(xV.size());
    each(xV.data(), resultV.data(), xV.size());
    return resultV;
}

// Whether a long double suffices to show that `result` is the nearest double. It does unless the
// exact value is near the midpoint of two doubles. That saves most calls of MPFR, which take ten
// times as long.
bool IsClearlyNearest(const Function& function, double x, double result) {
    if (!(std::fabs(result) > 1e-300 && std::fabs(result) < 1e300)) return false;
    const long double y = function.approximate(x);
    const long double margin = std::fabs(y) * kApproximateError;
    const long double below = std::nextafter(result, -kInfinity);
    const long double above = std::nextafter(result, kInfinity);
    return y - margin > (below + result) / 2 && y + margin < (above + result) / 2;
}

// Checks the array function on all arguments and the reference implementation on every
// kReferenceStride-th.
void CheckAll(const Function& function, const Reals& xV) {
    constexpr size_t kReferenceStride = 16;
    Checker checker;
    const Reals resultV = function.each != nullptr ? Results(function.each, xV) : Reals();
    for (size_t i = 0; i < xV.size(); ++i) {
        const double x = xV[i];
        if (function.each == nullptr && i % kReferenceStride != 0) continue;
        const double result = function.each != nullptr ? resultV[i] : function.one(x);
        const bool fClear = IsClearlyNearest(function, x, result);
        const double expected = fClear ? result : NearestResult(function.mpfr, x);
        checker.Check(function.name, x, result, expected);
        if (i % kReferenceStride == 0) checker.Check(function.name, x, function.one(x), expected);
    }
}

double Uniform(Random& random, double from, double to) {
    return from + (to - from) * std::ldexp(static_cast<double>(random() >> 11), -53);
}

double AnyBits(Random& random) {
    return FromBits(random());
}

double Signed(Random& random, double value) {
    return random() % 2 == 0 ? value : -value;
}

struct Arguments {
    Function function;
    const char* what;
    size_t count;
    std::function<double(Random&)> draw;
};

// The counts are lower where the slow reference implementation must compute most results.
const Arguments kArguments[] = {
    {kExp, "any", 40000, AnyBits},
    {kExp, "all results", 60000, [](Random& r) { return Uniform(r, -746, 710); }},
    {kExp, "usual", 400000, [](Random& r) { return Uniform(r, -12, 12); }},
    {kExp, "all sizes", 400000,
     [](Random& r) { return Signed(r, std::exp2(Uniform(r, -70, 9.45))); }},
    {kExp, "subnormal", 10000, [](Random& r) { return Uniform(r, -745.3, -707.9); }},
    {kExp, "overflow", 10000, [](Random& r) { return Uniform(r, 709.78, 709.785); }},
    {kLog, "any", 40000, [](Random& r) { return FromBits(r() >> 1); }},
    {kLog, "usual", 400000, [](Random& r) { return Uniform(r, 1, 100); }},
    {kLog, "around 1", 400000, [](Random& r) { return Uniform(r, 0.97, 1.03); }},
    {kLog, "near 1", 400000,
     [](Random& r) { return 1 + Signed(r, std::exp2(Uniform(r, -53, -5))); }},
    {kLog, "subnormal", 10000, [](Random& r) { return FromBits(r() >> (12 + r() % 52)); }},
    {kExp2, "all results", 40000, [](Random& r) { return Uniform(r, -1080, 1030); }},
    {kExp2, "all sizes", 40000,
     [](Random& r) { return Signed(r, std::exp2(Uniform(r, -70, 10))); }},
    {kLog2, "any", 40000, [](Random& r) { return FromBits(r() >> 1); }},
    {kLog2, "near 1", 40000,
     [](Random& r) { return 1 + Signed(r, std::exp2(Uniform(r, -53, -1))); }},
};

TEST(CorrectRounding, OfRandomArguments) {
    const char* factor = std::getenv("SYLVORA_ROUNDING");
    const double scale = factor != nullptr ? std::atof(factor) : 1.0;
    for (const Arguments& a : kArguments) {
        SCOPED_TRACE(std::string(a.function.name) + ", " + a.what);
        Random random(a.count + static_cast<size_t>(&a - kArguments));
        constexpr size_t kBlock = 8192;
        size_t left = static_cast<size_t>(static_cast<double>(a.count) * scale);
        for (size_t count; left > 0; left -= count) {
            count = std::min(left, kBlock);
            Reals xV(count);
            for (double& x : xV) x = a.draw(random);
            CheckAll(a.function, xV);
        }
        if (HasFailure()) return;
    }
}

TEST(CorrectRounding, OfSpecialArgumentsAndExactResults) {
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const double tiny = std::numeric_limits<double>::denorm_min();
    const struct {
        Function function;
        double x, expected;
    } cases[] = {{kExp, nan, nan},
                 {kExp, kInfinity, kInfinity},
                 {kExp, -kInfinity, 0.0},
                 {kExp, 0.0, 1.0},
                 {kExp, -0.0, 1.0},
                 {kExp, tiny, 1.0},
                 {kExp, 1e308, kInfinity},
                 {kExp, -1e308, 0.0},
                 {kLog, nan, nan},
                 {kLog, 0.0, -kInfinity},
                 {kLog, -0.0, -kInfinity},
                 {kLog, kInfinity, kInfinity},
                 {kLog, -kInfinity, nan},
                 {kLog, -tiny, nan},
                 {kLog, -1.0, nan},
                 {kLog, 1.0, 0.0},
                 {kExp2, nan, nan},
                 {kExp2, kInfinity, kInfinity},
                 {kExp2, -kInfinity, 0.0},
                 {kExp2, -0.0, 1.0},
                 {kLog2, nan, nan},
                 {kLog2, 0.0, -kInfinity},
                 {kLog2, -1.0, nan},
                 {kLog2, 1.0, 0.0},
                 {kLog2, kInfinity, kInfinity}};
    Checker checker;
    for (const auto& c : cases) {
        checker.Check(c.function.name, c.x, c.function.one(c.x), c.expected);
        if (c.function.each == nullptr) continue;
        checker.Check(c.function.name, c.x, Results(c.function.each, {c.x})[0], c.expected);
    }
    for (int i = -1100; i <= 1100; ++i) checker.Check("exp2", i, Exp2(i), std::ldexp(1.0, i));
    for (int i = -1074; i < 1024; ++i) checker.Check("log2", i, Log2(std::ldexp(1.0, i)), i);
}

// The doubles around each argument where results overflow, become subnormal or 0, or differ from 1
// for the first time.
TEST(CorrectRounding, AtTheEndsOfTheRange) {
    const struct {
        Function function;
        Reals atV;
    } cases[] = {{kExp,
                  {709.782712893384, -708.3964185322641, -745.1332191019412, 708, -708, 0x1p-53,
                   -0x1p-54, 0x1p-60, -0x1p-60, 0x1p-512}},
                 {kLog,
                  {1.0, 0x1p-1022, 0x1.fffffffffffffp1023, 0x1p-1074, 0.6875, 1.375, 1 - 0x1p-8,
                   1 + 0x1p-8, 0.70710678}},
                 {kExp2, {1024, -1022, -1074, -1075, 0x1p-53, -0x1p-54, 0x1p-60}},
                 {kLog2, {1.0, 2.0, 0.5, 0x1p-1022, 0x1p-1074}}};
    for (const auto& c : cases) {
        Reals xV;
        for (const double at : c.atV) {
            for (int64_t i = -40; i <= 40; ++i) {
                xV.push_back(FromBits(BitsOf(at) + static_cast<uint64_t>(i)));
            }
        }
        CheckAll(c.function, xV);
    }
}

// Arguments whose results lie nearest to a number of 53 or 54 bits, from V. Lefevre and J.-M.
// Muller, "Worst cases for correct rounding of the elementary functions in double precision", 2001.
TEST(CorrectRounding, OfTheHardestArguments) {
    const struct {
        Function function;
        double x;
        double distance;  // relative, at most
    } cases[] = {{kExp, 0x1.9e9cbbfd6080bp-31, 0x1p-110},  {kExp, 0x1.83d4bcdebb3f4p+2, 0x1p-111},
                 {kExp, -0x1.ed318efb627eap-27, 0x1p-113}, {kExp, 0x1.d7a7d893609e5p-26, 0x1p-108},
                 {kLog, 0x1.62a88613629b6p+678, 0x1p-118}, {kExp2, 0x1.e4596526bf94dp-10, 0x1p-112},
                 {kLog2, 0x1.b4ebe40c95a01p+0, 0x1p-107}};
    for (const auto& c : cases) {
        Number exact(300, c.x);
        exact.Apply(c.function.mpfr);
        Number near(54);
        mpfr_set(near, exact, MPFR_RNDN);
        EXPECT_LE(std::fabs(tests::Difference(exact, near) / exact.Nearest()), c.distance) << c.x;
        CheckAll(c.function, Reals(1, c.x));
    }
}

// The double nearest to inverse(y + half a unit in the last place of y).
double NearMidpoint(MpfrFunction inverse, double y) {
    Number midpoint(200, y);
    mpfr_add_d(midpoint, midpoint, 0.5 * (std::nextafter(y, kInfinity) - y), MPFR_RNDN);
    return midpoint.Apply(inverse).Nearest();
}

size_t CountUndecided(const Reals& resultV) {
    return static_cast<size_t>(
        std::count_if(resultV.begin(), resultV.end(), [](double r) { return std::isnan(r); }));
}

// Results too near to a midpoint for the kernels: e^x near 1 for small x, and log(x) for large x.
// The kernels must leave many of them undecided.
TEST(CorrectRounding, NearMidpoints) {
    Random random(5);
    Reals expV, logV;
    for (int i = 0; i < 40000; ++i) {
        const double t = Signed(random, std::exp2(Uniform(random, -45, -8)));
        expV.push_back(NearMidpoint(mpfr_log, 1 + t));
        logV.push_back(NearMidpoint(mpfr_exp, Signed(random, Uniform(random, 512, 700))));
    }
    CheckAll(kExp, expV);
    CheckAll(kLog, logV);
    Reals resultV(expV.size());
    EXPECT_TRUE(kExpLogBaseline.exp(expV.data(), resultV.data(), resultV.size()));
    EXPECT_GT(CountUndecided(resultV), 30000u);
    EXPECT_TRUE(kExpLogBaseline.log(logV.data(), resultV.data(), resultV.size()));
    EXPECT_GT(CountUndecided(resultV), 1000u);
}

// Random arguments whose results are midpoints of two doubles to the precision of a long double.
// They reveal an error bound that is too small. The arguments are at the ends of table intervals,
// where the errors of the kernels are largest.
TEST(CorrectRounding, NearMidpointsOfTheLargestErrors) {
    Random random(7);
    for (const bool fLog : {false, true}) {
        Reals xV;
        while (xV.size() < 20000) {
            const double t = Uniform(random, 0.98, 1.0) * (fLog ? 0x1p-8 : 0.00271);
            const double x = (fLog ? 1 : 0) + Signed(random, t);
            const long double y = fLog ? std::log(static_cast<long double>(x))
                                       : std::exp(static_cast<long double>(x));
            const double near = static_cast<double>(y);
            const double next = std::nextafter(near, y > near ? kInfinity : -kInfinity);
            const long double midpoint = (static_cast<long double>(near) + next) / 2;
            if (std::fabs(y / midpoint - 1) <= 0x1p-63L) xV.push_back(x);
        }
        CheckAll(fLog ? kLog : kExp, xV);
    }
}

template <typename Each>
std::vector<uint64_t> ResultBits(Each each, const Reals& xV) {
    Reals resultV(xV.size());
    each(xV.data(), resultV.data(), xV.size());
    std::vector<uint64_t> bitsV(xV.size());
    std::transform(resultV.begin(), resultV.end(), bitsV.begin(), BitsOf);
    return bitsV;
}

struct TwoSets {
    Reals expV, logV;
};

TwoSets MixedArguments() {
    Random random(6);
    TwoSets sets;
    for (int i = 0; i < 400000; ++i) {
        sets.expV.push_back(i % 8 == 0 ? Uniform(random, -720, 720) : Uniform(random, -30, 30));
        sets.logV.push_back(i % 8 == 0 ? AnyBits(random) : Uniform(random, 0.5, 50));
    }
    return sets;
}

// All kernels return the same bits, including which results are undecided. Those must be rare.
TEST(CorrectRounding, KernelsAgree) {
    const TwoSets sets = MixedArguments();
    Reals resultV(sets.expV.size());
    kExpLogBaseline.exp(sets.expV.data(), resultV.data(), resultV.size());
    const size_t numBeyond = static_cast<size_t>(std::count_if(
        sets.expV.begin(), sets.expV.end(), [](double x) { return std::fabs(x) > 708; }));
    EXPECT_GT(CountUndecided(resultV), numBeyond);
    EXPECT_LT(CountUndecided(resultV), numBeyond + sets.expV.size() / 5000);
    for (const char* name : {"avx2", "avx512"}) {
        const sylvora::ExpLogKernel* kernel = sylvora::kExpLogKernels.Find(name);
        if (kernel == nullptr) continue;
        EXPECT_EQ(ResultBits(kernel->exp, sets.expV), ResultBits(kExpLogBaseline.exp, sets.expV));
        EXPECT_EQ(ResultBits(kernel->log, sets.logV), ResultBits(kExpLogBaseline.log, sets.logV));
    }
}

TEST(CorrectRounding, BuildsAgree) {
    const TwoSets sets = MixedArguments();
    const auto expBits = ResultBits(ExpEach, sets.expV);
    const auto logBits = ResultBits(LogEach, sets.logV);
    EXPECT_EQ(ResultBits(sylvora_unoptimised::ExpEach, sets.expV), expBits);
    EXPECT_EQ(ResultBits(sylvora_unoptimised::LogEach, sets.logV), logBits);
    if (!__builtin_cpu_supports("fma")) GTEST_SKIP() << "this processor has no FMA";
    EXPECT_EQ(ResultBits(sylvora_with_fma::ExpEach, sets.expV), expBits);
    EXPECT_EQ(ResultBits(sylvora_with_fma::LogEach, sets.logV), logBits);
}

// Arrays of all lengths, with a special argument in every seventh place. Nothing outside the array
// may be written.
TEST(CorrectRounding, OfArraysOfEveryLength) {
    const double marker = -77.0;
    for (const Function& function : {kExp, kLog}) {
        for (size_t count = 0; count < 1100; count += count < 20 ? 1 : 97) {
            Reals xV(count + 2), resultV(count + 2, marker);
            for (size_t i = 0; i < xV.size(); ++i)
                xV[i] = i % 7 == 3 ? -1e9 : 0.1 * static_cast<double>(i + 1);
            function.each(xV.data() + 1, resultV.data() + 1, count);
            EXPECT_EQ(resultV.front(), marker);
            EXPECT_EQ(resultV.back(), marker);
            for (size_t i = 1; i <= count; ++i) {
                ASSERT_TRUE(Same(resultV[i], function.one(xV[i]))) << count << ", " << i;
            }
        }
    }
}

}  // namespace
