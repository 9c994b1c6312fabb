// Exchanges between ranks by methods of a Python object.
#include "Communicators.h"

#include <climits>

namespace sylvora::python {

void KeptError::Keep() {
    PyObject* parts[3] = {};
    PyErr_Fetch(&parts[0], &parts[1], &parts[2]);
    const bool fFirst = part[0] == nullptr;
    for (int i = 0; i < 3; ++i) {
        Reference_t now(parts[i]);
        if (fFirst) part[i] = std::move(now);
    }
}

bool KeptError::Raise() {
    if (part[0] == nullptr) return false;
    PyObject* parts[3] = {};
    for (int i = 0; i < 3; ++i) parts[i] = part[i].release();
    PyErr_Restore(parts[0], parts[1], parts[2]);
    return true;
}

namespace {

constexpr int kFailed = -1;

// Memory of the library that Python sees for the time of one call.
class View {
  public:
    View(const void* data, size_t bytes, bool fWritable)
        : object(PyMemoryView_FromMemory(static_cast<char*>(const_cast<void*>(data)),
                                         static_cast<Py_ssize_t>(bytes),
                                         fWritable ? PyBUF_WRITE : PyBUF_READ)) {}
    PyObject* Get() const { return object.get(); }
    // Ends the view. Returns false, with an exception, if Python still uses the memory.
    bool Release() {
        if (object == nullptr) return true;
        const KeptException kept;
        const Reference_t answer(PyObject_CallMethod(object.get(), "release", nullptr));
        if (answer != nullptr) return true;
        PyErr_Clear();
        return false;
    }

  private:
    const Reference_t object;
};

// Calls method(first, last), of which `last` is a view or a number.
int Call(CommunicatorState& state, const char* method, View& first, PyObject* last) {
    Reference_t answer;
    if (first.Get() != nullptr && last != nullptr) {
        answer.reset(CallPython([&] {
            return PyObject_CallMethod(state.object.get(), method, "OO", first.Get(), last);
        }));
    }
    if (answer != nullptr) return 0;
    state.error.Keep();
    return kFailed;
}

int Exchange(void* context, const char* method, const void* mine, size_t mineBytes, void* all,
             size_t allBytes) {
    CommunicatorState& state = *static_cast<CommunicatorState*>(context);
    const LockHold locked(state.fEnding);
    View from(mine, mineBytes, false);
    View to(all, allBytes, true);
    const int status = Call(state, method, from, to.Get());
    const bool fFromReleased = from.Release();
    if (to.Release() && fFromReleased) return status;
    PyErr_SetString(PyExc_BufferError, "An exchange must not keep the memory that it is given");
    state.error.Keep();
    return kFailed;
}

size_t NumRanks(const void* context) {
    return static_cast<size_t>(static_cast<const CommunicatorState*>(context)->numRanks);
}

int AllGather(void* context, const void* mine, size_t bytes, void* all) {
    return Exchange(context, "allgather", mine, bytes, all, bytes * NumRanks(context));
}

int AllToAll(void* context, const void* mine, size_t bytes, void* all) {
    const size_t total = bytes * NumRanks(context);
    return Exchange(context, "alltoall", mine, total, all, total);
}

int Broadcast(void* context, void* data, size_t bytes, int root) {
    CommunicatorState& state = *static_cast<CommunicatorState*>(context);
    const LockHold locked(state.fEnding);
    View view(data, bytes, true);
    const Reference_t number(PyLong_FromLong(root));
    const int status = Call(state, "broadcast", view, number.get());
    if (view.Release()) return status;
    PyErr_SetString(PyExc_BufferError, "An exchange must not keep the memory that it is given");
    state.error.Keep();
    return kFailed;
}

int Cancelled(void* context) {
    CommunicatorState& state = *static_cast<CommunicatorState*>(context);
    const LockHold locked(state.fEnding);
    const Reference_t answer(
        CallPython([&] { return PyObject_CallMethod(state.object.get(), "cancelled", nullptr); }));
    const int fCancelled = answer != nullptr ? PyObject_IsTrue(answer.get()) : kFailed;
    if (fCancelled < 0) state.error.Keep();
    return fCancelled;
}

// Reads an attribute that is a small number. Returns false with an exception.
bool Read(PyObject* object, const char* name, int32_t& number) {
    const Reference_t attribute(PyObject_GetAttrString(object, name));
    const long value = attribute != nullptr ? PyLong_AsLong(attribute.get()) : -1;
    if (PyErr_Occurred() != nullptr) return false;
    if (value < 0 || value > INT_MAX) {
        PyErr_Format(PyExc_ValueError, "The communicator's %s is %ld", name, value);
        return false;
    }
    number = static_cast<int32_t>(value);
    return true;
}

}  // namespace

bool CommunicatorState::Describe(sylvora_communicator& functions) {
    if (!Read(object.get(), "rank", functions.rank) ||
        !Read(object.get(), "size", functions.num_ranks)) {
        return false;
    }
    numRanks = functions.num_ranks;
    functions.context = this;
    functions.allgather = AllGather;
    functions.broadcast = Broadcast;
    functions.alltoall = AllToAll;
    functions.cancelled = Cancelled;
    return true;
}

}  // namespace sylvora::python
