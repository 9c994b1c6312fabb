// Arrays of a value per row. On large pages the processor finds its way to a row without walking
// its page tables; and what is freed goes back to the system, where the C library would keep it for
// the thread that had asked for it.
#ifndef SYLVORA_BASE_LARGEARRAY_H
#define SYLVORA_BASE_LARGEARRAY_H

#include <cstddef>
#include <cstdlib>
#include <new>
#include <vector>

namespace sylvora {

// Asks for large pages for memory that nothing was written to yet. Only a wish: without them
// everything works the same.
void WishLargePages(void* memory, size_t size);

// Memory of zeros straight from the system, on large pages where it has some that are worthwhile;
// null when there is none.
void* MapMemory(size_t size);
void UnmapMemory(void* memory, size_t size);

template <typename Element>
struct LargePageAllocator {
    typedef Element value_type;
    static constexpr size_t kMapped = size_t{1} << 20;  // smaller ones are the C library's

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
