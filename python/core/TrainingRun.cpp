// The run of a training of Python, and what it leaves.
#include "Models.h"
#include "Trainings.h"

namespace sylvora::python {
namespace {

// Refuses buffers of an objective that do not fit the data.
bool CheckObjective(const TrainingState& state) {
    if (state.objective == nullptr || state.numRows < 0) return true;
    return state.exchange->scores.CheckLength("scores", state.numRows);
}

// Refuses what a running training allows in its progress function only.
bool CheckProgress(const TrainingState& state, bool fOnlyThere) {
    if (state.fRunning ? state.progressThread == PyThread_get_thread_ident() : !fOnlyThere) {
        return true;
    }
    PyErr_SetString(PyExc_RuntimeError,
                    state.fRunning
                        ? "The training runs: this is only possible in its progress function"
                        : "A snapshot is only possible in the progress function of a training");
    return false;
}

// Raises what ended an exchange with other ranks. Returns false if nothing did.
bool RaiseExchangeError(const TrainingState& state) {
    return state.communicator != nullptr && state.communicator->error.Raise();
}

// Runs without the lock. Returns the library's status.
int RunUnlocked(TrainingState& state, sylvora_model** model) {
    const LockRelease unlocked;
    return sylvora_training_run(state.training, model);
}

}  // namespace

PyObject* TrainingRun(PyObject* self, PyObject* model_class) {
    TrainingState& state = StateOf<TrainingState>(self);
    if (!CheckModelClass(model_class)) return nullptr;
    if (state.fRun) {
        PyErr_SetString(PyExc_RuntimeError, "A training runs only once: make another one");
        return nullptr;
    }
    if (!CheckObjective(state)) return nullptr;
    if (sylvora_training_on_progress(state.training, CallProgress, &state) != 0) {
        return RaiseLibraryError(exceptions.training);
    }
    state.fRun = true;
    state.fRunning = true;
    state.fEnding = IsEnding();
    if (state.communicator != nullptr) state.communicator->fEnding = state.fEnding;
    state.lastCheck = std::chrono::steady_clock::now();
    sylvora_model* model = nullptr;
    const int status = RunUnlocked(state, &model);
    state.fRunning = false;
    const bool fRaised = state.error.Raise() || (status != 0 && RaiseExchangeError(state));
    if (!fRaised && status != 0) RaiseLibraryError(exceptions.training);
    PyObject* wrapped = nullptr;
    if (status == 0 && fRaised) sylvora_model_free(model);
    if (status == 0 && !fRaised) wrapped = WrapModel(model_class, model);
    // Dropping functions can run Python code, which must not see or lose the exception.
    const KeptException kept;
    state.DropRunParts();
    return wrapped;
}

PyObject* TrainingRecord(PyObject* self, PyObject* /*nothing*/) {
    const TrainingState& state = StateOf<TrainingState>(self);
    if (!CheckProgress(state, false)) return nullptr;
    Reference_t list(PyList_New(0));
    const char* set = nullptr;
    const char* metric = nullptr;
    const double* values = nullptr;
    int64_t numValues = 0;
    for (int i = 0; list != nullptr && sylvora_training_record(state.training, i, &set, &metric,
                                                               &values, &numValues) == 0;
         ++i) {
        Reference_t numbers(PyList_New(static_cast<Py_ssize_t>(numValues)));
        if (numbers == nullptr) return nullptr;
        for (int64_t v = 0; v < numValues; ++v) {
            PyObject* const number = PyFloat_FromDouble(values[v]);
            if (number == nullptr ||
                PyList_SetItem(numbers.get(), static_cast<Py_ssize_t>(v), number) != 0) {
                return nullptr;
            }
        }
        const Reference_t entry(
            Py_BuildValue("NNN", TextOf(set), TextOf(metric), numbers.release()));
        if (entry == nullptr || PyList_Append(list.get(), entry.get()) != 0) return nullptr;
    }
    return list.release();
}

PyObject* TrainingSnapshot(PyObject* self, PyObject* model_class) {
    const TrainingState& state = StateOf<TrainingState>(self);
    if (!CheckModelClass(model_class) || !CheckProgress(state, true)) return nullptr;
    sylvora_model* model = nullptr;
    int status = 0;
    {
        const LockRelease unlocked;
        status = sylvora_training_snapshot(state.training, &model);
    }
    if (status != 0) return RaiseLibraryError(exceptions.training);
    return WrapModel(model_class, model);
}

PyObject* TrainingBestRound(PyObject* self, void* /*closure*/) {
    const TrainingState& state = StateOf<TrainingState>(self);
    if (!CheckProgress(state, false)) return nullptr;
    return PyLong_FromLong(sylvora_training_best_round(state.training));
}

PyObject* TrainingStoppedEarly(PyObject* self, void* /*closure*/) {
    const TrainingState& state = StateOf<TrainingState>(self);
    if (!CheckProgress(state, false)) return nullptr;
    return PyBool_FromLong(sylvora_training_stopped_early(state.training));
}

}  // namespace sylvora::python
