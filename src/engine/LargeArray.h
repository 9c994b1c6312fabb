// Arrays that are read in random order. On large pages the processor finds its way to a row without
// walking its page tables.
#ifndef SYLVORA_ENGINE_LARGEARRAY_H
#define SYLVORA_ENGINE_LARGEARRAY_H

#include <sys/mman.h>

#include <cstdlib>
#include <new>
#include <vector>

namespace sylvora {
namespace engine {

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
            // Only a wish: without large pages everything works the same.
            if (memory != nullptr) madvise(memory, size, MADV_HUGEPAGE);
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
