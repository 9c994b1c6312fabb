// The Python class Training: its settings.
#include "Trainings.h"

#include "Datasets.h"
#include "Tables.h"

namespace sylvora::python {

TrainingState::~TrainingState() {
    sylvora_training_free(training);
}

void TrainingState::DropRunParts() {
    for (Reference_t* const part : {&objective, &progress, &message}) part->reset();
    for (UserMetric& metric : metricV) metric.function.reset();
    tableV.clear();
    exchange.reset();
}

namespace {

// The state for a method that changes it; null, with an exception set, after the start. To be asked
// for once all arguments are converted: that can run Python code, which can start the training.
TrainingState* Changeable(PyObject* self) {
    TrainingState& state = StateOf<TrainingState>(self);
    if (!state.fRun) return &state;
    PyErr_SetString(PyExc_RuntimeError, state.fRunning ? "The training runs: it cannot be changed"
                                                       : "The training has run: make another one");
    return nullptr;
}

PyObject* Result(int status) {
    if (status != 0) return RaiseLibraryError(exceptions.training);
    Py_RETURN_NONE;
}

bool CheckCallable(PyObject* function) {
    if (PyCallable_Check(function) != 0) return true;
    PyErr_SetString(PyExc_TypeError, "The function cannot be called");
    return false;
}

PyObject* New(PyTypeObject* type, PyObject* arguments, PyObject* keywords) {
    if (PyTuple_Size(arguments) > 0 || (keywords != nullptr && PyDict_Size(keywords) > 0)) {
        PyErr_SetString(PyExc_TypeError, "Training() takes no arguments");
        return nullptr;
    }
    auto state = std::make_unique<TrainingState>();
    if (sylvora_training_new(&state->training) != 0) return RaiseLibraryError(exceptions.training);
    return Wrap(type, std::move(state));
}

PyObject* Set(PyObject* self, PyObject* arguments) {
    TrainingState* const state = Changeable(self);
    const char* parameter = nullptr;
    const char* value = nullptr;
    if (state == nullptr || !PyArg_ParseTuple(arguments, "ss:set", &parameter, &value)) {
        return nullptr;
    }
    return Result(sylvora_training_set(state->training, parameter, value));
}

// Labels and, unless they are None, queries.
struct Target {
    Buffer labels;
    Buffer queries;

    bool Take(PyObject* labelArray, PyObject* queryArray) {
        return labels.TakeArray(labelArray, "labels", SYLVORA_FLOAT64) &&
               (queryArray == Py_None || queries.TakeArray(queryArray, "queries", SYLVORA_INT32));
    }
    const int32_t* Queries() const { return queries.IsTaken() ? queries.As<int32_t>() : nullptr; }
    int64_t NumQueries() const { return queries.IsTaken() ? queries.Size(0) : 0; }
};

PyObject* Data(PyObject* self, PyObject* arguments) {
    PyObject* data = nullptr;
    PyObject* labels = nullptr;
    PyObject* queries = nullptr;
    Target target;
    if (!PyArg_ParseTuple(arguments, "O!OO:data", types.dataset, &data, &labels, &queries) ||
        !target.Take(labels, queries)) {
        return nullptr;
    }
    TrainingState* const state = Changeable(self);
    if (state == nullptr) return nullptr;
    const sylvora_dataset* const set = StateOf<DatasetState>(data).data;
    const int status =
        sylvora_training_data(state->training, set, target.labels.As<double>(),
                              target.labels.Size(0), target.Queries(), target.NumQueries());
    if (status == 0) {
        state->dataV.push_back(NewReference(data));
        state->communicator = StateOf<DatasetState>(data).communicator;
        state->numRows = sylvora_dataset_rows(set);
    }
    return Result(status);
}

PyObject* Weights(PyObject* self, PyObject* weights) {
    Buffer buffer;
    if (!buffer.TakeArray(weights, "weights", SYLVORA_INT32)) return nullptr;
    TrainingState* const state = Changeable(self);
    if (state == nullptr) return nullptr;
    return Result(sylvora_training_weights(state->training, buffer.As<int32_t>(), buffer.Size(0)));
}

// Borrows an array that the objective and the library exchange.
bool TakeExchanged(Buffer& buffer, PyObject* array, const char* what) {
    return buffer.TakeArray(array, what, SYLVORA_FLOAT64) && buffer.CheckOutput(what);
}

bool TakeExchange(Exchange& exchange, PyObject* scores, PyObject* gradients, PyObject* hessians) {
    if (!TakeExchanged(exchange.scores, scores, "scores") ||
        !TakeExchanged(exchange.gradients, gradients, "gradients") ||
        !exchange.gradients.CheckLength("gradients", exchange.scores.Size(0))) {
        return false;
    }
    if (hessians == Py_None) return true;
    return TakeExchanged(exchange.hessians, hessians, "hessians") &&
           exchange.hessians.CheckLength("hessians", exchange.scores.Size(0));
}

PyObject* Objective(PyObject* self, PyObject* arguments) {
    PyObject* function = nullptr;
    PyObject* scores = nullptr;
    PyObject* gradients = nullptr;
    PyObject* hessians = nullptr;
    auto exchange = std::make_unique<Exchange>();
    if (!PyArg_ParseTuple(arguments, "OOOO:objective", &function, &scores, &gradients, &hessians) ||
        !CheckCallable(function) || !TakeExchange(*exchange, scores, gradients, hessians)) {
        return nullptr;
    }
    TrainingState* const state = Changeable(self);
    if (state == nullptr) return nullptr;
    if (state->objective != nullptr) {
        PyErr_SetString(PyExc_RuntimeError, "The training has an objective");
        return nullptr;
    }
    state->exchange = std::move(exchange);
    state->objective = NewReference(function);
    return Result(sylvora_training_objective(state->training, CallObjective, state,
                                             state->exchange->hessians.IsTaken() ? 1 : 0));
}

PyObject* Start(PyObject* self, PyObject* value) {
    const double number = PyFloat_AsDouble(value);
    if (number == -1.0 && PyErr_Occurred() != nullptr) return nullptr;
    TrainingState* const state = Changeable(self);
    if (state == nullptr) return nullptr;
    return Result(sylvora_training_start(state->training, number));
}

PyObject* Evaluate(PyObject* self, PyObject* arguments) {
    const char* name = nullptr;
    PyObject* table = nullptr;
    PyObject* labels = nullptr;
    PyObject* queries = nullptr;
    Target target;
    if (!PyArg_ParseTuple(arguments, "sO!OO:evaluate", &name, types.table, &table, &labels,
                          &queries) ||
        !target.Take(labels, queries)) {
        return nullptr;
    }
    TrainingState* const state = Changeable(self);
    if (state == nullptr) return nullptr;
    state->tableV.push_back(NewReference(table));
    return Result(sylvora_training_evaluate(
        state->training, name, &StateOf<TableState>(table).block, target.labels.As<double>(),
        target.labels.Size(0), target.Queries(), target.NumQueries()));
}

PyObject* Metric(PyObject* self, PyObject* name) {
    TrainingState* const state = Changeable(self);
    const char* const text = state != nullptr ? Utf8Of(name, "The metric") : nullptr;
    if (text == nullptr) return nullptr;
    return Result(sylvora_training_metric(state->training, text));
}

PyObject* AddUserMetric(PyObject* self, PyObject* arguments) {
    const char* name = nullptr;
    PyObject* function = nullptr;
    int fLarger = 0;
    if (!PyArg_ParseTuple(arguments, "sOp:user_metric", &name, &function, &fLarger) ||
        !CheckCallable(function)) {
        return nullptr;
    }
    TrainingState* const state = Changeable(self);
    if (state == nullptr) return nullptr;
    state->metricV.push_back({state, NewReference(function)});
    return Result(sylvora_training_user_metric(state->training, name, CallMetric,
                                               &state->metricV.back(), fLarger));
}

PyObject* StopRule(PyObject* self, PyObject* arguments) {
    const char* set = nullptr;
    const char* metric = nullptr;
    TrainingState* const state = Changeable(self);
    if (state == nullptr || !PyArg_ParseTuple(arguments, "zz:stop_rule", &set, &metric)) {
        return nullptr;
    }
    return Result(sylvora_training_stop_rule(state->training, set, metric));
}

PyObject* OnProgress(PyObject* self, PyObject* function) {
    TrainingState* const state = Changeable(self);
    if (state == nullptr || !CheckCallable(function)) return nullptr;
    const Reference_t old = std::move(state->progress);
    state->progress = NewReference(function);
    Py_RETURN_NONE;
}

PyObject* OnMessage(PyObject* self, PyObject* function) {
    TrainingState* const state = Changeable(self);
    if (state == nullptr || !CheckCallable(function)) return nullptr;
    const Reference_t old = std::move(state->message);
    state->message = NewReference(function);
    return Result(sylvora_training_on_message(state->training, CallMessage, state));
}

// Functions often refer to the training that they belong to.
int Traverse(PyObject* self, visitproc visit, void* arg) {
    Py_VISIT(Py_TYPE(self));
    const TrainingState* const state = reinterpret_cast<Object<TrainingState>*>(self)->state;
    if (state == nullptr) return 0;
    Py_VISIT(state->objective.get());
    Py_VISIT(state->progress.get());
    Py_VISIT(state->message.get());
    for (const UserMetric& metric : state->metricV) Py_VISIT(metric.function.get());
    for (const Reference_t& part : state->error.part) Py_VISIT(part.get());
    return 0;
}

// A running training is referred to by its caller, so it is never cleared.
int Clear(PyObject* self) {
    TrainingState& state = StateOf<TrainingState>(self);
    state.fRun = true;  // it lacks its functions
    state.DropRunParts();
    return 0;
}

void DeallocTraining(PyObject* self) {
    PyObject_GC_UnTrack(self);
    Dealloc<TrainingState>(self);
}

PyMethodDef methods[] = {
    {"set", Guarded<Set>, METH_VARARGS,
     "set($self, parameter, value, /)\n--\n\nSets a parameter of the library."},
    {"data", Guarded<Data>, METH_VARARGS,
     "data($self, data, labels, queries, /)\n--\n\nSets the data; labels and queries are copied."},
    {"weights", Guarded<Weights>, METH_O,
     "weights($self, weights, /)\n--\n\nSets int32 row weights, after the data."},
    {"objective", Guarded<Objective>, METH_VARARGS,
     "objective($self, function, scores, gradients, hessians, /)\n--\n\n"
     "Sets the function of lossFunc USER, and the arrays that it works on."},
    {"start", Guarded<Start>, METH_O,
     "start($self, value, /)\n--\n\nSets the score at which lossFunc USER starts."},
    {"evaluate", Guarded<Evaluate>, METH_VARARGS,
     "evaluate($self, name, table, labels, queries, /)\n--\n\nAdds a set to evaluate."},
    {"metric", Guarded<Metric>, METH_O,
     "metric($self, name, /)\n--\n\nAdds a metric of the library to record."},
    {"user_metric", Guarded<AddUserMetric>, METH_VARARGS,
     "user_metric($self, name, function, larger_is_better, /)\n--\n\nAdds a metric to record."},
    {"stop_rule", Guarded<StopRule>, METH_VARARGS,
     "stop_rule($self, set, metric, /)\n--\n\nSets what earlyStop looks at."},
    {"on_progress", Guarded<OnProgress>, METH_O,
     "on_progress($self, function, /)\n--\n\nSets the function to call after each round."},
    {"on_message", Guarded<OnMessage>, METH_O,
     "on_message($self, function, /)\n--\n\nSets the function that receives messages."},
    {"run", Guarded<TrainingRun>, METH_O, "run($self, model_class, /)\n--\n\nTrains, once."},
    {"record", Guarded<TrainingRecord>, METH_NOARGS,
     "record($self, /)\n--\n\nThe values of all metrics by round."},
    {"snapshot", Guarded<TrainingSnapshot>, METH_O,
     "snapshot($self, model_class, /)\n--\n\nA copy of the model so far."},
    {nullptr, nullptr, 0, nullptr},
};

PyGetSetDef attributes[] = {
    {"best_round", TrainingBestRound, nullptr, nullptr, nullptr},
    {"stopped_early", TrainingStoppedEarly, nullptr, nullptr, nullptr},
    {nullptr, nullptr, nullptr, nullptr, nullptr},
};

}  // namespace

bool AddTraining(PyObject* module) {
    static char documentation[] = "Training()\n--\n\nOne training. It runs once.";
    static PyType_Slot slots[] = {
        {Py_tp_doc, documentation},
        {Py_tp_new, SlotOf(GuardedNew<New>)},
        {Py_tp_dealloc, SlotOf(DeallocTraining)},
        {Py_tp_traverse, SlotOf(Traverse)},
        {Py_tp_clear, SlotOf(Clear)},
        {Py_tp_methods, methods},
        {Py_tp_getset, attributes},
        {0, nullptr},
    };
    static PyType_Spec description = {"sylvora._core.Training",
                                      static_cast<int>(sizeof(Object<TrainingState>)), 0,
                                      Py_TPFLAGS_DEFAULT | Py_TPFLAGS_HAVE_GC, slots};
    types.training = AddType(module, "Training", description);
    return types.training != nullptr;
}

}  // namespace sylvora::python
