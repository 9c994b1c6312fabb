// The worker pool; see WorkerPool.h.
#include "WorkerPool.h"

#include <sched.h>

#include <utility>

namespace sylvora {
namespace engine {
namespace {

// Loops follow each other within microseconds, or after a short stretch of one worker alone, and to
// be woken takes long: look around for a while before going to sleep, at last only when nobody else
// wants the processor.
constexpr int kSpins = 2000;
constexpr int kYields = 1000;
constexpr int kAsideWorker = 1;

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

}  // namespace

WorkerPool::~WorkerPool() {
    {
        // A task aside would take the end for one of the loops that it missed.
        std::unique_lock<std::mutex> lock(mutex);
        done.wait(lock, [this] { return !fAside.load(); });
    }
    {
        const std::lock_guard<std::mutex> lock(mutex);
        fEnd = true;
        generation.fetch_add(1);
    }
    wake.notify_all();
    for (const pthread_t thread : threads) pthread_join(thread, nullptr);
}

int WorkerPool::Start(int numThread) {
    if (numThread > 1) threads.reserve(static_cast<size_t>(numThread - 1));
    firstGeneration = generation.load();
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
    pool.WaitAndWork(pool.numArrived.fetch_add(1) + 1);
    return nullptr;
}

void WorkerPool::WaitAndWork(int worker) {
    unsigned seen = firstGeneration;
    const auto isNew = [&] { return generation.load() != seen; };
    const auto isAside = [&] { return worker == kAsideWorker && fAside.load(); };
    const auto isWanted = [&] { return isNew() || isAside(); };
    for (;;) {
        if (!SpinUntil(isWanted)) {
            std::unique_lock<std::mutex> lock(mutex);
            wake.wait(lock, isWanted);
        }
        if (isAside()) {
            WorkAside();
            const std::lock_guard<std::mutex> lock(mutex);
            seen = generation.load();  // the loops meanwhile went without this worker
            fAside = false;
            done.notify_one();
            continue;
        }
        {
            const std::lock_guard<std::mutex> lock(mutex);
            if (fEnd) return;
        }
        ++seen;
        Work(worker);
        if (numBusy.fetch_sub(1) == 1) {
            const std::lock_guard<std::mutex> lock(mutex);
            done.notify_one();
        }
    }
}

void WorkerPool::WorkAside() {
    try {
        aside();
    } catch (...) {
        asideFailure = std::current_exception();
    }
}

void WorkerPool::RunAside(std::function<void()> task) {
    aside = std::move(task);
    asideFailure = nullptr;
    if (threads.empty()) return WorkAside();
    {
        const std::lock_guard<std::mutex> lock(mutex);
        fAside = true;
    }
    wake.notify_all();
}

void WorkerPool::AwaitAside() {
    const auto isDone = [this] { return !fAside.load(); };
    if (!SpinUntil(isDone)) {
        std::unique_lock<std::mutex> lock(mutex);
        done.wait(lock, isDone);
    }
    if (asideFailure) std::rethrow_exception(std::exchange(asideFailure, nullptr));
}

void WorkerPool::Work(int worker) {
    for (int index = nextIndex.fetch_add(1); index < loop.count; index = nextIndex.fetch_add(1)) {
        try {
            loop.call(loop.context, index, worker);
        } catch (...) {
            const std::lock_guard<std::mutex> lock(mutex);
            if (!failure) failure = std::current_exception();
            nextIndex.store(loop.count);
        }
    }
}

void WorkerPool::RunLoop(Loop next) {
    {
        const std::lock_guard<std::mutex> lock(mutex);
        loop = next;
        failure = nullptr;
        nextIndex.store(0);
        numBusy.store(static_cast<int>(threads.size()) - (fAside ? 1 : 0));
        generation.fetch_add(1);
    }
    wake.notify_all();
    Work(0);
    const auto isDone = [this] { return numBusy.load() == 0; };
    if (!SpinUntil(isDone)) {
        std::unique_lock<std::mutex> lock(mutex);
        done.wait(lock, isDone);
    }
    if (failure) std::rethrow_exception(failure);
}

}  // namespace engine
}  // namespace sylvora
