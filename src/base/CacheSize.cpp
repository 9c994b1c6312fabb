// Asks for the size of the L1 data cache; see CacheSize.h.
#include "CacheSize.h"

#include <unistd.h>

#include <fstream>

namespace sylvora {
namespace {

// A hypervisor may hide the cache or report nonsense.
bool IsSensible(long bytes) {
    return bytes >= 8 << 10 && bytes <= 1 << 20;
}

int FindL1Cache() {
    const long bytes = sysconf(_SC_LEVEL1_DCACHE_SIZE);
    if (IsSensible(bytes)) return static_cast<int>(bytes);
    const int reported = L1CacheBytesIn("/sys/devices/system/cpu/cpu0/cache");
    return reported > 0 ? reported : 32 << 10;
}

}  // namespace

// There is a folder index0, index1, ... for each cache. Sizes are in KB, as in "48K".
int L1CacheBytesIn(const std::string& folder) {
    for (int i = 0;; ++i) {
        const std::string cache = folder + "/index" + std::to_string(i);
        int level = 0;
        std::string type;
        long kilobytes = 0;
        char unit = 0;
        if (!(std::ifstream(cache + "/level") >> level)) return 0;
        std::ifstream(cache + "/type") >> type;
        std::ifstream(cache + "/size") >> kilobytes >> unit;
        if (level != 1 || type == "Instruction" || unit != 'K') continue;
        if (kilobytes > 0 && kilobytes < 1 << 20 && IsSensible(kilobytes << 10)) {
            return static_cast<int>(kilobytes << 10);
        }
    }
}

int L1CacheBytes() {
    static const int bytes = FindL1Cache();
    return bytes;
}

}  // namespace sylvora
