// Truncation toward zero, defined for every double.
#ifndef SYLVORA_GOD_TRUNCATION_H
#define SYLVORA_GOD_TRUNCATION_H

#include <limits>

namespace sylvora {

// The integer part of `value`, or the smallest Int if `value` is NaN or out of range. That is what
// the conversion instruction of x86-64 returns, while C++ leaves it undefined.
template <typename Int>
[[nodiscard]] Int Truncate(double value) {
    constexpr double kBound = -static_cast<double>(std::numeric_limits<Int>::min());  // 2^(bits-1)
    if (value > -kBound - 1.0 && value < kBound) return static_cast<Int>(value);
    return std::numeric_limits<Int>::min();
}

}  // namespace sylvora

#endif  // SYLVORA_GOD_TRUNCATION_H
