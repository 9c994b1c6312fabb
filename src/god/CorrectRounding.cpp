// The reference implementation, in fixed point with 256 fraction bits; see docs/exact-math.md.
#include "CorrectRounding.h"

#include <cmath>
#include <limits>

#include "ExpLogTables.h"
#include "WideExpLog.h"

namespace sylvora {
namespace {

constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

// Beyond this |x|, both e^x and 2^x are infinite or 0.
constexpr double kLargestExponent = 1100.0;
// Below this |x|, both e^x and 2^x round to 1.
constexpr double kTinyExponent = 0x1p-60;

// Splits a finite x > 0 into z * 2^exponent, with z in about [sqrt(1/2), sqrt(2)). Returns z.
double Normalised(double x, int& exponent) {
    const double z = std::frexp(x, &exponent);
    if (z >= 0.70710678) return z;
    --exponent;
    return 2.0 * z;
}

double NearestSigned(const Wide& value) {
    const double magnitude = NearestDouble(Magnitude(value), 0);
    return value.IsNegative() ? -magnitude : magnitude;
}

// Sets `result` to e^x or 2^x and returns true if no computation is needed. 1.0 + x covers NaN.
bool IsSpecialPower(double x, double& result) {
    if (std::fabs(x) >= kTinyExponent && std::fabs(x) <= kLargestExponent) return false;
    result = x > kLargestExponent ? kInfinity : x < -kLargestExponent ? 0.0 : 1.0 + x;
    return true;
}

// The same for log(x) and log2(x).
bool IsSpecialLog(double x, double& result) {
    if (x > 0 && x < kInfinity && x != 1.0) return false;
    if (x == 0) {
        result = -kInfinity;
    } else if (x < 0) {
        result = kNaN;
    } else {
        result = x == 1.0 ? 0.0 : x;
    }
    return true;
}

}  // namespace

double Exp(double x) {
    double result;
    if (IsSpecialPower(x, result)) return result;
    const int exponent = static_cast<int>(std::floor(x * kExpStepsPerUnit / kExpEntries));
    const Power power = WideExp(WideNumber(x), exponent);
    return NearestDouble(power.value, power.exponent);
}

double Exp2(double x) {
    double result;
    if (IsSpecialPower(x, result)) return result;
    const double whole = std::floor(x);
    if (x == whole) return std::ldexp(1.0, static_cast<int>(whole));
    const Wide rest = WideNumber(x) - WideNumber(whole);
    return NearestDouble(WideExp(rest * kLn2, 0).value, static_cast<int>(whole));
}

double Log(double x) {
    double result;
    if (IsSpecialLog(x, result)) return result;
    int exponent;
    const double z = Normalised(x, exponent);
    return NearestSigned(TimesLn2(exponent) + WideLog(z));
}

double Log2(double x) {
    double result;
    if (IsSpecialLog(x, result)) return result;
    int exponent;
    const double z = Normalised(x, exponent);
    if (z == 1.0) return exponent;
    const Wide log = WideLog(z);
    const Wide size = Magnitude(log) * kInverseOfLn2;
    return NearestSigned(WideNumber(exponent) + (log.IsNegative() ? -size : size));
}

}  // namespace sylvora
