// The progress of a training run, as one line that is redrawn on a terminal.
#ifndef SYLVORA_FRONTEND_PROGRESS_H
#define SYLVORA_FRONTEND_PROGRESS_H

#include <chrono>
#include <string>

#include "TreeLearner.h"

namespace sylvora::frontend {

// Watches `learner` from construction on and ends the line when it is destroyed, which must be
// before the learner is. Draws only when standard error is a terminal and the library itself does
// not print its progress. Ends the training when the command is told to stop.
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
    const char* unit;  // what is counted: rounds, or the trees of a forest
    bool fShown;
    Clock::time_point start;
    Clock::time_point lastDrawn;
    int lastDone = 0;       // of the last report, drawn or not
    size_t widthDrawn = 0;  // of the line on the screen; 0: none
};

}  // namespace sylvora::frontend

#endif  // SYLVORA_FRONTEND_PROGRESS_H
