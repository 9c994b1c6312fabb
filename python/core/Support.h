// What the files of the extension module share: references, the interpreter's global lock, errors,
// and Python objects that own a C++ state.
#ifndef SYLVORA_PYTHON_CORE_SUPPORT_H
#define SYLVORA_PYTHON_CORE_SUPPORT_H

#include <Python.h>

#include <cxxabi.h>
#include <unistd.h>

#include <cstddef>
#include <memory>
#include <new>
#include <utility>

namespace sylvora::python {

struct DropReference {
    void operator()(PyObject* object) const { Py_DECREF(object); }
};
// Owns one reference. Must be destroyed with the lock held.
typedef std::unique_ptr<PyObject, DropReference> Reference_t;

inline Reference_t NewReference(PyObject* borrowed) {
    Py_XINCREF(borrowed);
    return Reference_t(borrowed);
}

// Calls take(), which takes the lock. Once the interpreter has begun to end, all threads but the
// one that ends it must not take it any more: they wait here for the end of the process. The
// interpreter itself would leave them with pthread_exit, whose unwinding must not reach C++ code
// that does not expect it. `fEnding` says that the interpreter was ending when this thread last had
// the lock.
template <typename Take>
auto TakeLock(bool fEnding, const Take& take) {
    try {
        while (!fEnding && Py_IsInitialized() == 0) pause();
        return take();
    } catch (const abi::__forced_unwind&) {
        for (;;) pause();
    }
}

// Calls Python code, which ends this thread, by unwinding, if the interpreter ends meanwhile.
template <typename Call>
auto CallPython(const Call& call) {
    try {
        return call();
    } catch (const abi::__forced_unwind&) {
        for (;;) pause();
    }
}

inline bool IsEnding() {
    return Py_IsInitialized() == 0;
}

// Releases the lock, which the calling thread holds, for its lifetime.
class LockRelease {
  public:
    LockRelease() : fEnding(IsEnding()), thread(PyEval_SaveThread()) {}
    ~LockRelease() {
        TakeLock(fEnding, [this] { PyEval_RestoreThread(thread); });
    }
    LockRelease(const LockRelease&) = delete;
    LockRelease& operator=(const LockRelease&) = delete;

  private:
    const bool fEnding;
    PyThreadState* const thread;
};

// Holds the lock in any thread. `fEnding` says that the interpreter was ending when the call of the
// library began.
class LockHold {
  public:
    explicit LockHold(bool fEnding) : before(TakeLock(fEnding, PyGILState_Ensure)) {}
    ~LockHold() { PyGILState_Release(before); }
    LockHold(const LockHold&) = delete;
    LockHold& operator=(const LockHold&) = delete;

  private:
    const PyGILState_STATE before;
};

// Puts the current exception, if there is one, aside for its lifetime.
class KeptException {
  public:
    KeptException() { PyErr_Fetch(&type, &value, &traceback); }
    ~KeptException() { PyErr_Restore(type, value, traceback); }
    KeptException(const KeptException&) = delete;
    KeptException& operator=(const KeptException&) = delete;

  private:
    PyObject* type = nullptr;
    PyObject* value = nullptr;
    PyObject* traceback = nullptr;
};

// ---- errors

// The exceptions of the module; borrowed from it.
struct Exceptions {
    PyObject* error = nullptr;
    PyObject* model = nullptr;
    PyObject* training = nullptr;
};
extern Exceptions exceptions;

// Adds the exceptions to the module. Returns false with an exception set.
bool AddExceptions(PyObject* module);

// Raises the last error of the library in this thread as `kind`, or as MemoryError. Returns null.
std::nullptr_t RaiseLibraryError(PyObject* kind);
// The same; the text begins with the name of the file, bytes of the file system.
std::nullptr_t RaiseFileError(PyObject* kind, PyObject* file);

// A method that raises MemoryError if memory for C++ objects runs out.
template <PyObject* (*kFunction)(PyObject*, PyObject*)>
PyObject* Guarded(PyObject* self, PyObject* argument) {
    try {
        return kFunction(self, argument);
    } catch (const std::bad_alloc&) {
        return PyErr_NoMemory();
    }
}

// The same for __new__.
template <PyObject* (*kFunction)(PyTypeObject*, PyObject*, PyObject*)>
PyObject* GuardedNew(PyTypeObject* type, PyObject* arguments, PyObject* keywords) {
    try {
        return kFunction(type, arguments, keywords);
    } catch (const std::bad_alloc&) {
        return PyErr_NoMemory();
    }
}

// ---- objects

template <typename State>
struct Object {
    PyObject_HEAD State* state;
};

template <typename State>
State& StateOf(PyObject* object) {
    return *reinterpret_cast<Object<State>*>(object)->state;
}

// A new object of a type made by PyType_FromSpec, or of a subclass, which takes over the state.
// __new__ and __init__ are not called.
template <typename State>
PyObject* Wrap(PyTypeObject* type, std::unique_ptr<State> state) {
    const auto allocate = reinterpret_cast<allocfunc>(PyType_GetSlot(type, Py_tp_alloc));
    PyObject* const object = allocate(type, 0);
    if (object != nullptr) reinterpret_cast<Object<State>*>(object)->state = state.release();
    return object;
}

// tp_dealloc of these objects. Those with garbage collection must be untracked first.
template <typename State>
void Dealloc(PyObject* object) {
    PyTypeObject* const type = Py_TYPE(object);
    delete reinterpret_cast<Object<State>*>(object)->state;
    reinterpret_cast<freefunc>(PyType_GetSlot(type, Py_tp_free))(object);
    Py_DECREF(type);
}

// The types of the module; borrowed from it.
struct Types {
    PyTypeObject* table = nullptr;
    PyTypeObject* dataset = nullptr;
    PyTypeObject* training = nullptr;
    PyTypeObject* model = nullptr;
};
extern Types types;

// Makes a type and adds it to the module as `name`. Returns it, borrowed, or null with an
// exception.
PyTypeObject* AddType(PyObject* module, const char* name, PyType_Spec& spec);

// Each adds one type. Return false with an exception set.
bool AddTable(PyObject* module);
bool AddDataset(PyObject* module);
bool AddTraining(PyObject* module);
bool AddModel(PyObject* module);

// The functions of the module that are not those of handles, ended by an empty entry.
PyMethodDef* LossFunctions();

// A str from UTF-8; what is no UTF-8 becomes surrogates.
PyObject* TextOf(const char* text);

// The text of a str as UTF-8, which the str owns; null with an exception if it has a NUL or is no
// str. `what` begins the message.
const char* Utf8Of(PyObject* text, const char* what);

template <typename Function>
void* SlotOf(Function* function) {
    return reinterpret_cast<void*>(function);
}

}  // namespace sylvora::python

#endif  // SYLVORA_PYTHON_CORE_SUPPORT_H
