// Rejects candidate splits without a division.
#ifndef SYLVORA_ENGINE_TRAIN_LISTS_SCOREFILTER_H
#define SYLVORA_ENGINE_TRAIN_LISTS_SCOREFILTER_H

#include <algorithm>

namespace sylvora {
namespace engine {

// A score is squareL / weightL + squareR / weightR. Passes() compares after multiplying out, which
// takes a few roundings of at most 2^-53 each. The margin of 1e-13 is about a thousand of them, so
// a candidate that scores at least `minScore` always passes. Some slightly below pass as well and
// must be scored.
class ScoreFilter {
  public:
    explicit ScoreFilter(double minScore) { Raise(minScore); }

    // Raises the least score of interest; never lowers it.
    void Raise(double minScore) { target = std::max(target, minScore * (1.0 - 1e-13)); }

    bool Passes(double squareL, double weightL, double squareR, double weightR) const {
        return squareL * weightR + squareR * weightL >= target * (weightL * weightR);
    }

  private:
    double target = -1.0;  // scores are never negative
};

}  // namespace engine
}  // namespace sylvora

#endif  // SYLVORA_ENGINE_TRAIN_LISTS_SCOREFILTER_H
