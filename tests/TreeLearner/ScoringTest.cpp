// Scoring one row: when a vote ends, what is refused, and that nothing is allocated. Other scores
// are compared in tests/damage/ and tests/python/.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <sstream>
#include <string>
#include <vector>

#include "ModelText.h"

// Every allocation of the process is counted.
static std::atomic<long> numAllocations{0};
#if defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define SYLVORA_TESTS_SANITIZED
#endif
#endif
#ifdef SYLVORA_TESTS_SANITIZED
#include <sanitizer/allocator_interface.h>
static const int hooked = __sanitizer_install_malloc_and_free_hooks(
    [](const volatile void*, size_t) { ++numAllocations; }, [](const volatile void*) {});
#else
extern "C" void* __libc_malloc(size_t size);
extern "C" void* __libc_calloc(size_t count, size_t size);
extern "C" SYLVORA_API void* malloc(size_t size) {
    ++numAllocations;
    return __libc_malloc(size);
}
extern "C" SYLVORA_API void* calloc(size_t count, size_t size) {
    ++numAllocations;
    return __libc_calloc(count, size);
}
#endif

namespace {

using namespace sylvora::tests;

// A tree for each value: 0 where column 0 is at most 0.5, else the value.
std::string ModelOf(int numClass, const std::vector<VecDle>& groups) {
    std::ostringstream text;
    text << ModelHead(static_cast<int>(groups.size()), numClass, 2);
    for (const VecDle& valueV : groups) {
        text << "idxTreeArray: 0 size: " << valueV.size() << " shrink: 1\n";
        for (const double value : valueV) {
            text << "0 3 0 INTERMEDIATE 0 0.5 1 2 0\n1 TERMINAL -1 -1 -1 -1 0\n"
                 << "2 TERMINAL -1 -1 -1 -1 " << value << '\n';
        }
    }
    return text.str();
}

// Votes of a group also count in the next one. Without a buffer a group ends at an absolute
// majority: the third tree then does not vote. Half of four trees is no majority.
TEST(Scoring, AVoteEndsAtAMajorityUnlessAllAreWanted) {
    for (const std::vector<VecDle>& groups :
         {std::vector<VecDle>{{0, 0, 1}, {1}}, {{0, 0, 1, 1}, {1, 0, 0}}}) {
        TreeLearner learner;
        ASSERT_EQ(LoadText(learner, ModelOf(2, groups)).status, 0);
        double row[] = {1, 0}, result = 7.0, buffer[7];
        EXPECT_EQ(learner.OnlineTesting(row, result, 2, buffer), 0);
        EXPECT_EQ(result, 0.0);
        EXPECT_EQ(learner.OnlineTesting(row, result, 2, nullptr), 0);
        EXPECT_EQ(result, 1.0);
    }
}

TEST(Scoring, Refusals) {
    struct Case {
        std::string text;
        const char* task;
        int numValues;
        const char* err;
    };
    const std::string good = ModelOf(0, {{3}});
    const Case cases[] = {
        {ModelHead(0, 0, 2), "REG", 2, "ERROR: Wrong tree size or shrink size!\n"},
        {ModelHead(1, 0, 0) + "idxTreeArray: 0 size: 0 shrink: 1", "REG", 2,
         "ERROR: feature dimension in model is 0!\n"},
        {good, "-1", 2, "ERROR: Please config the task REG or CLS in cfg!\n"},
        {good, "REG", 1, "ERROR: dimension of input line doesn't match the model!\n"},
    };
    for (const Case& c : cases) {
        TreeLearner learner;
        ASSERT_EQ(LoadText(learner, c.text).status, 0);
        learner.CfgInfo.fRegCls = c.task;
        double row[] = {0, 0}, result = 7.0, buffer[] = {9};
        EXPECT_EQ(Refused([&] { return learner.OnlineTesting(row, result, c.numValues, buffer); }),
                  c.err);
        EXPECT_EQ(result, 0.0);
        EXPECT_EQ(buffer[0], 9.0);
    }
}

TEST(Scoring, AllocatesNothing) {
    for (const int numClass : {0, 3, 5000}) {
        const long before = numAllocations;
        TreeLearner learner;
        ASSERT_EQ(LoadText(learner, ModelOf(numClass, {{1, 2, 1}, {2}})).status, 0);
        EXPECT_GT(numAllocations, before + 10) << "the count does not count";
        double row[] = {0, 0}, result = 0.0, buffer[4];
        // With thousands of classes a thread's first call allocates its counters.
        EXPECT_EQ(learner.OnlineTesting(row, result, 2, buffer), 0);
        const long start = numAllocations;
        int status = 0;
        for (int i = 0; i < 100; ++i) {
            row[0] = i % 2;
            status |= learner.OnlineTesting(row, result, 2, buffer);
            status |= learner.OnlineTesting(row, result, 2, nullptr);
        }
        EXPECT_EQ(numAllocations, start) << numClass;
        EXPECT_EQ(status, 0);
    }
}

}  // namespace
