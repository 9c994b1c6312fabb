// Makes allocations or thread starts fail on request, at any point of a run. All allocations and
// thread starts of the program go through this unit; tests/CMakeLists.txt sets the linker options.
#ifndef SYLVORA_TESTS_FAULTS_FAILINGCALLS_H
#define SYLVORA_TESTS_FAULTS_FAILINGCALLS_H

#include "Libdef.h"

namespace sylvora::tests {

enum class Call { kAllocation, kThreadStart };

// While an object exists, call number `first` (from 0) of this kind fails, and with `fForGood` all
// later ones too. Only one object may exist at a time.
class FailingCalls {
  public:
    FailingCalls(Call call, long first, bool fForGood);
    ~FailingCalls();
    FailingCalls(const FailingCalls&) = delete;
    FailingCalls& operator=(const FailingCalls&) = delete;

    // True if a call has failed, so the run made more than `first` calls.
    static bool HasFailed();
};

// The number of threads that were started and not joined.
int NumRunningThreads();

}  // namespace sylvora::tests

// The same for allocations, for programs that load this code as a library. FailAllocations(-1, 0)
// switches it off. Returns whether a call has failed since the last call of this function.
extern "C" SYLVORA_API int FailAllocations(long first, int fForGood);

#endif  // SYLVORA_TESTS_FAULTS_FAILINGCALLS_H
