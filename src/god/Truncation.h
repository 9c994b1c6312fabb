// Truncation of reals toward zero that is defined for every value.
#ifndef SYLVORA_GOD_TRUNCATION_H
#define SYLVORA_GOD_TRUNCATION_H

#include <limits>

namespace sylvora {

// The integer part of `value`; the smallest Int where `value` is NaN or out of range, as the
// processor's own conversion has it.
template <typename Int>
[[nodiscard]] Int Truncate(double value) {
    constexpr double kBound = -static_cast<double>(std::numeric_limits<Int>::min());  // 2^(bits-1)
    if (value > -kBound - 1.0 && value < kBound) return static_cast<Int>(value);
    return std::numeric_limits<Int>::min();
}

}  // namespace sylvora

#endif  // SYLVORA_GOD_TRUNCATION_H
