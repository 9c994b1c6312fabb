// Tables through the Arrow C data interface: its structures as it defines them, and who owns them.
#ifndef SYLVORA_PYTHON_CORE_ARROW_H
#define SYLVORA_PYTHON_CORE_ARROW_H

#include <cstdint>

#include "Support.h"

extern "C" {

struct ArrowSchema {
    const char* format;
    const char* name;
    const char* metadata;
    int64_t flags;
    int64_t n_children;
    ArrowSchema** children;
    ArrowSchema* dictionary;
    void (*release)(ArrowSchema*);
    void* private_data;
};

struct ArrowArray {
    int64_t length;
    int64_t null_count;
    int64_t offset;
    int64_t n_buffers;
    int64_t n_children;
    const void** buffers;
    ArrowArray** children;
    ArrowArray* dictionary;
    void (*release)(ArrowArray*);
    void* private_data;
};

struct ArrowArrayStream {
    int (*get_schema)(ArrowArrayStream*, ArrowSchema* out);
    int (*get_next)(ArrowArrayStream*, ArrowArray* out);
    const char* (*get_last_error)(ArrowArrayStream*);
    void (*release)(ArrowArrayStream*);
    void* private_data;
};
}

namespace sylvora::python {

// Owns what one of the three structures refers to, and releases it. Must be destroyed with the lock
// held: a producer may be in Python, and must then not see an exception of its consumer.
template <typename Structure>
class ArrowOwner {
  public:
    ArrowOwner() = default;
    // Moves the content of a structure here; null: none.
    explicit ArrowOwner(Structure* from) {
        if (from == nullptr) return;
        content = *from;
        from->release = nullptr;
    }
    ArrowOwner(ArrowOwner&& other) noexcept : ArrowOwner(&other.content) {}
    ArrowOwner(const ArrowOwner&) = delete;
    ArrowOwner& operator=(const ArrowOwner&) = delete;
    ~ArrowOwner() {
        if (content.release == nullptr) return;
        const KeptException kept;
        content.release(&content);
    }

    // False if it is empty, as at the end of a stream.
    bool HasContent() const { return content.release != nullptr; }
    Structure* Get() { return &content; }
    const Structure& operator*() const { return content; }
    const Structure* operator->() const { return &content; }

  private:
    Structure content = {};
};

}  // namespace sylvora::python

#endif  // SYLVORA_PYTHON_CORE_ARROW_H
