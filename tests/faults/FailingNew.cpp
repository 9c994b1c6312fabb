// Replaces operator new by one that calls malloc, which can fail on request (FailingCalls.cpp).
#include <cstddef>
#include <cstdlib>
#include <new>

namespace {

void* OrThrow(void* memory) {
    if (memory == nullptr) throw std::bad_alloc();
    return memory;
}

}  // namespace

void* operator new(size_t size) {
    return OrThrow(std::malloc(size));
}
void* operator new[](size_t size) {
    return OrThrow(std::malloc(size));
}
void* operator new(size_t size, const std::nothrow_t&) noexcept {
    return std::malloc(size);
}
void* operator new[](size_t size, const std::nothrow_t&) noexcept {
    return std::malloc(size);
}
void* operator new(size_t size, std::align_val_t alignment) {
    const size_t line = static_cast<size_t>(alignment);
    return OrThrow(std::aligned_alloc(line, (size + line - 1) / line * line));
}
void operator delete(void* memory) noexcept {
    std::free(memory);
}
void operator delete[](void* memory) noexcept {
    std::free(memory);
}
void operator delete(void* memory, size_t) noexcept {
    std::free(memory);
}
void operator delete[](void* memory, size_t) noexcept {
    std::free(memory);
}
void operator delete(void* memory, std::align_val_t) noexcept {
    std::free(memory);
}
