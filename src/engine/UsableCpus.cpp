// Processors and control groups; see UsableCpus.h.
#include "UsableCpus.h"

#include <sched.h>

#include <algorithm>
#include <fstream>
#include <sstream>

namespace sylvora {
namespace engine {
namespace {

int NumAllowedCpus() {
    // The kernel refuses sets that are too small for its processors.
    for (int size = CPU_SETSIZE; size <= 1 << 20; size *= 2) {
        cpu_set_t* set = CPU_ALLOC(static_cast<size_t>(size));
        if (set == nullptr) break;
        const size_t numBytes = CPU_ALLOC_SIZE(static_cast<size_t>(size));
        const bool fRead = sched_getaffinity(0, numBytes, set) == 0;
        const int count = fRead ? CPU_COUNT_S(numBytes, set) : 0;
        CPU_FREE(set);
        if (fRead) return std::max(count, 1);
    }
    return 1;
}

// The lower of two limits, 0 being none.
int Lower(int limit, int other) {
    return limit == 0 || other == 0 ? std::max(limit, other) : std::min(limit, other);
}

int ToCpus(double quota, double period) {
    const double cpus = quota / period;
    return quota > 0.0 && period > 0.0 && cpus < 1e6 ? static_cast<int>(cpus + 0.999999) : 0;
}

// A file that is missing, or that says "max" or -1, sets no limit.
int LimitOfFolder(const std::string& folder) {
    double quota = 0.0;
    double period = 0.0;
    std::ifstream(folder + "/cpu.max") >> quota >> period;
    if (quota == 0.0) {
        std::ifstream(folder + "/cpu.cfs_quota_us") >> quota;
        std::ifstream(folder + "/cpu.cfs_period_us") >> period;
    }
    return ToCpus(quota, period);
}

// The hierarchies that have the CPU limit: version 2 has one with no names, version 1 one of its
// own, which is found by its names or by "cpu" alone.
bool HasCpuLimit(const std::string& names) {
    return names.empty() || ("," + names + ",").find(",cpu,") != std::string::npos;
}

}  // namespace

int CpusOfControlGroup(const std::string& cgroupFile, const std::string& mount) {
    int limit = 0;
    std::ifstream file(cgroupFile);
    // number:names:/path
    for (std::string number, names, path; std::getline(file, number, ':');) {
        if (!std::getline(file, names, ':') || !std::getline(file, path)) break;
        if (!HasCpuLimit(names)) continue;
        for (const std::string& hierarchy : {names, std::string(names.empty() ? "" : "cpu")}) {
            const std::string root = mount + (hierarchy.empty() ? "" : "/" + hierarchy);
            // From the group upwards; in a container, the root is the container's own.
            for (std::string group = path; !group.empty(); group.resize(group.rfind('/'))) {
                limit = Lower(limit, LimitOfFolder(root + group));
                if (group.rfind('/') == std::string::npos) break;
            }
            limit = Lower(limit, LimitOfFolder(root));
        }
    }
    return limit;
}

int NumUsableCpus() {
    const int limit = CpusOfControlGroup("/proc/self/cgroup", "/sys/fs/cgroup");
    return Lower(NumAllowedCpus(), limit);
}

}  // namespace engine
}  // namespace sylvora
