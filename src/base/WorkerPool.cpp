// The worker pool; see WorkerPool.h.
#include "WorkerPool.h"

#include <sched.h>

#include <algorithm>
#include <utility>

namespace sylvora {
namespace {

// Loops mostly follow each other within microseconds, and waking a thread takes longer than that.
// So an idle worker polls before it sleeps: first busily, then yielding the processor to others.
constexpr int kSpins = 2000;
constexpr int kYields = 1000;

// Polls until the condition holds; false if it did not in time.
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

// The pool that started the current thread, if any, and the thread's number there.
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
        // Reserve now, because Open must not throw. At any time a worker has opened at most three
        // loops (over nodes, within a node, and a background task), and a run one more.
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
        // numHelpers is 0: the owner may already have destroyed the loop, so do not touch it.
        const std::lock_guard<std::mutex> lock(pool.mutex);
        pool.done.notify_all();
    }
    return nullptr;
}

// The number of the calling thread: 0 unless it is one of this pool's own.
int WorkerPool::Self() const {
    return identity.pool == this ? identity.worker : 0;
}

// Waits for an open loop and joins the oldest; null when the pool ends. The helper is counted under
// the mutex, while the loop is still open, so the loop's owner waits for it.
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

// Offers a loop to the workers. Wakes no more of them than the loop has indices.
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

// Nobody can join the loop any more. Closing twice is harmless.
void WorkerPool::Close(Loop& loop) {
    const std::lock_guard<std::mutex> lock(mutex);
    openV.erase(std::remove(openV.begin(), openV.end(), &loop), openV.end());
    numOpen = static_cast<int>(openV.size());
}

// Runs indices until none are left. Each is handed out once, by the atomic increment. After an
// exception no more are handed out.
void WorkerPool::Work(Loop& loop, int worker) {
    const ContextScope scope(loop.caller);
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

// Works on a loop of the calling thread's own and waits for its helpers. Afterwards no other thread
// refers to the loop.
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
