// Fixed-point numbers of 320 bits, 256 of them fraction bits. The reference implementation of exp
// and log computes with them.
#ifndef SYLVORA_GOD_WIDENUMBER_H
#define SYLVORA_GOD_WIDENUMBER_H

#include <cstdint>

namespace sylvora {

// The limbs form one integer in two's complement; the value is that integer times 2^-256. A unit,
// below, is 2^-256. Sums wrap around.
struct Wide {
    static constexpr int kLimbs = 5;
    static constexpr int kFractionBits = 256;

    std::uint64_t limbV[kLimbs];  // least significant first

    bool IsNegative() const { return limbV[kLimbs - 1] >> 63 != 0; }
};

Wide WholeNumber(int whole);

// `value`, rounded toward 0 to a unit. |value| must be below 2^62.
Wide WideNumber(double value);

Wide operator+(const Wide& a, const Wide& b);
Wide operator-(const Wide& a, const Wide& b);
Wide operator-(const Wide& a);
Wide Magnitude(const Wide& a);

// The operands must not be negative and the exact result must be below 2^63. The result is rounded
// down to a unit.
Wide operator*(const Wide& a, const Wide& b);
Wide operator/(const Wide& a, int divisor);

// The double nearest to value * 2^exponent; infinity if that rounds to 2^1024 or more. `value` must
// be at least 2^-128, and |exponent| at most 10000. Ties round up, not to even: callers have none.
double NearestDouble(const Wide& value, int exponent);

}  // namespace sylvora

#endif  // SYLVORA_GOD_WIDENUMBER_H
