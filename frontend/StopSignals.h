// How the command meets SIGINT and SIGTERM: it ends with a line on standard error and exit status
// 130 or 143, and no file is left half-written. A second signal, of either kind, ends it at once.
#ifndef SYLVORA_FRONTEND_STOPSIGNALS_H
#define SYLVORA_FRONTEND_STOPSIGNALS_H

namespace sylvora::frontend {

// To be called once, before anything is done. From then on a signal ends the process where it
// stands, unless a StopLater is alive and it is the first. A signal that the process was told to
// ignore (by nohup, say) stays ignored.
void CatchStopSignals();

// Puts the end off while it lives: for stretches that write files or come to a good end by
// themselves. They ask IsStopWanted and return early, or finish; then the command ends.
class StopLater {
  public:
    StopLater();
    ~StopLater();
    StopLater(const StopLater&) = delete;
    StopLater& operator=(const StopLater&) = delete;
};

// Whether a signal has come while a StopLater lived.
bool IsStopWanted();

// The exit status that it asks for.
int StopStatus();

}  // namespace sylvora::frontend

#endif  // SYLVORA_FRONTEND_STOPSIGNALS_H
