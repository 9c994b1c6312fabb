// Mapped memory on large pages; see LargeArray.h.
#include "LargeArray.h"

#include <sys/mman.h>

#include <cstdint>

namespace sylvora {
namespace {

constexpr size_t kPage = 4096;
constexpr size_t kLargePage = size_t{1} << 21;
constexpr size_t kWorthwhile = 2 * kLargePage;  // arrays from this size on get large pages

size_t WholePages(size_t size) {
    return (size + kPage - 1) / kPage * kPage;
}

// Bytes from `memory` to the next multiple of `unit`.
size_t Missing(const void* memory, size_t unit) {
    return (unit - reinterpret_cast<uintptr_t>(memory) % unit) % unit;
}

}  // namespace

void RequestLargePages(void* memory, size_t size) {
    if (size < kWorthwhile) return;
    const size_t skipped = Missing(memory, kPage);
    madvise(static_cast<char*>(memory) + skipped, (size - skipped) / kPage * kPage, MADV_HUGEPAGE);
}

// The system places a mapping at any page. So a large one is made longer by a large page, and what
// is before the first large page boundary and behind the end is unmapped again. UnmapMemory relies
// on exactly WholePages(size) being left.
void* MapMemory(size_t size) {
    const size_t whole = WholePages(size);
    const size_t mappedSize = whole + (size < kWorthwhile ? 0 : kLargePage);
    if (mappedSize < size) return nullptr;  // overflow
    void* const mapped =
        mmap(nullptr, mappedSize, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (mapped == MAP_FAILED) return nullptr;
    if (mappedSize == whole) return mapped;
    const size_t before = Missing(mapped, kLargePage);
    char* const memory = static_cast<char*>(mapped) + before;
    if (before > 0) munmap(mapped, before);
    munmap(memory + whole, kLargePage - before);
    RequestLargePages(memory, whole);
    return memory;
}

void UnmapMemory(void* memory, size_t size) {
    munmap(memory, WholePages(size));
}

}  // namespace sylvora
