// Fork and join: runs one entry point per record, each on a POSIX thread of its own.
#ifndef SYLVORA_GOD_WORKERS_H
#define SYLVORA_GOD_WORKERS_H

#include <pthread.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "Report.h"

namespace sylvora {

// Reports that a thread could not be started.
[[nodiscard]] inline int FailToStart(int code) {
    return Fail("ERROR: pthread_create for multi-split nodes  error: error_code=", code, "\n");
}

// What became of a ForkJoin.
struct Joined {
    int status;       // -1 when a thread could not be started or joined
    bool fAllWorked;  // every worker ran and returned null
};

// Starts a thread per record with ids stored in `ids` (as many entries), then joins all in order.
// A single record runs on the calling thread. When a thread cannot be started, those that run
// already are joined first, for they use the records.
template <typename Record>
[[nodiscard]] Joined ForkJoin(void* (*entry)(void*), std::vector<Record>& records, pthread_t* ids) {
    if (records.size() == 1) return {0, entry(&records[0]) == nullptr};
    Joined joined = {0, true};
    size_t numStarted = 0;
    while (numStarted < records.size()) {
        const int code = pthread_create(&ids[numStarted], nullptr, entry, &records[numStarted]);
        if (code != 0) {
            joined.status = FailToStart(code);
            break;
        }
        ++numStarted;
    }
    for (size_t t = 0; t < numStarted; ++t) {
        void* exitValue = nullptr;
        if (pthread_join(ids[t], &exitValue) != 0) {
            joined.status = Fail("ERROR: Failed to join prepare_thread: ", t, "\n");
        } else if (exitValue != nullptr) {
            joined.fAllWorked = false;
        }
    }
    return joined;
}

// The first index of part `t` when `count` items are cut into `numParts` runs that differ by at
// most one, the longer ones first; part `t` ends before the first index of part t + 1.
inline int PartBegin(int count, int numParts, int t) {
    return count / numParts * t + std::min(t, count % numParts);
}

// The exit value of a thread whose work ended with `status`.
inline void* ExitValue(int status) {
    return reinterpret_cast<void*>(intptr_t{status});
}

// Holds a mutex while it lives.
class Locked {
  public:
    explicit Locked(pthread_mutex_t& m) : mutex(m) { pthread_mutex_lock(&mutex); }
    ~Locked() { pthread_mutex_unlock(&mutex); }
    Locked(const Locked&) = delete;
    Locked& operator=(const Locked&) = delete;

  private:
    pthread_mutex_t& mutex;
};

}  // namespace sylvora

#endif  // SYLVORA_GOD_WORKERS_H
