// Failing calls on request. The linker's --wrap redirects calls of malloc and similar functions to
// __wrap_... in this file; __real_... are the original functions.
#include "FailingCalls.h"

#include <pthread.h>

#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdlib>

namespace {

using sylvora::tests::Call;

std::atomic<bool> gArmed{false};
std::atomic<long> gNumCalls{0};
std::atomic<int> gNumThreads{0};
Call gCall;
long gFirst;
bool gForGood;

bool MustFail(Call call) {
    if (!gArmed.load() || call != gCall) return false;
    const long number = gNumCalls.fetch_add(1);
    return number == gFirst || (gForGood && number > gFirst);
}

void Arm(Call call, long first, bool fForGood) {
    gCall = call;
    gFirst = first;
    gForGood = fForGood;
    gNumCalls.store(0);
    gArmed.store(true);
}

bool HasFailedSoFar() {
    return gNumCalls.load() > gFirst;
}

}  // namespace

namespace sylvora::tests {

FailingCalls::FailingCalls(Call call, long first, bool fForGood) {
    Arm(call, first, fForGood);
}

FailingCalls::~FailingCalls() {
    gArmed.store(false);
}

bool FailingCalls::HasFailed() {
    return HasFailedSoFar();
}

int NumRunningThreads() {
    return gNumThreads.load();
}

}  // namespace sylvora::tests

extern "C" {

int FailAllocations(long first, int fForGood) {
    gArmed.store(false);
    const bool fFailed = HasFailedSoFar();
    if (first >= 0) Arm(Call::kAllocation, first, fForGood != 0);
    return fFailed ? 1 : 0;
}

void* __real_malloc(size_t);
void* __real_calloc(size_t, size_t);
void* __real_realloc(void*, size_t);
void* __real_aligned_alloc(size_t, size_t);
int __real_pthread_create(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*);
int __real_pthread_join(pthread_t, void**);

void* __wrap_malloc(size_t size) {
    return MustFail(Call::kAllocation) ? nullptr : __real_malloc(size);
}
void* __wrap_calloc(size_t count, size_t size) {
    return MustFail(Call::kAllocation) ? nullptr : __real_calloc(count, size);
}
void* __wrap_realloc(void* memory, size_t size) {
    return MustFail(Call::kAllocation) ? nullptr : __real_realloc(memory, size);
}
void* __wrap_aligned_alloc(size_t alignment, size_t size) {
    return MustFail(Call::kAllocation) ? nullptr : __real_aligned_alloc(alignment, size);
}

int __wrap_pthread_create(pthread_t* thread, const pthread_attr_t* attributes,
                          void* (*entry)(void*), void* arg) {
    if (MustFail(Call::kThreadStart)) return EAGAIN;
    const int code = __real_pthread_create(thread, attributes, entry, arg);
    if (code == 0) ++gNumThreads;
    return code;
}
int __wrap_pthread_join(pthread_t thread, void** exitValue) {
    --gNumThreads;
    return __real_pthread_join(thread, exitValue);
}

}  // extern "C"
