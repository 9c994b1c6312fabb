// A few threads that live as long as a run and share its loops.
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

namespace sylvora {

// The calling thread is worker 0; Start adds the others. Idle workers block. A loop hands out its
// indices one by one, so which worker gets which is left to chance: results must not depend on it.
// Tasks may run loops themselves: a worker that has nothing to do joins the loop that was begun
// first of those with indices left, and whoever runs a loop waits for those who joined. Used by one
// thread besides the workers' own. The destructor joins all threads, so nothing runs on when a pool
// is gone.
class WorkerPool {
  public:
    WorkerPool() = default;
    ~WorkerPool();
    WorkerPool(const WorkerPool&) = delete;
    WorkerPool& operator=(const WorkerPool&) = delete;

    // Brings the pool to `numThread` workers in all; 0, or the error code of the thread that could
    // not be started (those that could stay).
    [[nodiscard]] int Start(int numThread);

    int NumWorkers() const { return static_cast<int>(threads.size()) + 1; }

    // Runs task(index, worker) for each index in [0, count) and returns when all are done. The
    // first exception of a task is thrown again here, after the others have ended.
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

    struct Loop {
        void (*call)(const void* context, int index, int worker) = nullptr;
        const void* context = nullptr;
        int count = 0;
        std::atomic<int> nextIndex{0};
        std::atomic<int> numHelpers{0};  // workers that joined and have not left
        std::exception_ptr failure;
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
    std::vector<Loop*> openV;     // that may have indices left, in the order of their beginning
    std::atomic<int> numOpen{0};  // of them, to look at without the mutex
    int numAsleep = 0;
    std::atomic<bool> fEnd{false};
};

// A task that an idle worker runs while its owner goes on; if none has begun it by the time of
// Await, it is run there. The pool must outlive it.
class BackgroundTask {
  public:
    BackgroundTask(WorkerPool& workers, std::function<void()> task);
    ~BackgroundTask();
    BackgroundTask(const BackgroundTask&) = delete;
    BackgroundTask& operator=(const BackgroundTask&) = delete;

    // Returns when the task is done; its exception is thrown again here. The destructor awaits a
    // task that nobody has awaited, which then must not throw.
    void Await();

  private:
    WorkerPool& pool;
    const std::function<void()> run;
    WorkerPool::Loop loop;
    bool fAwaited = false;
};

}  // namespace sylvora

#endif  // SYLVORA_BASE_WORKERPOOL_H
