// Tells, without a division, which cuts need not be scored.
#ifndef SYLVORA_ENGINE_TRAIN_LISTS_SCOREFILTER_H
#define SYLVORA_ENGINE_TRAIN_LISTS_SCOREFILTER_H

#include <algorithm>

namespace sylvora {
namespace engine {

// A score is squareL / weightL + squareR / weightR. Multiplied out it is off by a few roundings,
// each by at most 2^-53 of its size; the margin is a thousand times that, so a cut whose score is
// `least` or more always passes. Some that are a little worse pass as well.
class ScoreFilter {
  public:
    explicit ScoreFilter(double least) { Raise(least); }

    // From now on only cuts of at least this score matter.
    void Raise(double least) { target = std::max(target, least * (1.0 - 1e-13)); }

    bool Passes(double squareL, double weightL, double squareR, double weightR) const {
        return squareL * weightR + squareR * weightL >= target * (weightL * weightR);
    }

  private:
    double target = -1.0;  // scores are never negative
};

}  // namespace engine
}  // namespace sylvora

#endif  // SYLVORA_ENGINE_TRAIN_LISTS_SCOREFILTER_H
