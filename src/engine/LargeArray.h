// Arrays that are read in random order. On large pages the processor finds its way to a row without
// walking its page tables.
#ifndef SYLVORA_ENGINE_LARGEARRAY_H
#define SYLVORA_ENGINE_LARGEARRAY_H

#include <sys/mman.h>

#include <cstdint>
#include <cstdlib>
#include <new>
#include <vector>

namespace sylvora {
namespace engine {

// Asks for large pages for memory that nothing was written to yet. Only a wish: without them
// everything works the same.
inline void WishLargePages(void* memory, size_t size) {
    constexpr size_t kPage = 4096;
    constexpr size_t kWorthwhile = size_t{1} << 22;
    if (size < kWorthwhile) return;
    const size_t skipped = (kPage - reinterpret_cast<uintptr_t>(memory) % kPage) % kPage;
    madvise(static_cast<char*>(memory) + skipped, (size - skipped) / kPage * kPage, MADV_HUGEPAGE);
}

// Allocates on large pages, where the system offers them, what is larger than a few of them.
template <typename Element>
struct LargePageAllocator {
    typedef Element value_type;
    static constexpr size_t kPage = size_t{1} << 21;

    LargePageAllocator() = default;
    template <typename Other>
    LargePageAllocator(const LargePageAllocator<Other>&) {}

    Element* allocate(size_t count) {
        const size_t size = count * sizeof(Element);
        void* memory = nullptr;
        if (size < 2 * kPage) {
            memory = std::malloc(size > 0 ? size : 1);
        } else {
            memory = std::aligned_alloc(kPage, (size + kPage - 1) / kPage * kPage);
            if (memory != nullptr) WishLargePages(memory, size);
        }
        if (memory == nullptr) throw std::bad_alloc();
        return static_cast<Element*>(memory);
    }
    void deallocate(Element* memory, size_t) { std::free(memory); }

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

}  // namespace engine
}  // namespace sylvora

#endif  // SYLVORA_ENGINE_LARGEARRAY_H
