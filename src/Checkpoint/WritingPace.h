// When a checkpoint is due that is written as often as it is cheap.
#ifndef SYLVORA_CHECKPOINT_WRITINGPACE_H
#define SYLVORA_CHECKPOINT_WRITINGPACE_H

#include <algorithm>

namespace sylvora {

// Leaves so much time between two writings that they take about one twentieth of all time or less,
// as far as one takes as long as the one before it; and at least a second, also before the first.
// Times are in seconds, from any fixed moment on.
class WritingPace {
  public:
    explicit WritingPace(double start) : lastEnd(start) {}

    bool IsDue(double now) const { return now - lastEnd >= std::max(1.0, 20 * lastDuration); }
    // A writing has ended, with success or not.
    void Note(double begin, double end) {
        lastDuration = end - begin;
        lastEnd = end;
    }

  private:
    double lastEnd;
    double lastDuration = 0;
};

}  // namespace sylvora

#endif  // SYLVORA_CHECKPOINT_WRITINGPACE_H
