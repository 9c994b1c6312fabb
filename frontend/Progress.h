// Shows the progress of a training run as one line that is redrawn on a terminal.
#ifndef SYLVORA_FRONTEND_PROGRESS_H
#define SYLVORA_FRONTEND_PROGRESS_H

#include <chrono>
#include <string>

#include "TreeLearner.h"

namespace sylvora::frontend {

// Registers itself as the learner's progress function; the destructor unregisters it and ends the
// line. Must be destroyed before the learner. Draws only if standard error is a terminal and the
// library does not print its own progress (fPrint). Also ends the training if a signal asks the
// command to stop.
class ProgressLine {
  public:
    explicit ProgressLine(TreeLearner& watched);
    ~ProgressLine();
    ProgressLine(const ProgressLine&) = delete;
    ProgressLine& operator=(const ProgressLine&) = delete;

  private:
    typedef std::chrono::steady_clock Clock;

    static int Report(void* context, int done, int total);
    void Draw(int done, int total);

    TreeLearner& learner;
    const char* unit;  // what is counted: "round ", or "tree " for a forest
    bool fShown;
    Clock::time_point start;
    Clock::time_point lastDrawn;
    int lastDone = 0;       // `done` of the last report, whether it was drawn or not
    size_t widthDrawn = 0;  // characters of the line on the screen; 0: nothing drawn yet
};

}  // namespace sylvora::frontend

#endif  // SYLVORA_FRONTEND_PROGRESS_H
