// The limits on memory; see UsableMemory.h.
#include "UsableMemory.h"

#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <limits>

namespace sylvora {
namespace {

constexpr double kNoLimit = std::numeric_limits<double>::infinity();

// A missing file, or one that contains "max", sets no limit.
double LimitOfFolder(const std::string& folder) {
    double limit = kNoLimit;
    for (const char* name : {"/memory.max", "/memory.limit_in_bytes"}) {
        double bytes = 0.0;
        if (std::ifstream(folder + name) >> bytes) limit = std::min(limit, bytes);
    }
    return limit;
}

}  // namespace

double MemoryOfControlGroup(const ControlGroupPaths& paths) {
    double limit = kNoLimit;
    for (const std::string& folder : ControlGroupFolders("memory", paths)) {
        limit = std::min(limit, LimitOfFolder(folder));
    }
    return limit;
}

double UsableMemory() {
    const double present = static_cast<double>(::sysconf(_SC_PHYS_PAGES)) *
                           static_cast<double>(::sysconf(_SC_PAGE_SIZE));
    rlimit allowed = {};
    const bool fLimited =
        ::getrlimit(RLIMIT_AS, &allowed) == 0 && allowed.rlim_cur != RLIM_INFINITY;
    const double limit = fLimited ? static_cast<double>(allowed.rlim_cur) : kNoLimit;
    return std::min({present, limit, MemoryOfControlGroup({})});
}

}  // namespace sylvora
