// Arrays with a value per row, on large pages. Large pages save page-table walks when rows are
// accessed in random order. Freed arrays go straight back to the system; the C library might keep
// them for the thread that allocated them. All functions are thread-safe.
#ifndef SYLVORA_BASE_LARGEARRAY_H
#define SYLVORA_BASE_LARGEARRAY_H

#include <cstddef>
#include <cstdlib>
#include <new>
#include <vector>

namespace sylvora {

// Asks the system to back `memory` with large pages. Call before the first write to it. A hint:
// failure is ignored, and results do not depend on it.
void RequestLargePages(void* memory, size_t size);

// Maps `size` zeroed bytes, on large pages if the array is large enough to gain by them and the
// system has some. Returns null if there is no memory. Free with UnmapMemory and the same size.
void* MapMemory(size_t size);
void UnmapMemory(void* memory, size_t size);

// Stateless, so any two are equal. Throws std::bad_alloc. Allocations below kMapped bytes come from
// the C library.
template <typename Element>
struct LargePageAllocator {
    typedef Element value_type;
    static constexpr size_t kMapped = size_t{1} << 20;  // bytes

    LargePageAllocator() = default;
    template <typename Other>
    LargePageAllocator(const LargePageAllocator<Other>&) {}

    Element* allocate(size_t count) {
        const size_t size = count * sizeof(Element);
        void* memory = size < kMapped ? std::malloc(size > 0 ? size : 1) : MapMemory(size);
        if (memory == nullptr) throw std::bad_alloc();
        return static_cast<Element*>(memory);
    }
    void deallocate(Element* memory, size_t count) {
        const size_t size = count * sizeof(Element);
        if (size < kMapped) return std::free(memory);
        UnmapMemory(memory, size);
    }

    template <typename Other>
    bool operator==(const LargePageAllocator<Other>&) const {
        return true;
    }
    template <typename Other>
    bool operator!=(const LargePageAllocator<Other>&) const {
        return false;
    }
};

template <typename Element>
using LargeArray = std::vector<Element, LargePageAllocator<Element>>;

}  // namespace sylvora

#endif  // SYLVORA_BASE_LARGEARRAY_H
