// Scoring one row: how groups and votes combine, what is refused, and that nothing is allocated.
#include <gtest/gtest.h>

#include <atomic>
#include <cmath>
#include <cstdlib>
#include <limits>
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

const double kNan = std::numeric_limits<double>::quiet_NaN();

struct Group {
    double shrink;
    std::vector<double> outputV;  // one tree each: -1 where column 0 is at most 0.5, else this
};

std::string ModelOf(int numClass, const std::vector<Group>& groups) {
    std::ostringstream text;
    text << ModelHead(static_cast<int>(groups.size()), numClass, 2);
    for (const Group& group : groups) {
        text << "idxTreeArray: 0 size: " << group.outputV.size() << " shrink: " << group.shrink
             << '\n';
        for (const double output : group.outputV) {
            text << "0 3 0 INTERMEDIATE 0 0.5 1 2 0\n1 TERMINAL -1 -1 -1 -1 "
                 << (numClass == 0 ? -1 : 0) << "\n2 TERMINAL -1 -1 -1 -1 " << output << '\n';
        }
    }
    return text.str();
}

TEST(Scoring, Table) {
    struct Case {
        int numClass;
        std::vector<Group> groups;
        double withBuffer;
        std::vector<double> bufferV;  // untouched entries keep 9
        double without;
    };
    const float tenth = 0.1f;
    const Case cases[] = {
        {0, {{0.1, {2}}}, tenth * 2.0, {2}, tenth * 2.0},
        {0, {{1, {1, 2, 3, 4}}}, 2.5, {2.5, 9, 9, 9}, 2.5},
        {0, {{1, {1, 2}}, {0.1, {8}}}, 1.5 + tenth * 8.0, {1.5, 8, 9}, 1.5 + tenth * 8.0},
        {2, {{0.5, {1, 1, 0}}}, 0.5, {1, 1, 0}, 0.5},
        {3, {{1, {2, 1, 0}}}, 2, {2, 1, 0}, 2},
        {3, {{1, {0, 2, 1, 2}}}, 2, {0, 2, 1, 2}, 2},
        {3, {{1, {2.9, 1.5, 1.2}}}, 1.2, {2.9, 1.5, 1.2}, 1.2},
        // The votes of the first group count in the second one. Without a buffer its third tree
        // has not voted, and the highest count is still 1.
        {2, {{1, {0, 0, 1}}, {8, {1}}}, 0, {1, 0, 1}, 8},
        // Half of the trees are no majority: all four vote.
        {2, {{1, {0, 0, 1, 1}}, {8, {1, 0, 0}}}, 0, {1, 0, 0, 1, 9, 9, 9}, 8},
    };
    for (const Case& c : cases) {
        TreeLearner learner;
        const std::string text = ModelOf(c.numClass, c.groups);
        ASSERT_EQ(LoadText(learner, text).status, 0);
        double row[] = {1, kNan, kNan}, result = 7.0;
        std::vector<double> buffer(c.bufferV.size(), 9.0);
        EXPECT_EQ(learner.OnlineTesting(row, result, 3, buffer.data()), 0);
        EXPECT_EQ(result, c.withBuffer) << text;
        EXPECT_EQ(buffer, c.bufferV) << text;
        EXPECT_EQ(learner.OnlineTesting(row, result, 2, nullptr), 0);
        EXPECT_EQ(result, c.without) << text;
    }
}

TEST(Scoring, ThresholdGoesLeftAndNanRight) {
    TreeLearner learner;
    ASSERT_EQ(LoadText(learner, ModelOf(0, {{1, {3}}})).status, 0);
    const double above = std::nextafter(0.5, 1.0);
    for (const auto& [value, expected] : {std::pair(0.5, -1.0), {above, 3.0}, {kNan, 3.0}}) {
        double row[] = {value, 0}, result = 0.0;
        EXPECT_EQ(learner.OnlineTesting(row, result, 2, nullptr), 0);
        EXPECT_EQ(result, expected) << value;
    }
    ASSERT_EQ(LoadText(learner, ModelOf(0, {{1, {}}})).status, 0);
    double row[] = {0, 0}, result = 0.0;
    EXPECT_EQ(learner.OnlineTesting(row, result, 2, nullptr), 0);
    EXPECT_TRUE(std::isnan(result)) << "a group without trees";
}

TEST(Scoring, Refusals) {
    struct Case {
        std::string text;
        const char* task;
        int numValues;
        const char* err;
    };
    const std::string good = ModelOf(0, {{1, {3}}});
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
        const Outcome outcome =
            Observe([&] { return learner.OnlineTesting(row, result, c.numValues, buffer); });
        EXPECT_EQ(outcome.status, -1);
        EXPECT_EQ(outcome.err, c.err);
        EXPECT_EQ(result, 0.0);
        EXPECT_EQ(buffer[0], 9.0);
    }
}

TEST(Scoring, AllocatesNothing) {
    for (const int numClass : {0, 3, 5000}) {
        const long before = numAllocations;
        TreeLearner learner;
        ASSERT_EQ(LoadText(learner, ModelOf(numClass, {{1, {1, 2, 1}}, {1, {2}}})).status, 0);
        EXPECT_GT(numAllocations, before + 10) << "the count does not count";
        double row[] = {0, 0}, result = 0.0, buffer[4];
        // With thousands of classes a thread's first call makes room for its votes.
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
