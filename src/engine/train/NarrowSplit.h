// Splits whose threshold may be lost when it is written with six digits.
#ifndef SYLVORA_ENGINE_TRAIN_NARROWSPLIT_H
#define SYLVORA_ENGINE_TRAIN_NARROWSPLIT_H

#include <algorithm>
#include <cmath>

namespace sylvora {
namespace engine {

// Whether the midpoint of two neighbouring values may fall outside of them when rounded to six
// significant digits. Such rounding moves a number by at most 5e-6 of its size; the rest of
// kMostRounding covers the rounding of the midpoint and of this test.
inline bool IsNarrow(double low, double high) {
    constexpr double kMostRounding = 6e-6;
    return !((high - low) * 0.5 > kMostRounding * std::max(std::fabs(low), std::fabs(high)));
}

}  // namespace engine
}  // namespace sylvora

#endif  // SYLVORA_ENGINE_TRAIN_NARROWSPLIT_H
