#include "UsableMemory.h"

#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <limits>

namespace sylvora::frontend {
namespace {

constexpr double kNoLimit = std::numeric_limits<double>::infinity();

// A file that is missing, or that says "max", sets no limit.
double LimitOfFolder(const std::string& folder) {
    double limit = kNoLimit;
    for (const char* name : {"/memory.max", "/memory.limit_in_bytes"}) {
        double bytes = 0.0;
        if (std::ifstream(folder + name) >> bytes) limit = std::min(limit, bytes);
    }
    return limit;
}

}  // namespace

double MemoryOfControlGroup(const std::string& cgroupFile, const std::string& mount) {
    double limit = kNoLimit;
    std::ifstream file(cgroupFile);
    // number:names:/path; version 2 has one hierarchy with no names.
    for (std::string number, names, path; std::getline(file, number, ':');) {
        if (!std::getline(file, names, ':') || !std::getline(file, path)) break;
        if (!names.empty() && ("," + names + ",").find(",memory,") == std::string::npos) continue;
        const std::string root = mount + (names.empty() ? "" : "/" + names);
        // From the group upwards; in a container, the root is the container's own.
        for (std::filesystem::path group = path;; group = group.parent_path()) {
            limit = std::min(limit, LimitOfFolder(root + group.string()));
            if (group == group.parent_path()) break;
        }
    }
    return limit;
}

double UsableMemory() {
    const double present = static_cast<double>(::sysconf(_SC_PHYS_PAGES)) *
                           static_cast<double>(::sysconf(_SC_PAGE_SIZE));
    return std::min(present, MemoryOfControlGroup("/proc/self/cgroup", "/sys/fs/cgroup"));
}

}  // namespace sylvora::frontend
