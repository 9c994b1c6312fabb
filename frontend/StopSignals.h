// SIGINT and SIGTERM: the command ends with a line on standard error and exit status 130 or 143,
// and leaves no file half-written. A second signal, of either kind, ends it at once.
#ifndef SYLVORA_FRONTEND_STOPSIGNALS_H
#define SYLVORA_FRONTEND_STOPSIGNALS_H

namespace sylvora::frontend {

// Installs the handlers; call it once, first thing in main(). From then on a signal ends the
// process immediately, unless it is the first one and a StopLater object exists. A signal that the
// process was started to ignore (by nohup, for example) stays ignored.
void CatchStopSignals();

// A signal that ends the process immediately no longer writes a line.
void StopQuietly();

// While an object exists, the first signal is only recorded. Used around code that writes files or
// that can end cleanly by itself: such code polls IsStopWanted() and returns early, or runs to its
// end. The command then ends with StopStatus(). Objects may nest; the count is global.
class StopLater {
  public:
    StopLater();
    ~StopLater();
    StopLater(const StopLater&) = delete;
    StopLater& operator=(const StopLater&) = delete;
};

// True if a signal has arrived while a StopLater object existed. May be called by any thread.
bool IsStopWanted();

// The exit status for that signal.
int StopStatus();

// The number of that signal; 0: none has arrived.
int StopSignal();

// Records a signal that has arrived at another rank, unless one has arrived here.
void RecordStop(int signal);

}  // namespace sylvora::frontend

#endif  // SYLVORA_FRONTEND_STOPSIGNALS_H
