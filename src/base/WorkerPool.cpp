// The worker pool; see WorkerPool.h.
#include "WorkerPool.h"

#include <sched.h>

#include <algorithm>
#include <utility>

namespace sylvora {
namespace {

// Loops follow each other within microseconds, or after a short stretch of one worker alone, and to
// be woken takes long: look around for a while before going to sleep, at last only when nobody else
// wants the processor.
constexpr int kSpins = 2000;
constexpr int kYields = 1000;

template <typename Condition>
bool SpinUntil(const Condition& condition) {
    for (int i = 0; i < kSpins; ++i) {
        if (condition()) return true;
        __builtin_ia32_pause();
    }
    for (int i = 0; i < kYields; ++i) {
        if (condition()) return true;
        sched_yield();
    }
    return false;
}

// Which worker a thread is, and of which pool.
struct Identity {
    const void* pool = nullptr;
    int worker = 0;
};
thread_local Identity identity;

}  // namespace

WorkerPool::~WorkerPool() {
    {
        const std::lock_guard<std::mutex> lock(mutex);
        fEnd = true;
    }
    wake.notify_all();
    for (const pthread_t thread : threads) pthread_join(thread, nullptr);
}

int WorkerPool::Start(int numThread) {
    if (numThread > 1) {
        // Nothing may fail later: a worker has at most a loop of nodes, one within a node, and a
        // task aside, and a run has one more.
        threads.reserve(static_cast<size_t>(numThread - 1));
        const std::lock_guard<std::mutex> lock(mutex);
        openV.reserve(4 * static_cast<size_t>(numThread));
    }
    while (NumWorkers() < numThread) {
        pthread_t thread;
        const int code = pthread_create(&thread, nullptr, ThreadMain, this);
        if (code != 0) return code;
        threads.push_back(thread);
    }
    return 0;
}

void* WorkerPool::ThreadMain(void* arg) {
    WorkerPool& pool = *static_cast<WorkerPool*>(arg);
    identity = {&pool, pool.numArrived.fetch_add(1) + 1};
    while (Loop* loop = pool.Join()) {
        pool.Work(*loop, identity.worker);
        if (loop->numHelpers.fetch_sub(1) > 1) continue;
        // From here on the loop may be gone.
        const std::lock_guard<std::mutex> lock(pool.mutex);
        pool.done.notify_all();
    }
    return nullptr;
}

int WorkerPool::Self() const {
    return identity.pool == this ? identity.worker : 0;
}

// Waits for a loop to help with; null at the end.
WorkerPool::Loop* WorkerPool::Join() {
    SpinUntil([this] { return numOpen.load() > 0 || fEnd.load(); });
    std::unique_lock<std::mutex> lock(mutex);
    ++numAsleep;
    wake.wait(lock, [this] { return !openV.empty() || fEnd.load(); });
    --numAsleep;
    if (openV.empty()) return nullptr;
    openV.front()->numHelpers.fetch_add(1);
    return openV.front();
}

void WorkerPool::Open(Loop& loop) {
    int numToWake = loop.count;
    {
        const std::lock_guard<std::mutex> lock(mutex);
        openV.push_back(&loop);
        numOpen = static_cast<int>(openV.size());
        numToWake = std::min(numToWake, numAsleep);
    }
    for (; numToWake > 0; --numToWake) wake.notify_one();
}

void WorkerPool::Close(Loop& loop) {
    const std::lock_guard<std::mutex> lock(mutex);
    openV.erase(std::remove(openV.begin(), openV.end(), &loop), openV.end());
    numOpen = static_cast<int>(openV.size());
}

void WorkerPool::Work(Loop& loop, int worker) {
    for (int index = loop.nextIndex++; index < loop.count; index = loop.nextIndex++) {
        try {
            loop.call(loop.context, index, worker);
        } catch (...) {
            const std::lock_guard<std::mutex> lock(mutex);
            if (!loop.failure) loop.failure = std::current_exception();
            loop.nextIndex = loop.count;
        }
    }
    Close(loop);
}

void WorkerPool::Finish(Loop& loop) {
    Work(loop, Self());
    const auto isDone = [&loop] { return loop.numHelpers.load() == 0; };
    if (!SpinUntil(isDone)) {
        std::unique_lock<std::mutex> lock(mutex);
        done.wait(lock, isDone);
    }
    if (loop.failure) std::rethrow_exception(loop.failure);
}

BackgroundTask::BackgroundTask(WorkerPool& workers, std::function<void()> task)
    : pool(workers), run(std::move(task)) {
    loop.call = [](const void* context, int, int) {
        (*static_cast<const std::function<void()>*>(context))();
    };
    loop.context = &run;
    loop.count = 1;
    pool.Open(loop);
}

BackgroundTask::~BackgroundTask() {
    if (!fAwaited) Await();
}

void BackgroundTask::Await() {
    fAwaited = true;
    pool.Finish(loop);
}

}  // namespace sylvora
