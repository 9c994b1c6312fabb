// The functions of the module about losses.
#include "Buffers.h"
#include "Support.h"
#include "sylvora_c.h"

namespace sylvora::python {
namespace {

// Calls map(scores, number of scores, out) without the lock; returns None.
template <typename Map>
PyObject* MapScores(PyObject* scores, PyObject* out, const Map& map) {
    Buffer from;
    Buffer to;
    if (!from.TakeArray(scores, "scores", SYLVORA_FLOAT64) ||
        !to.TakeOutput(out, "out", from.Size(0))) {
        return nullptr;
    }
    int status = 0;
    {
        const LockRelease unlocked;
        status = map(from.As<double>(), from.Size(0), to.As<double>());
    }
    if (status != 0) return RaiseLibraryError(PyExc_ValueError);
    Py_RETURN_NONE;
}

PyObject* Probabilities(PyObject* /*module*/, PyObject* arguments) {
    const char* loss = nullptr;
    PyObject* scores = nullptr;
    PyObject* out = nullptr;
    if (!PyArg_ParseTuple(arguments, "sOO:probabilities", &loss, &scores, &out)) return nullptr;
    return MapScores(scores, out, [loss](const double* from, int64_t num, double* to) {
        return sylvora_probabilities(loss, from, num, to);
    });
}

PyObject* Expit(PyObject* /*module*/, PyObject* arguments) {
    PyObject* scores = nullptr;
    PyObject* out = nullptr;
    if (!PyArg_ParseTuple(arguments, "OO:expit", &scores, &out)) return nullptr;
    return MapScores(scores, out, sylvora_expit);
}

PyObject* LogOdds(PyObject* /*module*/, PyObject* arguments) {
    PyObject* labels = nullptr;
    PyObject* weights = nullptr;
    Buffer label;
    Buffer weight;
    if (!PyArg_ParseTuple(arguments, "OO:log_odds", &labels, &weights) ||
        !label.TakeArray(labels, "labels", SYLVORA_FLOAT64)) {
        return nullptr;
    }
    if (weights != Py_None && (!weight.TakeArray(weights, "weights", SYLVORA_INT32) ||
                               !weight.CheckLength("weights", label.Size(0)))) {
        return nullptr;
    }
    double odds = 0.0;
    const int32_t* const counts = weight.IsTaken() ? weight.As<int32_t>() : nullptr;
    if (sylvora_log_odds(label.As<double>(), counts, label.Size(0), &odds) != 0) {
        return RaiseLibraryError(PyExc_ValueError);
    }
    return PyFloat_FromDouble(odds);
}

}  // namespace

PyMethodDef* LossFunctions() {
    static PyMethodDef functions[] = {
        {"probabilities", Guarded<Probabilities>, METH_VARARGS,
         "probabilities(loss, scores, out, /)\n--\n\n"
         "The probability of the larger label at each score into out; both float64 (n,)."},
        {"expit", Guarded<Expit>, METH_VARARGS,
         "expit(scores, out, /)\n--\n\n"
         "1 / (1 + exp(-score)) into out, as the loss LogLoss has it; both float64 (n,)."},
        {"log_odds", Guarded<LogOdds>, METH_VARARGS,
         "log_odds(labels, weights, /)\n--\n\n"
         "The start value of the loss LogLoss: the log-odds of the labels above 0."},
        {nullptr, nullptr, 0, nullptr},
    };
    return functions;
}

}  // namespace sylvora::python
