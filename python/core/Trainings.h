// The state of the Python class Training, and the functions that the library calls back.
#ifndef SYLVORA_PYTHON_CORE_TRAININGS_H
#define SYLVORA_PYTHON_CORE_TRAININGS_H

#include <chrono>
#include <deque>
#include <memory>
#include <vector>

#include "Buffers.h"
#include "Communicators.h"
#include "Support.h"
#include "sylvora_c.h"

namespace sylvora::python {

struct TrainingState;

// The context of a metric.
struct UserMetric {
    TrainingState* training;
    Reference_t function;
};

// The arrays that the objective and the library exchange.
struct Exchange {
    Buffer scores;
    Buffer gradients;
    Buffer hessians;  // not taken: there are none
};

// All members are used with the lock held, but for the training itself and what CallProgress looks
// at to do without the lock: progress, numDone and lastCheck. These are set before a run, and while
// it lasts used by the thread that runs it only.
struct TrainingState {
    sylvora_training* training = nullptr;
    std::vector<Reference_t> dataV;                   // Dataset objects, for the training's life
    std::shared_ptr<CommunicatorState> communicator;  // of the data; null: no ranks
    std::vector<Reference_t> tableV;                  // of the sets to evaluate
    int64_t numRows = -1;                             // of the data; -1: not set

    Reference_t objective;
    std::unique_ptr<Exchange> exchange;  // with the objective
    std::deque<UserMetric> metricV;
    Reference_t progress;
    Reference_t message;

    bool fRun = false;  // it has begun
    bool fRunning = false;
    bool fEnding = false;              // the interpreter was ending when the run began
    unsigned long progressThread = 0;  // the thread in which a progress function runs; 0: none
    int numDone = -1;                  // as told last to the progress function
    std::chrono::steady_clock::time_point lastCheck;  // of signals
    KeptError error;                                  // the first exception of a function

    TrainingState() = default;
    ~TrainingState();
    TrainingState(const TrainingState&) = delete;
    TrainingState& operator=(const TrainingState&) = delete;

    // Drops the functions and what only a run needs. Can run any Python code.
    void DropRunParts();
};

// Callbacks.cpp: the functions for the library. Contexts are a TrainingState or a UserMetric.
int CallObjective(void* context, int round, int64_t num_rows, const double* labels,
                  const double* scores, double* gradients, double* hessians);
int CallMetric(void* context, const char* set, int64_t num_rows, const double* labels,
               const double* scores, double* value);
int CallProgress(void* context, int done, int total);
void CallMessage(void* context, int stream, const char* text);

// TrainingRun.cpp
PyObject* TrainingRun(PyObject* self, PyObject* model_class);
PyObject* TrainingRecord(PyObject* self, PyObject* nothing);
PyObject* TrainingSnapshot(PyObject* self, PyObject* model_class);
PyObject* TrainingBestRound(PyObject* self, void* closure);
PyObject* TrainingStoppedEarly(PyObject* self, void* closure);

}  // namespace sylvora::python

#endif  // SYLVORA_PYTHON_CORE_TRAININGS_H
