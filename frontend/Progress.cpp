// Draws the progress line and estimates the time that is left.
#include "Progress.h"

#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <iostream>
#include <utility>

#include "RankSettings.h"
#include "StopSignals.h"
#include "god/Report.h"

namespace sylvora::frontend {
namespace {

// At most eight drawings a second, plus the one for the last round.
constexpr std::chrono::milliseconds kRedrawInterval(125);

std::string Duration(double seconds) {
    const long whole = std::lround(seconds);
    const long minutes = whole / 60;
    if (minutes == 0) return Text(whole, " s");
    if (minutes < 60) return Text(minutes, " min ", whole % 60, " s");
    return Text(minutes / 60, " h ", minutes % 60, " min");
}

}  // namespace

ProgressLine::ProgressLine(TreeLearner& watched, Communicator* all)
    : learner(watched),
      ranks(all),
      unit(watched.CfgInfo.modelType == "RandomForest" ? "tree " : "round "),
      fShown(::isatty(STDERR_FILENO) == 1 && !watched.CfgInfo.fPrint),
      start(Clock::now()),
      eraser(*this),
      flushed(&eraser) {
    if (fShown && ::isatty(STDOUT_FILENO) == 1) std::cout.tie(&flushed);
    learner.setProgress(Report, this);
}

ProgressLine::~ProgressLine() {
    learner.setProgress(nullptr, nullptr);
    if (std::cout.tie() == &flushed) std::cout.tie(nullptr);
    if (widthDrawn > 0) Warn("\n");
}

int ProgressLine::Report(void* context, int done, int total) {
    ProgressLine& line = *static_cast<ProgressLine*>(context);
    const Clock::time_point now = Clock::now();
    const bool fNew = done != line.lastDone;
    const bool fDue =
        fNew && (done == total || line.widthDrawn == 0 || now - line.lastDrawn >= kRedrawInterval);
    line.lastDone = done;
    if (line.numBefore < 0 && done > 0) line.numBefore = done - 1;
    if (line.fShown && fDue) {
        line.lastDrawn = now;
        line.Draw(done, total);
    }
    return line.MustStop(fNew) ? 1 : 0;
}

// All ranks report a new number, but only the one that writes reports it again.
bool ProgressLine::MustStop(bool fNew) {
    return ranks != nullptr && fNew ? IsStopWantedByAny(*ranks) : IsStopWanted();
}

// Ends with a carriage return, so that a message of the library overwrites the progress line
// instead of following it. Pads with blanks to cover a longer line drawn before.
void ProgressLine::Draw(int done, int total) {
    const double elapsed = std::chrono::duration<double>(lastDrawn - start).count();
    const double left = elapsed / (done - std::max(numBefore, 0)) * (total - done);
    const double share = 100.0 * done / total;
    std::string line = Text(unit, done, " of ", total, ", ", static_cast<int>(share), " %, ",
                            Duration(left), " left");
    const size_t width = line.size();
    line.resize(std::max(width, widthDrawn), ' ');
    widthDrawn = 0;  // the line is padded, so nothing need be erased before it is written
    Warn(line, "\r");
    widthDrawn = width;
}

// Standard error flushes standard output first, which comes here again; the line counts as erased
// by then.
void ProgressLine::Erase() {
    const size_t width = std::exchange(widthDrawn, 0);
    if (width > 0) Warn(std::string(width, ' '), "\r");
}

}  // namespace sylvora::frontend
