// Fixed-point numbers of 320 bits, 256 of them behind the point, for the few results that doubles
// cannot decide.
#ifndef SYLVORA_GOD_WIDENUMBER_H
#define SYLVORA_GOD_WIDENUMBER_H

#include <cstdint>

namespace sylvora {

// The integer of all limbs, in two's complement, times 2^-256. Sums wrap; what is called a unit
// below is 2^-256.
struct Wide {
    static constexpr int kLimbs = 5;
    static constexpr int kFractionBits = 256;

    std::uint64_t limbV[kLimbs];  // the lowest first

    bool IsNegative() const { return limbV[kLimbs - 1] >> 63 != 0; }
};

Wide WholeNumber(int whole);

// `value`, |value| < 2^62, rounded towards 0 to a unit.
Wide WideNumber(double value);

Wide operator+(const Wide& a, const Wide& b);
Wide operator-(const Wide& a, const Wide& b);
Wide operator-(const Wide& a);
Wide Magnitude(const Wide& a);

// The operands of these are at least 0, the true results below 2^63, and results are rounded down
// to a unit.
Wide operator*(const Wide& a, const Wide& b);
Wide operator/(const Wide& a, int divisor);

// The double nearest to value * 2^exponent; infinite where that is 2^1024. `value` is at least
// 2^-128, |exponent| at most 10000. A tie goes upwards; callers have none.
double NearestDouble(const Wide& value, int exponent);

}  // namespace sylvora

#endif  // SYLVORA_GOD_WIDENUMBER_H
