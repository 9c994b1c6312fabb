// A pool of threads that share the loops of a run.
#ifndef SYLVORA_BASE_WORKERPOOL_H
#define SYLVORA_BASE_WORKERPOOL_H

#include <pthread.h>

#include <atomic>
#include <condition_variable>
#include <exception>
#include <functional>
#include <mutex>
#include <utility>
#include <vector>

#include "god/CallContext.h"

namespace sylvora {

// Workers are numbered from 0: the calling thread is worker 0, and Start adds the others. A loop
// hands out its indices one by one to whichever worker is free, so results must not depend on which
// worker runs which index.
//
// Tasks may run loops themselves. An idle worker joins the oldest loop that has indices left; the
// thread that started a loop works on it too, then waits for those that joined. Idle workers poll
// for a moment, then block. A task runs in the context (god/CallContext.h) of the thread that
// started its loop.
//
// Thread safety: one thread may use the pool from outside, and tasks may use it from within, except
// for Start. The destructor joins all threads; no loop or task may be running.
class WorkerPool {
  public:
    WorkerPool() = default;
    ~WorkerPool();
    WorkerPool(const WorkerPool&) = delete;
    WorkerPool& operator=(const WorkerPool&) = delete;

    // Adds threads until there are `numThread` workers in all. Returns 0, or the error code of
    // pthread_create; the threads that did start stay.
    [[nodiscard]] int Start(int numThread);

    int NumWorkers() const { return static_cast<int>(threads.size()) + 1; }

    // Runs task(index, worker) for each index in [0, count) and returns when all are done. No two
    // concurrent calls have the same worker, unless one runs inside the other. The first exception
    // of a task is rethrown here, after all running calls have ended; later indices are then
    // skipped.
    template <typename Task>
    void For(int count, const Task& task) {
        if (count <= 0) return;
        if (threads.empty() || count == 1) {
            for (int index = 0; index < count; ++index) task(index, Self());
            return;
        }
        Loop loop;
        loop.call = [](const void* context, int index, int worker) {
            (*static_cast<const Task*>(context))(index, worker);
        };
        loop.context = &task;
        loop.count = count;
        Open(loop);
        Finish(loop);
    }

  private:
    friend class BackgroundTask;

    // Owned by the thread that runs it, on its stack or in a BackgroundTask.
    struct Loop {
        void (*call)(const void* context, int index, int worker) = nullptr;
        const void* context = nullptr;
        const CallContext* const caller = CurrentContext();
        int count = 0;
        std::atomic<int> nextIndex{0};
        std::atomic<int> numHelpers{0};  // workers that joined and have not left
        std::exception_ptr failure;      // the first one
    };

    static void* ThreadMain(void* arg);
    int Self() const;
    void Open(Loop& loop);
    void Close(Loop& loop);
    void Finish(Loop& loop);
    void Work(Loop& loop, int worker);
    Loop* Join();

    std::vector<pthread_t> threads;
    std::atomic<int> numArrived{0};
    std::mutex mutex;  // guards openV, numAsleep, and the failures of loops
    std::condition_variable wake, done;
    std::vector<Loop*> openV;     // loops that may have indices left, oldest first; not owned
    std::atomic<int> numOpen{0};  // openV.size(), for polling without the mutex
    int numAsleep = 0;
    std::atomic<bool> fEnd{false};
};

// A task that an idle worker runs while its owner goes on. If none has started it when Await is
// called, the owner runs it there. Owns the task; the pool must outlive it.
class BackgroundTask {
  public:
    BackgroundTask(WorkerPool& workers, std::function<void()> task);
    ~BackgroundTask();
    BackgroundTask(const BackgroundTask&) = delete;
    BackgroundTask& operator=(const BackgroundTask&) = delete;

    // Returns when the task is done, and rethrows its exception. The destructor awaits a task that
    // was not awaited; such a task must not throw.
    void Await();

  private:
    WorkerPool& pool;
    const std::function<void()> run;
    WorkerPool::Loop loop;
    bool fAwaited = false;
};

}  // namespace sylvora

#endif  // SYLVORA_BASE_WORKERPOOL_H
