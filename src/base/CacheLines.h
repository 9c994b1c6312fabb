// Arrays that begin with a cache line, for what is laid out in lines.
#ifndef SYLVORA_BASE_CACHELINES_H
#define SYLVORA_BASE_CACHELINES_H

#include <cstddef>
#include <new>
#include <vector>

namespace sylvora {

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

template <typename Value>
using LineVector = std::vector<Value, LineAllocator<Value>>;

}  // namespace sylvora

#endif  // SYLVORA_BASE_CACHELINES_H
