// Gradients as integers; see FixedPoint.h. Bounds used below, for n rows with |g| < 2^e, n < 2^f:
//   n 2^e 2^k <= 2^61   sums of q fit an int64
//   2^e 2^k <= 2^49     the rounding trick works (it needs |x| < 2^51)
//   n 2^e 2^k <= 2^52   (exact) every partial sum is a multiple of 2^-k below 2^53 of them
#include "FixedPoint.h"

#include <algorithm>
#include <cmath>

namespace sylvora {
namespace engine {
namespace {

// Error bounds are relative to the gradients and blind to denormals; beyond this the plain form
// decides.
constexpr double kSmallest = 1e-100;
constexpr double kLargest = 1e100;

bool AllMultiples(const double* gradV, int num, double scale) {
    for (int i = 0; i < num; ++i) {
        const double scaled = gradV[i] * scale;
        if (static_cast<double>(FixedPoint::RoundToInt(scaled)) != scaled) return false;
    }
    return true;
}

}  // namespace

FixedPoint FixedPoint::Fit(const double* gradV, const int* weightV, int num) {
    FixedPoint fit;
    double largestAbs = 0.0;
    double totalWeight = 0.0;
    for (int i = 0; i < num; ++i) {
        const double size = std::fabs(gradV[i]);
        const double weight = weightV != nullptr ? weightV[i] : 1;
        if (!(size <= kLargest) || !(weight >= 1)) return fit;
        largestAbs = std::max(largestAbs, size);
        fit.largest = std::max(fit.largest, size / weight);
        totalWeight += weight;
    }
    if (num == 0 || (largestAbs != 0.0 && largestAbs < kSmallest)) return fit;
    fit.fUsable = true;
    // A margin for the rounding of size / weight.
    fit.largest *= 1.0 + 1e-12;
    const auto exponentAbove = [](double value) {
        int exponent = 0;
        std::frexp(value, &exponent);
        return exponent;
    };
    const int e = largestAbs > 0.0 ? exponentAbove(largestAbs) : 0;
    const int f = exponentAbove(num);
    const int exactPower = std::min(52 - e - f, 49 - e);
    fit.fExact = AllMultiples(gradV, num, std::ldexp(1.0, exactPower));
    const int k = fit.fExact ? exactPower : std::min(61 - e - f, 49 - e);
    fit.scale = std::ldexp(1.0, k);
    fit.unit = std::ldexp(1.0, -k);
    // The packed word: at most 2^weightBits of weight, and per row at most 2^absBits and one.
    fit.weightBits = exponentAbove(totalWeight);
    const int absBits = std::min(62 - fit.weightBits - f, 48);
    if (absBits < 4) {
        fit.fUsable = false;
        return fit;
    }
    fit.absScale = std::ldexp(1.0, absBits - e);
    fit.absUnit = std::ldexp(1.0, e - absBits);
    return fit;
}

void FixedPoint::ToCells(const double* gradV, const int* weightV, int num, Cell* cells) const {
    if (weightV == nullptr) {
        for (int i = 0; i < num; ++i) cells[i] = ToCell(gradV[i], 1);
    } else {
        for (int i = 0; i < num; ++i) cells[i] = ToCell(gradV[i], weightV[i]);
    }
}

}  // namespace engine
}  // namespace sylvora
