// The state of the Python class Model, and its methods by file.
#ifndef SYLVORA_PYTHON_CORE_MODELS_H
#define SYLVORA_PYTHON_CORE_MODELS_H

#include <limits>

#include "Support.h"
#include "sylvora_c.h"

namespace sylvora::python {

// All members but the model's content are used with the lock held.
struct ModelState {
    sylvora_model* model = nullptr;
    sylvora_model_facts facts = {};
    // A value that single rows are to read as missing, from the description; NaN: none.
    double missing = std::numeric_limits<double>::quiet_NaN();
    bool fNanMissing = true;  // whether single rows may have NaN, from the description
    int numUses = 0;          // calls that use the model without the lock

    ModelState() = default;
    ~ModelState();
    ModelState(const ModelState&) = delete;
    ModelState& operator=(const ModelState&) = delete;

    // Reads the facts and what is missing again. Returns false with an exception set.
    [[nodiscard]] bool Refresh();
    // Refuses changes while other threads use the model.
    [[nodiscard]] bool CheckExclusive() const;
};

// Releases the lock for a use of the model, which must not change meanwhile.
class ModelUse {
  public:
    explicit ModelUse(ModelState& used) : counter(used) { ++counter.numUses; }
    ~ModelUse() { --counter.numUses; }
    ModelUse(const ModelUse&) = delete;
    ModelUse& operator=(const ModelUse&) = delete;

    template <typename Action>
    int Run(const Action& action) const {
        const LockRelease unlocked;
        return action();
    }

  private:
    ModelState& counter;
};

// A Python object of the given class, a Model or a subclass, which takes over the model. Returns
// null with an exception set, and frees the model.
PyObject* WrapModel(PyObject* type, sylvora_model* model);
// Refuses what is no subclass of Model.
bool CheckModelClass(PyObject* type);

// ModelFiles.cpp
PyObject* ModelRead(PyObject* type, PyObject* arguments);
PyObject* ModelParse(PyObject* type, PyObject* arguments);
PyObject* ModelWrite(PyObject* self, PyObject* arguments);
PyObject* ModelText(PyObject* self, PyObject* arguments);

// ModelScoring.cpp
PyObject* ModelScore(PyObject* self, PyObject* row);
PyObject* ModelScoreTable(PyObject* self, PyObject* arguments);
PyObject* ModelAddGroups(PyObject* self, PyObject* arguments);
PyObject* ModelLeaves(PyObject* self, PyObject* arguments);
PyObject* ModelVotes(PyObject* self, PyObject* arguments);

}  // namespace sylvora::python

#endif  // SYLVORA_PYTHON_CORE_MODELS_H
