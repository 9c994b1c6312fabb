// Nested loops of the worker pool, background tasks, and exceptions.
#include "base/WorkerPool.h"

#include <gtest/gtest.h>

#include <atomic>
#include <optional>
#include <stdexcept>
#include <vector>

namespace sylvora::tests {
namespace {

class WorkerPools : public testing::TestWithParam<int> {
  protected:
    void SetUp() override { ASSERT_EQ(pool.Start(GetParam()), 0); }

    WorkerPool pool;
};

INSTANTIATE_TEST_SUITE_P(Threads, WorkerPools, testing::Values(1, 2, 5));

// A worker that joins a nested loop keeps its number, and no two running tasks have the same
// number.
TEST_P(WorkerPools, RunEachIndexOnceByOneWorkerAtATime) {
    constexpr int kOuter = 7;
    constexpr int kInner = 40;
    std::vector<std::atomic<int>> runV(kOuter * kInner);
    std::vector<std::atomic<int>> atWorkV(static_cast<size_t>(pool.NumWorkers()));
    std::atomic<int> numClashes{0};
    for (int repeat = 0; repeat < 50; ++repeat) {
        pool.For(kOuter, [&](int outer, int) {
            std::atomic<int> numBackground{0};
            const BackgroundTask background(pool, [&] { ++numBackground; });
            pool.For(kInner, [&](int inner, int worker) {
                std::atomic<int>& atWork = atWorkV.at(static_cast<size_t>(worker));
                if (atWork++ != 0) ++numClashes;
                ++runV[static_cast<size_t>(outer * kInner + inner)];
                --atWork;
            });
        });
    }
    EXPECT_EQ(numClashes, 0);
    for (const std::atomic<int>& run : runV) EXPECT_EQ(run, 50);
}

// Also in workers that have run tasks of another context before.
TEST_P(WorkerPools, RunTasksInTheContextOfTheirLoop) {
    const CallContext contexts[2] = {};
    std::atomic<int> numOthers{0};
    const auto expect = [&](const CallContext* expected) {
        if (CurrentContext() != expected) ++numOthers;
    };
    for (int repeat = 0; repeat < 100; ++repeat) {
        for (const CallContext* here : {&contexts[0], &contexts[1]}) {
            const ContextScope scope(here);
            const BackgroundTask background(pool, [&, here] { expect(here); });
            pool.For(9, [&](int, int) {
                expect(here);
                const ContextScope inner(&contexts[1]);
                pool.For(9, [&](int, int) { expect(&contexts[1]); });
            });
        }
        pool.For(9, [&](int, int) { expect(nullptr); });
    }
    EXPECT_EQ(numOthers, 0);
}

TEST_P(WorkerPools, RethrowAfterAllTasksHaveEnded) {
    for (int repeat = 0; repeat < 20; ++repeat) {
        std::atomic<int> numAtWork{0};
        std::atomic<int> numBackground{0};
        const auto run = [&] {
            pool.For(5, [&](int outer, int) {
                const BackgroundTask background(pool, [&] { ++numBackground; });
                pool.For(30, [&](int inner, int) {
                    ++numAtWork;
                    const bool fThrow = outer == 3 && inner == 17;
                    --numAtWork;
                    if (fThrow) throw std::runtime_error("seventeen");
                });
            });
        };
        EXPECT_THROW(run(), std::runtime_error);
        EXPECT_EQ(numAtWork, 0);
        EXPECT_GT(numBackground, 0);
        BackgroundTask background(pool, [] { throw std::out_of_range("background"); });
        EXPECT_THROW(background.Await(), std::out_of_range);
    }
}

TEST_P(WorkerPools, GrowBetweenLoops) {
    std::atomic<int> sum{0};
    for (int more = 0; more < 3; ++more) {
        ASSERT_EQ(pool.Start(GetParam() + more), 0);
        EXPECT_EQ(pool.NumWorkers(), GetParam() + more);
        pool.For(100, [&](int index, int) { sum += index; });
    }
    EXPECT_EQ(sum, 3 * 4950);
}

// The task is destroyed, often before any worker has started it.
TEST_P(WorkerPools, FinishBackgroundTasksThatNobodyAwaits) {
    int numDone = 0;
    for (int repeat = 0; repeat < 200; ++repeat) {
        std::optional<BackgroundTask> background;
        background.emplace(pool, [&] { ++numDone; });
        background.reset();
        EXPECT_EQ(numDone, repeat + 1);
    }
}

}  // namespace
}  // namespace sylvora::tests
