// Fork and join: runs an entry point once per record, each call on its own POSIX thread.
#ifndef SYLVORA_GOD_WORKERS_H
#define SYLVORA_GOD_WORKERS_H

#include <pthread.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "CallContext.h"
#include "Report.h"

namespace sylvora {

// Reports that a thread could not be started and returns -1. `code` is what pthread_create
// returned.
[[nodiscard]] inline int FailToStart(int code) {
    return Fail("ERROR: pthread_create for multi-split nodes  error: error_code=", code, "\n");
}

// The outcome of a ForkJoin.
struct Joined {
    int status;       // -1 when a thread could not be started or joined
    bool fAllWorked;  // every started worker returned null
};

// What a thread of ForkJoin runs: the entry point, in the context of the thread that forked.
struct ForkedCall {
    void* (*entry)(void*);
    void* record;
    const CallContext* context;

    static void* Run(void* arg) {
        const ForkedCall& call = *static_cast<const ForkedCall*>(arg);
        const ContextScope scope(call.context);
        return call.entry(call.record);
    }
};

// Starts one thread per record, then joins them in order. `ids` has one entry per record; all
// arrays belong to the caller. A single record runs on the calling thread. If a thread cannot be
// started, those already running are joined before this returns, because they use the records.
// Throws std::bad_alloc before the first one is started.
template <typename Record>
[[nodiscard]] Joined ForkJoin(void* (*entry)(void*), std::vector<Record>& records, pthread_t* ids) {
    if (records.size() == 1) return {0, entry(&records[0]) == nullptr};
    std::vector<ForkedCall> calls;
    calls.reserve(records.size());
    for (Record& record : records) calls.push_back({entry, &record, CurrentContext()});
    Joined joined = {0, true};
    size_t numStarted = 0;
    while (numStarted < calls.size()) {
        const int code =
            pthread_create(&ids[numStarted], nullptr, ForkedCall::Run, &calls[numStarted]);
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

// The first index of part `t` when `count` items are divided into `numParts` contiguous parts whose
// sizes differ by at most one, the larger parts first. Part `t` ends where part t + 1 begins.
inline int PartBegin(int count, int numParts, int t) {
    return count / numParts * t + std::min(t, count % numParts);
}

// `status` as the exit value of a thread; null for 0.
inline void* ExitValue(int status) {
    return reinterpret_cast<void*>(intptr_t{status});
}

// Locks a mutex for its own lifetime.
class MutexLock {
  public:
    explicit MutexLock(pthread_mutex_t& m) : mutex(m) { pthread_mutex_lock(&mutex); }
    ~MutexLock() { pthread_mutex_unlock(&mutex); }
    MutexLock(const MutexLock&) = delete;
    MutexLock& operator=(const MutexLock&) = delete;

  private:
    pthread_mutex_t& mutex;
};

}  // namespace sylvora

#endif  // SYLVORA_GOD_WORKERS_H
