// Power series in wide fixed point; see WideExpLog.h.
#include "WideExpLog.h"

#include <cstdlib>

#include "ExpLogTables.h"

namespace sylvora {
namespace {

// e^t for 0 <= t < log(2), at most 2^12 units too small. Sums the power series at t / 256, whose
// first omitted term is below 2^-270, and squares the sum eight times.
Wide PowerSeries(const Wide& t) {
    constexpr int kSquarings = 8;
    constexpr int kTerms = 22;
    const Wide one = WholeNumber(1);
    const Wide small = t / (1 << kSquarings);
    Wide sum = one;
    for (int n = kTerms; n > 0; --n) sum = one + small * sum / n;
    for (int i = 0; i < kSquarings; ++i) sum = sum * sum;
    return sum;
}

// log(1 + d) for |d| < 2^-45, by its power series. The first omitted term is below 2^-272.
Wide LogNearOne(const Wide& d) {
    const bool fNegative = d.IsNegative();
    const Wide size = Magnitude(d);
    Wide power = size;
    Wide sum = size;
    for (int n = 2; n <= 5; ++n) {
        power = power * size;
        sum = n % 2 == 0 && !fNegative ? sum - power / n : sum + power / n;
    }
    return fNegative ? -sum : sum;
}

// log(z) for 0.7 <= z <= 1.42 to about 2^-50, by the series of the inverse hyperbolic tangent.
double ApproximateLog(double z) {
    const double s = (z - 1.0) / (z + 1.0);
    double sum = 0.0;
    for (int n = 23; n > 0; n -= 2) sum = sum * s * s + 1.0 / n;
    return 2.0 * s * sum;
}

}  // namespace

Wide TimesLn2(int factor) {
    const Wide product = WholeNumber(std::abs(factor)) * kLn2;
    return factor < 0 ? -product : product;
}

Power WideExp(const Wide& x, int exponent) {
    Wide rest = x - TimesLn2(exponent);
    for (; rest.IsNegative(); --exponent) rest = rest + kLn2;
    for (; !(rest - kLn2).IsNegative(); ++exponent) rest = rest - kLn2;
    return {PowerSeries(rest), exponent};
}

// One correction of an approximation y: log(z) = y + log(z / e^y). z / e^y is so near to 1 that a
// few terms of the series suffice.
Wide WideLog(double z) {
    const double approximate = ApproximateLog(z);
    const Power inverse = WideExp(WideNumber(-approximate), approximate > 0 ? -1 : 0);
    const Wide product = WideNumber(z) * inverse.value;
    const Wide ratio = inverse.exponent < 0 ? product / 2 : product;
    return WideNumber(approximate) + LogNearOne(ratio - WholeNumber(1));
}

}  // namespace sylvora
