// The CPU limits of control groups, in both versions of their file layout, and the affinity mask.
#include "base/UsableCpus.h"

#include <gtest/gtest.h>
#include <sched.h>

#include "../ControlGroupCases.h"

namespace sylvora::tests {
namespace {

TEST(UsableCpus, AreAtMostThoseOfTheControlGroup) {
    TryControlGroups(CpusOfControlGroup, R"(
no file               |         |                                              | 0
version 2, no limit   | 0::/a/b | a/b/cpu.max=max 100000                       | 0
version 2             | 0::/a/b | a/b/cpu.max=250000 100000                    | 3
whole processors      | 0::/a/b | a/b/cpu.max=200000 100000                    | 2
a share of one        | 0::/a   | a/cpu.max=1000 100000                        | 1
a lower one above     | 0::/a/b | a/b/cpu.max=8 1; a/cpu.max=4 1               | 4
none above            | 0::/a/b | a/b/cpu.max=2 1; a/cpu.max=max 1             | 2
in a container        | 0::/    | cpu.max=300000 100000                        | 3
with the host's path  | 0::/h/x | cpu.max=300000 100000                        | 3
version 1 | 5:mem:/m; 4:c,cpu:/a; 0::/ | c,cpu/a/cpu.cfs_quota_us=3; c,cpu/a/cpu.cfs_period_us=2 | 2
another's quota | 5:mem:/m; 4:cpu:/a  | mem/m/cpu.cfs_quota_us=1; mem/m/cpu.cfs_period_us=1 | 0
version 1, no limit   | 4:cpuacct,cpu:/a | cpu/a/cpu.cfs_quota_us=-1; cpu/a/cpu.cfs_period_us=9 | 0
not a number          | 0::/a   | a/cpu.max=many                               | 0
no period             | 0::/a   | a/cpu.max=100 0                              | 0)");
}

TEST(UsableCpus, AreThoseOfTheAffinityMask) {
    cpu_set_t before;
    ASSERT_EQ(sched_getaffinity(0, sizeof before, &before), 0);
    EXPECT_GE(NumUsableCpus(), 1);
    EXPECT_LE(NumUsableCpus(), CPU_COUNT(&before));
    int first = 0;
    while (!CPU_ISSET(first, &before)) ++first;
    cpu_set_t one;
    CPU_ZERO(&one);
    CPU_SET(first, &one);
    ASSERT_EQ(sched_setaffinity(0, sizeof one, &one), 0);
    EXPECT_EQ(NumUsableCpus(), 1);
    ASSERT_EQ(sched_setaffinity(0, sizeof before, &before), 0);
}

}  // namespace
}  // namespace sylvora::tests
