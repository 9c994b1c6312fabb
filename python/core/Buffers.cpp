#include "Buffers.h"

#include <cstring>

namespace sylvora::python {
namespace {

const char* NameOf(sylvora_type type) {
    constexpr const char* kNames[] = {"float64", "float32", "int64",  "int32",  "int16",
                                      "int8",    "uint64",  "uint32", "uint16", "uint8"};
    return kNames[type];
}

// Finds the type of items of so many bytes and of a code of the struct module. Returns false if
// there is none.
bool TypeOf(char code, Py_ssize_t size, sylvora_type& type) {
    if (code == 'd' || code == 'f') {
        type = code == 'd' ? SYLVORA_FLOAT64 : SYLVORA_FLOAT32;
        return size == (code == 'd' ? 8 : 4);
    }
    const bool fSigned = std::strchr("bhilqn", code) != nullptr;
    if (!fSigned && std::strchr("BHILQN?", code) == nullptr) return false;
    switch (size) {
        case 1:
            type = fSigned ? SYLVORA_INT8 : SYLVORA_UINT8;
            return true;
        case 2:
            type = fSigned ? SYLVORA_INT16 : SYLVORA_UINT16;
            return true;
        case 4:
            type = fSigned ? SYLVORA_INT32 : SYLVORA_UINT32;
            return true;
        case 8:
            type = fSigned ? SYLVORA_INT64 : SYLVORA_UINT64;
            return true;
        default:
            return false;
    }
}

template <typename Value>
double Load(const void* data) {
    Value value;
    std::memcpy(&value, data, sizeof value);
    return static_cast<double>(value);
}

}  // namespace

Buffer::~Buffer() {
    Release();
}

void Buffer::Release() {
    const bool fWasTaken = std::exchange(fTaken, false);
    if (fWasTaken) PyBuffer_Release(&view);
}

bool Buffer::Borrow(PyObject* object, const char* what, int flags) {
    if (!PyObject_CheckBuffer(object)) {
        const Reference_t name(
            PyObject_GetAttrString(reinterpret_cast<PyObject*>(Py_TYPE(object)), "__name__"));
        if (name != nullptr) {
            PyErr_Format(PyExc_TypeError, "%s: %s needed, not %U", what,
                         flags == PyBUF_SIMPLE ? "bytes are" : "an array is", name.get());
        }
        return false;
    }
    fTaken = PyObject_GetBuffer(object, &view, flags) == 0;
    if (fTaken || !PyErr_ExceptionMatches(PyExc_BufferError)) return fTaken;
    PyErr_Clear();
    PyErr_Format(PyExc_ValueError, "%s: the object does not give access to its memory", what);
    return false;
}

bool Buffer::FindType(const char* what) {
    const char* const format = view.format != nullptr ? view.format : "B";
    const bool fOrder = std::strchr("@=<>!", format[0]) != nullptr && format[0] != '\0';
    const char* const code = format + (fOrder ? 1 : 0);
    if ((format[0] == '>' || format[0] == '!') && view.itemsize > 1) {
        PyErr_Format(PyExc_ValueError,
                     "%s: the items are big-endian (format \"%s\"): convert them to native order",
                     what, format);
        return false;
    }
    if (code[0] != '\0' && code[1] == '\0' && TypeOf(code[0], view.itemsize, type)) return true;
    PyErr_Format(PyExc_TypeError,
                 "%s: items of the format \"%s\" are not supported: convert them to float64, "
                 "float32, integers or booleans",
                 what, format);
    return false;
}

bool Buffer::Take(PyObject* object, const char* what, int numDimensions) {
    if (!Borrow(object, what, PyBUF_RECORDS_RO)) return false;
    if (view.ndim != numDimensions) {
        PyErr_Format(PyExc_ValueError, "%s: the array has %d dimensions, expected %d", what,
                     view.ndim, numDimensions);
        return false;
    }
    return FindType(what);
}

bool Buffer::TakeArray(PyObject* object, const char* what, sylvora_type wanted) {
    if (!Take(object, what, 1)) return false;
    if (type != wanted) {
        PyErr_Format(PyExc_TypeError, "%s: the items are %s, expected %s", what, NameOf(type),
                     NameOf(wanted));
        return false;
    }
    if (IsContiguous()) return true;
    PyErr_Format(PyExc_ValueError, "%s: the array is not contiguous", what);
    return false;
}

bool Buffer::TakeOutput(PyObject* object, const char* what, int64_t length) {
    return TakeArray(object, what, SYLVORA_FLOAT64) && CheckOutput(what) &&
           CheckLength(what, length);
}

bool Buffer::TakeBytes(PyObject* object, const char* what) {
    return Borrow(object, what, PyBUF_SIMPLE);
}

bool Buffer::CheckOutput(const char* what) const {
    if (view.readonly != 0) {
        PyErr_Format(PyExc_ValueError, "%s: the array is read-only", what);
        return false;
    }
    if (IsContiguous()) return true;
    PyErr_Format(PyExc_ValueError, "%s: the array is not C-contiguous", what);
    return false;
}

bool Buffer::CheckLength(const char* what, int64_t expected) const {
    if (Size(0) == expected) return true;
    PyErr_Format(PyExc_ValueError, "%s: the array has a length of %lld, expected %lld", what,
                 static_cast<long long>(Size(0)), static_cast<long long>(expected));
    return false;
}

// Some exporters, such as ctypes, have no strides for arrays that are contiguous.
int64_t Buffer::Stride(int dimension) const {
    if (view.strides != nullptr) return view.strides[dimension];
    int64_t stride = view.itemsize;
    for (int d = view.ndim - 1; d > dimension; --d) stride *= view.shape[d];
    return stride;
}

void* Buffer::Data() const {
    static double nothing = 0.0;
    return view.buf != nullptr ? view.buf : &nothing;
}

double ValueAt(const void* data, sylvora_type type) {
    switch (type) {
        case SYLVORA_FLOAT64:
            return Load<double>(data);
        case SYLVORA_FLOAT32:
            return Load<float>(data);
        case SYLVORA_INT64:
            return Load<int64_t>(data);
        case SYLVORA_INT32:
            return Load<int32_t>(data);
        case SYLVORA_INT16:
            return Load<int16_t>(data);
        case SYLVORA_INT8:
            return Load<int8_t>(data);
        case SYLVORA_UINT64:
            return Load<uint64_t>(data);
        case SYLVORA_UINT32:
            return Load<uint32_t>(data);
        case SYLVORA_UINT16:
            return Load<uint16_t>(data);
        case SYLVORA_UINT8:
            break;
    }
    return Load<uint8_t>(data);
}

}  // namespace sylvora::python
