// A few threads that live as long as a run and share its loops.
#ifndef SYLVORA_ENGINE_WORKERPOOL_H
#define SYLVORA_ENGINE_WORKERPOOL_H

#include <pthread.h>

#include <atomic>
#include <condition_variable>
#include <exception>
#include <functional>
#include <mutex>
#include <utility>
#include <vector>

namespace sylvora {
namespace engine {

// The calling thread is worker 0; Start adds the others. Idle workers block. A loop hands out its
// indices one by one, so which worker gets which is left to chance: results must not depend on it.
// Used by one thread at a time; loops do not nest. The destructor joins all threads, so nothing
// runs on when a pool is gone.
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
            for (int index = 0; index < count; ++index) task(index, 0);
            return;
        }
        const auto call = [](const void* context, int index, int worker) {
            (*static_cast<const Task*>(context))(index, worker);
        };
        RunLoop({call, &task, count});
    }

    // Runs the task on one worker while the others go on with loops; where there is no other, at
    // once. AwaitAside returns when it is done and comes before the next RunAside; an exception of
    // the task is thrown again there.
    void RunAside(std::function<void()> task);
    void AwaitAside();

  private:
    struct Loop {
        void (*call)(const void* context, int index, int worker) = nullptr;
        const void* context = nullptr;
        int count = 0;
    };

    static void* ThreadMain(void* arg);
    void RunLoop(Loop next);
    void Work(int worker);
    void WaitAndWork(int worker);
    void WorkAside();

    std::vector<pthread_t> threads;
    std::mutex mutex;
    std::condition_variable wake, done;
    Loop loop;
    std::atomic<int> nextIndex{0};
    std::atomic<unsigned> generation{0};  // counts the loops; a change wakes the workers
    std::atomic<int> numBusy{0};          // workers that have not finished the current loop
    std::exception_ptr failure;
    bool fEnd = false;
    std::atomic<int> numArrived{0};
    std::atomic<bool> fAside{false};  // worker 1 has a task of its own, or is about to
    std::function<void()> aside;
    std::exception_ptr asideFailure;
    unsigned firstGeneration = 0;  // loops that were over before the latest threads came
};

// A task aside, which must not throw, that is done when this ends.
class TaskAside {
  public:
    TaskAside(WorkerPool& workers, std::function<void()> task) : pool(workers) {
        pool.RunAside(std::move(task));
    }
    ~TaskAside() { pool.AwaitAside(); }
    TaskAside(const TaskAside&) = delete;
    TaskAside& operator=(const TaskAside&) = delete;

  private:
    WorkerPool& pool;
};

}  // namespace engine
}  // namespace sylvora

#endif  // SYLVORA_ENGINE_WORKERPOOL_H
