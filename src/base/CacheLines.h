// Vectors that start at a cache line, for data that are laid out in whole lines of 64 bytes.
#ifndef SYLVORA_BASE_CACHELINES_H
#define SYLVORA_BASE_CACHELINES_H

#include <cstddef>
#include <new>
#include <vector>

namespace sylvora {

// Stateless, so any two are equal. Throws std::bad_alloc.
template <typename Value>
struct LineAllocator {
    using value_type = Value;
    static constexpr std::align_val_t kLine{64};

    LineAllocator() = default;
    template <typename Other>
    explicit LineAllocator(const LineAllocator<Other>&) {}

    Value* allocate(size_t count) {
        return static_cast<Value*>(::operator new(count * sizeof(Value), kLine));
    }
    void deallocate(Value* values, size_t) { ::operator delete(values, kLine); }

    friend bool operator==(LineAllocator, LineAllocator) { return true; }
    friend bool operator!=(LineAllocator, LineAllocator) { return false; }
};

// A std::vector in every other respect.
template <typename Value>
using LineVector = std::vector<Value, LineAllocator<Value>>;

}  // namespace sylvora

#endif  // SYLVORA_BASE_CACHELINES_H
