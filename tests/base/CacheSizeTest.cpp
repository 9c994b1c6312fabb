// The size of the L1 data cache, as the kernel reports it and as the process sees it.
#include "base/CacheSize.h"

#include <gtest/gtest.h>

#include "../Support.h"

namespace sylvora::tests {
namespace {

// One cache of a folder as in /sys/devices/system/cpu/cpu0/cache.
struct Cache {
    const char *level, *type, *size;
};

int BytesOf(const std::vector<Cache>& caches) {
    const TempFolder folder;
    for (size_t i = 0; i < caches.size(); ++i) {
        const std::string name = "index" + std::to_string(i);
        std::filesystem::create_directory(folder.Path(name));
        folder.Write(name + "/level", caches[i].level);
        folder.Write(name + "/type", caches[i].type);
        folder.Write(name + "/size", caches[i].size);
    }
    return L1CacheBytesIn(folder.Path(""));
}

TEST(CacheSize, IsThatOfTheFirstLevelDataCache) {
    EXPECT_EQ(BytesOf({{"1\n", "Instruction\n", "64K\n"}, {"1\n", "Data\n", "48K\n"}}), 48 << 10);
    EXPECT_EQ(BytesOf({{"2\n", "Unified\n", "512K\n"}, {"1\n", "Unified\n", "32K\n"}}), 32 << 10);
    EXPECT_EQ(BytesOf({{"1\n", "Data\n", "0K\n"}, {"2\n", "Unified\n", "512K\n"}}), 0);
    EXPECT_EQ(BytesOf({{"1\n", "Data\n", "-48K\n"}}), 0);
    EXPECT_EQ(BytesOf({{"1\n", "Data\n", "99999999999999999999K\n"}}), 0);
    EXPECT_EQ(BytesOf({{"one\n", "Data\n", "48K\n"}}), 0);
    EXPECT_EQ(BytesOf({}), 0);
    EXPECT_GE(L1CacheBytes(), 8 << 10);
    EXPECT_LE(L1CacheBytes(), 1 << 20);
}

}  // namespace
}  // namespace sylvora::tests
