// Control groups as both versions lay them out, and what they allow.
#include "engine/UsableCpus.h"

#include <gtest/gtest.h>
#include <sched.h>

#include "../ControlGroupCases.h"

namespace sylvora::tests {
namespace {

TEST(UsableCpus, AreAtMostThoseOfTheControlGroup) {
    TryControlGroups<int>(
        engine::CpusOfControlGroup,
        {
            {"no file", "", {}, 0},
            {"version 2, no limit", "0::/a/b\n", {{"a/b/cpu.max", "max 100000\n"}}, 0},
            {"version 2", "0::/a/b\n", {{"a/b/cpu.max", "250000 100000\n"}}, 3},
            {"whole processors", "0::/a/b\n", {{"a/b/cpu.max", "200000 100000\n"}}, 2},
            {"a share of one", "0::/a\n", {{"a/cpu.max", "1000 100000\n"}}, 1},
            {"the group above is lower",
             "0::/a/b\n",
             {{"a/b/cpu.max", "800000 100000\n"}, {"a/cpu.max", "400000 100000\n"}},
             4},
            {"the group above has none",
             "0::/a/b\n",
             {{"a/b/cpu.max", "200000 100000\n"}, {"a/cpu.max", "max 100000\n"}},
             2},
            {"in a container", "0::/\n", {{"cpu.max", "300000 100000\n"}}, 3},
            {"a container that sees the host's path",
             "0::/host/x\n",
             {{"cpu.max", "300000 100000\n"}},
             3},
            {"version 1",
             "5:memory:/m\n4:cpu,cpuacct:/a\n0::/\n",
             {{"cpu,cpuacct/a/cpu.cfs_quota_us", "150000\n"},
              {"cpu,cpuacct/a/cpu.cfs_period_us", "100000\n"},
              {"memory/m/cpu.cfs_quota_us", "1\n"}},
             2},
            {"version 1, no limit",
             "4:cpuacct,cpu:/a\n",
             {{"cpu/a/cpu.cfs_quota_us", "-1\n"}, {"cpu/a/cpu.cfs_period_us", "100000\n"}},
             0},
            {"not a number", "0::/a\n", {{"a/cpu.max", "many\n"}}, 0},
            {"no period", "0::/a\n", {{"a/cpu.max", "100 0\n"}}, 0},
        });
}

TEST(UsableCpus, AreThoseOfTheAffinityMask) {
    cpu_set_t before;
    ASSERT_EQ(sched_getaffinity(0, sizeof before, &before), 0);
    EXPECT_GE(engine::NumUsableCpus(), 1);
    EXPECT_LE(engine::NumUsableCpus(), CPU_COUNT(&before));
    int first = 0;
    while (!CPU_ISSET(first, &before)) ++first;
    cpu_set_t one;
    CPU_ZERO(&one);
    CPU_SET(first, &one);
    ASSERT_EQ(sched_setaffinity(0, sizeof one, &one), 0);
    EXPECT_EQ(engine::NumUsableCpus(), 1);
    ASSERT_EQ(sched_setaffinity(0, sizeof before, &before), 0);
}

}  // namespace
}  // namespace sylvora::tests
