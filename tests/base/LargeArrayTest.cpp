// Arrays of all sizes: zeroed, usable to the last byte, and returned to the system when freed.
#include "base/LargeArray.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <fstream>
#include <new>

namespace sylvora::tests {
namespace {

constexpr size_t kMebibyte = size_t{1} << 20;

// The size of the process's address space, in pages.
size_t AddressSpace() {
    size_t pages = 0;
    std::ifstream("/proc/self/statm") >> pages;
    return pages;
}

TEST(LargeArrays, AreZeroed) {
    for (const size_t size : {size_t{1}, kMebibyte - 1, kMebibyte, 4 * kMebibyte - 1, 4 * kMebibyte,
                              5 * kMebibyte + 1}) {
        LargeArray<uint8_t> array(size);
        ASSERT_EQ(array.size(), size);
        EXPECT_EQ(array.front() + array[size / 2] + array.back(), 0);
        array.front() = array.back() = 1;
        if (size < 4 * kMebibyte) continue;
        EXPECT_EQ(reinterpret_cast<uintptr_t>(array.data()) % (2 * kMebibyte), 0u);
    }
    EXPECT_TRUE(LargeArray<double>().empty());
}

TEST(LargeArrays, ReturnMemoryToTheSystem) {
    const size_t before = AddressSpace();
    for (int repeat = 0; repeat < 40; ++repeat) {
        LargeArray<uint8_t> whole(5 * kMebibyte + 1);
        whole.resize(9 * kMebibyte);
    }
    // If freed arrays were kept, it would have grown by hundreds of mebibytes.
    EXPECT_LT(AddressSpace(), before + 100 * kMebibyte / 4096);
}

TEST(LargeArrays, ThrowWhenThereIsNoMemory) {
    EXPECT_THROW(LargeArray<uint8_t>(size_t{1} << 60), std::bad_alloc);
}

}  // namespace
}  // namespace sylvora::tests
