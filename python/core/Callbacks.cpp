// Functions of Python in a training, which runs without the lock. The first exception ends the run
// and is kept for the caller of it.
#include <algorithm>
#include <climits>

#include "Trainings.h"

namespace sylvora::python {
namespace {

constexpr int kFailed = 1;

// How often a run without a progress function looks for signals, which needs the lock.
constexpr std::chrono::milliseconds kBetweenChecks(20);

// Handles signals, such as Ctrl-C; only the main thread of the interpreter has any.
bool HasSignal(TrainingState& state) {
    if (PyErr_CheckSignals() == 0) return false;
    state.error.Keep();
    return true;
}

// Calls the user's progress function. Returns what a progress function of the library has to.
int AskUser(TrainingState& state, int done, int total) {
    state.progressThread = PyThread_get_thread_ident();
    const Reference_t answer(
        CallPython([&] { return PyObject_CallFunction(state.progress.get(), "ii", done, total); }));
    const int fStop = answer != nullptr ? PyObject_IsTrue(answer.get()) : -1;
    state.progressThread = 0;
    if (fStop < 0) {
        state.error.Keep();
        return SYLVORA_STOP;
    }
    return fStop != 0 ? SYLVORA_STOP_AND_KEEP : SYLVORA_GO_ON;
}

}  // namespace

int CallObjective(void* context, int round, int64_t num_rows, const double* /*labels*/,
                  const double* scores, double* gradients, double* hessians) {
    TrainingState& state = *static_cast<TrainingState*>(context);
    const LockHold locked(state.fEnding);
    const Exchange& exchange = *state.exchange;
    std::copy_n(scores, num_rows, exchange.scores.As<double>());
    const Reference_t answer(
        CallPython([&] { return PyObject_CallFunction(state.objective.get(), "i", round); }));
    if (answer == nullptr) {
        state.error.Keep();
        return kFailed;
    }
    std::copy_n(exchange.gradients.As<double>(), num_rows, gradients);
    if (hessians != nullptr) std::copy_n(exchange.hessians.As<double>(), num_rows, hessians);
    return 0;
}

int CallMetric(void* context, const char* set, int64_t num_rows, const double* /*labels*/,
               const double* scores, double* value) {
    const UserMetric& metric = *static_cast<UserMetric*>(context);
    const LockHold locked(metric.training->fEnding);
    const Reference_t name(TextOf(set));
    const Reference_t bytes(PyBytes_FromStringAndSize(
        reinterpret_cast<const char*>(scores),
        static_cast<Py_ssize_t>(num_rows) * static_cast<Py_ssize_t>(sizeof *scores)));
    Reference_t answer;
    if (name != nullptr && bytes != nullptr) {
        answer.reset(CallPython([&] {
            return PyObject_CallFunctionObjArgs(metric.function.get(), name.get(), bytes.get(),
                                                nullptr);
        }));
    }
    if (answer != nullptr) *value = PyFloat_AsDouble(answer.get());
    if (PyErr_Occurred() == nullptr) return 0;
    metric.training->error.Keep();
    return kFailed;
}

int CallProgress(void* context, int done, int total) {
    TrainingState& state = *static_cast<TrainingState*>(context);
    const auto now = std::chrono::steady_clock::now();
    // The library asks again without progress, too, when it waits.
    const bool fUser = state.progress != nullptr && done != state.numDone;
    if (!fUser && now - state.lastCheck < kBetweenChecks) return SYLVORA_GO_ON;
    state.lastCheck = now;
    state.numDone = done;
    const LockHold locked(state.fEnding);
    // A message that failed ends the run here.
    if (state.error.part[0] != nullptr) return SYLVORA_STOP;
    const int answer = fUser ? AskUser(state, done, total) : SYLVORA_GO_ON;
    return HasSignal(state) ? SYLVORA_STOP : answer;
}

void CallMessage(void* context, int stream, const char* text) {
    TrainingState& state = *static_cast<TrainingState*>(context);
    const LockHold locked(state.fEnding);
    if (state.error.part[0] != nullptr) return;
    const Reference_t message(TextOf(text));
    Reference_t answer;
    if (message != nullptr) {
        answer.reset(CallPython([&] {
            return PyObject_CallFunction(state.message.get(), "iO", stream, message.get());
        }));
    }
    if (answer == nullptr) state.error.Keep();
}

}  // namespace sylvora::python
