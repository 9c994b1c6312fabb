// Shows the progress of a training run as one line that is redrawn on a terminal.
#ifndef SYLVORA_FRONTEND_PROGRESS_H
#define SYLVORA_FRONTEND_PROGRESS_H

#include <chrono>
#include <ostream>
#include <streambuf>
#include <string>

#include "Communicator.h"
#include "TreeLearner.h"

namespace sylvora::frontend {

// Registers itself as the learner's progress function; the destructor unregisters it and ends the
// line. Must be destroyed before the learner. Draws only if standard error is a terminal and the
// library does not print its own progress (fPrint). If standard output is a terminal, too, the line
// is erased before anything is written there, such as the table of metrics, and drawn again below.
// Also ends the training if a signal asks the command to stop.
class ProgressLine {
  public:
    // With `ranks`, which may be null, all ranks stop as soon as one of them wants to.
    ProgressLine(TreeLearner& watched, Communicator* ranks);
    ~ProgressLine();
    ProgressLine(const ProgressLine&) = delete;
    ProgressLine& operator=(const ProgressLine&) = delete;

  private:
    typedef std::chrono::steady_clock Clock;

    static int Report(void* context, int done, int total);
    void Draw(int done, int total);
    void Erase();

    // Tied to standard output: a stream that is flushed, and then erases the line, before standard
    // output is written to.
    class Eraser : public std::streambuf {
      public:
        explicit Eraser(ProgressLine& drawn) : line(drawn) {}

      private:
        int sync() override {
            line.Erase();
            return 0;
        }
        ProgressLine& line;
    };

    bool MustStop(bool fNew);

    TreeLearner& learner;
    Communicator* const ranks;
    const char* unit;  // what is counted: "round ", or "tree " for a forest
    bool fShown;
    Clock::time_point start;
    Clock::time_point lastDrawn;
    int lastDone = 0;    // `done` of the last report, whether it was drawn or not
    int numBefore = -1;  // rounds or trees before the first report: of a checkpoint; -1: none yet
    size_t widthDrawn = 0;  // characters of the line on the screen; 0: nothing is drawn
    Eraser eraser;
    std::ostream flushed;
};

}  // namespace sylvora::frontend

#endif  // SYLVORA_FRONTEND_PROGRESS_H
