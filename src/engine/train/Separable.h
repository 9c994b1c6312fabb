// Which neighbouring values a regression split can separate.
#ifndef SYLVORA_ENGINE_TRAIN_SEPARABLE_H
#define SYLVORA_ENGINE_TRAIN_SEPARABLE_H

namespace sylvora {
namespace engine {

// Regression never splits between values closer than this. Classification splits between any two
// distinct values; the difference is deliberate.
constexpr double kGap = 1e-10;

// Whether a regression split may lie between two neighbouring values. Evaluated in doubles as the
// reference implementation does: beyond about 1e6 the gap is lost in rounding.
inline bool IsSeparable(double low, double high) {
    return high > low + kGap;
}

}  // namespace engine
}  // namespace sylvora

#endif  // SYLVORA_ENGINE_TRAIN_SEPARABLE_H
