// Calls that fail on order: memory that runs out and threads that cannot be started, at any place
// of a run. Everything in the program that allocates or starts a thread goes through here; see
// tests/CMakeLists.txt for how.
#ifndef SYLVORA_TESTS_FAULTS_FAILINGCALLS_H
#define SYLVORA_TESTS_FAULTS_FAILINGCALLS_H

#include "Libdef.h"

namespace sylvora::tests {

enum class Call { kAllocation, kThreadStart };

// While it lives, call number `first` (from 0) of the kind fails, and all later ones if
// `fForGood`. One at a time.
class FailingCalls {
  public:
    FailingCalls(Call call, long first, bool fForGood);
    ~FailingCalls();
    FailingCalls(const FailingCalls&) = delete;
    FailingCalls& operator=(const FailingCalls&) = delete;

    // Whether there were so many calls.
    static bool HasFailed();
};

// Threads that were started and not joined.
int NumRunningThreads();

}  // namespace sylvora::tests

// For programs that load this code as a library: the same for allocations, without an object.
// FailAllocations(-1, 0) ends it. Both return whether a call has failed.
extern "C" SYLVORA_API int FailAllocations(long first, int fForGood);

#endif  // SYLVORA_TESTS_FAULTS_FAILINGCALLS_H
