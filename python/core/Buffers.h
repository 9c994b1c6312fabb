// Arrays of other objects, borrowed through the buffer protocol.
#ifndef SYLVORA_PYTHON_CORE_BUFFERS_H
#define SYLVORA_PYTHON_CORE_BUFFERS_H

#include <cstdint>

#include "Support.h"
#include "sylvora_c.h"

namespace sylvora::python {

// The memory of an object, which cannot be freed or resized while the Buffer lives. Must be
// destroyed with the lock held. Functions that return bool return false with a ValueError or
// TypeError whose text begins with `what`.
class Buffer {
  public:
    Buffer() = default;
    ~Buffer();
    Buffer(const Buffer&) = delete;
    Buffer& operator=(const Buffer&) = delete;

    // Borrows an array of numbers with so many dimensions, in any strides; once per Buffer.
    [[nodiscard]] bool Take(PyObject* object, const char* what, int numDimensions);
    // Borrows a contiguous array with one dimension and items of one type.
    [[nodiscard]] bool TakeArray(PyObject* object, const char* what, sylvora_type wanted);
    // Borrows a contiguous array of so many doubles to write to.
    [[nodiscard]] bool TakeOutput(PyObject* object, const char* what, int64_t length);
    // Borrows the memory of any object that has bytes, whatever it says of them.
    [[nodiscard]] bool TakeBytes(PyObject* object, const char* what);
    // Whether the memory is contiguous, row by row.
    [[nodiscard]] bool IsContiguous() const { return PyBuffer_IsContiguous(&view, 'C') != 0; }
    // Refuses memory that must not be written to, or that is not contiguous.
    [[nodiscard]] bool CheckOutput(const char* what) const;
    // Refuses another number of items in dimension 0.
    [[nodiscard]] bool CheckLength(const char* what, int64_t expected) const;

    bool IsTaken() const { return fTaken; }
    // Ends the loan.
    void Release();
    // Never null.
    void* Data() const;
    template <typename Value>
    Value* As() const {
        return static_cast<Value*>(Data());
    }
    sylvora_type Type() const { return type; }
    int64_t Bytes() const { return view.len; }
    int64_t Size(int dimension) const { return view.shape[dimension]; }
    int64_t Stride(int dimension) const;

  private:
    Py_buffer view = {};
    bool fTaken = false;
    sylvora_type type = SYLVORA_FLOAT64;

    bool Borrow(PyObject* object, const char* what, int flags);
    bool FindType(const char* what);
};

// The value at `data` as a double.
double ValueAt(const void* data, sylvora_type type);

}  // namespace sylvora::python

#endif  // SYLVORA_PYTHON_CORE_BUFFERS_H
