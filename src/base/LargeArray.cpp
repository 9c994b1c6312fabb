// Memory for arrays of a value per row; see LargeArray.h.
#include "LargeArray.h"

#include <sys/mman.h>

#include <cstdint>

namespace sylvora {
namespace {

constexpr size_t kPage = 4096;
constexpr size_t kLargePage = size_t{1} << 21;
constexpr size_t kWorthwhile = 2 * kLargePage;  // for arrays of this size and more

size_t WholePages(size_t size) {
    return (size + kPage - 1) / kPage * kPage;
}

// How far it is to the next multiple of `unit`.
size_t Missing(const void* memory, size_t unit) {
    return (unit - reinterpret_cast<uintptr_t>(memory) % unit) % unit;
}

}  // namespace

void WishLargePages(void* memory, size_t size) {
    if (size < kWorthwhile) return;
    const size_t skipped = Missing(memory, kPage);
    madvise(static_cast<char*>(memory) + skipped, (size - skipped) / kPage * kPage, MADV_HUGEPAGE);
}

// A mapping begins at any page, so a large one is made with room to begin at a large page, and what
// is before and behind is given back.
void* MapMemory(size_t size) {
    const size_t whole = WholePages(size);
    const size_t room = whole + (size < kWorthwhile ? 0 : kLargePage);
    if (room < size) return nullptr;
    void* const mapped =
        mmap(nullptr, room, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (mapped == MAP_FAILED) return nullptr;
    if (room == whole) return mapped;
    const size_t before = Missing(mapped, kLargePage);
    char* const memory = static_cast<char*>(mapped) + before;
    if (before > 0) munmap(mapped, before);
    munmap(memory + whole, kLargePage - before);
    WishLargePages(memory, whole);
    return memory;
}

void UnmapMemory(void* memory, size_t size) {
    munmap(memory, WholePages(size));
}

}  // namespace sylvora
