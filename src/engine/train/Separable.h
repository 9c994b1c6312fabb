// Which neighbouring values a regression can tell apart.
#ifndef SYLVORA_ENGINE_TRAIN_SEPARABLE_H
#define SYLVORA_ENGINE_TRAIN_SEPARABLE_H

namespace sylvora {
namespace engine {

// Values closer than this are never separated by a regression split. Classification separates any
// two distinct values; the difference is deliberate.
constexpr double kGap = 1e-10;

// Whether a regression split may lie between two neighbouring values. In double arithmetic: the gap
// vanishes beside values from about 1e6 on.
inline bool IsSeparable(double low, double high) {
    return high > low + kGap;
}

}  // namespace engine
}  // namespace sylvora

#endif  // SYLVORA_ENGINE_TRAIN_SEPARABLE_H
