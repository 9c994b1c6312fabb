// The signal handler and its two global variables.
#include "StopSignals.h"

#include <unistd.h>

#include <atomic>
#include <csignal>
#include <string_view>

namespace sylvora::frontend {
namespace {

constexpr int kStatusOfSignals = 128;  // the shells' convention: 128 plus the signal's number

// A signal handler takes no context argument, so its state is global. It may call async-signal-safe
// functions only, such as write and _exit.
std::atomic<int> gNumLater{0};    // StopLater objects that exist
std::atomic<int> gStopSignal{0};  // the recorded signal; 0: none
std::atomic<bool> gQuiet{false};
static_assert(std::atomic<int>::is_always_lock_free && std::atomic<bool>::is_always_lock_free);

void Stop(int signal) {
    if (gNumLater.load() > 0 && gStopSignal.exchange(signal) == 0) return;
    constexpr std::string_view kLine = "Notice: Stopped by a signal!\n";
    if (!gQuiet) static_cast<void>(!::write(STDERR_FILENO, kLine.data(), kLine.size()));
    ::_exit(kStatusOfSignals + signal);
}

}  // namespace

void CatchStopSignals() {
    for (const int signal : {SIGINT, SIGTERM}) {
        struct sigaction before = {};
        if (::sigaction(signal, nullptr, &before) == 0 && before.sa_handler == SIG_IGN) continue;
        struct sigaction action = {};
        action.sa_handler = Stop;
        action.sa_flags = SA_RESTART;
        ::sigaction(signal, &action, nullptr);
    }
}

void StopQuietly() {
    gQuiet = true;
}

StopLater::StopLater() {
    ++gNumLater;
}

StopLater::~StopLater() {
    --gNumLater;
}

bool IsStopWanted() {
    return gStopSignal.load() != 0;
}

int StopStatus() {
    return kStatusOfSignals + gStopSignal.load();
}

int StopSignal() {
    return gStopSignal.load();
}

void RecordStop(int signal) {
    int none = 0;
    gStopSignal.compare_exchange_strong(none, signal);
}

}  // namespace sylvora::frontend
