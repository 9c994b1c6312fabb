// Counts usable processors; see UsableCpus.h.
#include "UsableCpus.h"

#include <sched.h>

#include <algorithm>
#include <fstream>

namespace sylvora {
namespace {

// The size of the process's affinity mask; 1 if it cannot be read.
int NumAllowedCpus() {
    // sched_getaffinity fails if the set is smaller than the kernel's own, whose size is unknown.
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

// The lower of two limits, where 0 means no limit.
int Lower(int limit, int other) {
    return limit == 0 || other == 0 ? std::max(limit, other) : std::min(limit, other);
}

// quota / period (both in microseconds), rounded up; 0 if that is no sensible limit.
int ToCpus(double quota, double period) {
    const double cpus = quota / period;
    return quota > 0.0 && period > 0.0 && cpus < 1e6 ? static_cast<int>(cpus + 0.999999) : 0;
}

// The limit that one control group sets: cpu.max in version 2, cpu.cfs_* in version 1. A file that
// is missing, or that says "max" or -1, sets no limit.
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

}  // namespace

int CpusOfControlGroup(const ControlGroupPaths& places) {
    int limit = 0;
    for (const std::string& folder : ControlGroupFolders("cpu", places)) {
        limit = Lower(limit, LimitOfFolder(folder));
    }
    return limit;
}

int NumUsableCpus() {
    return Lower(NumAllowedCpus(), CpusOfControlGroup({}));
}

}  // namespace sylvora
