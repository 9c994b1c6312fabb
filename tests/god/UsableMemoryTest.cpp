// The memory limit of control groups, in the layouts of cgroup versions 1 and 2.
#include "god/UsableMemory.h"

#include <gtest/gtest.h>

#include "../ControlGroupCases.h"

namespace sylvora::tests {
namespace {

TEST(UsableMemory, IsAtMostThatOfTheControlGroup) {
    TryControlGroups(MemoryOfControlGroup, R"(
no file              |         |                                               | inf
version 2, no limit  | 0::/a/b | a/b/memory.max=max                            | inf
a lower one above    | 0::/a/b | a/b/memory.max=8000000000; a/memory.max=4000000000 | 4e9
with the host's path | 0::/h/x | memory.max=300000                             | 3e5
version 1            | 5:cpu:/m; 4:memory:/a; 0::/ | memory/a/memory.limit_in_bytes=150000 | 15e4
lower below | 4:memory:/a | memory/a/memory.limit_in_bytes=5; memory/memory.limit_in_bytes=9 | 5
no limit | 4:memory:/ | memory/memory.limit_in_bytes=9223372036854771712 | 9223372036854771712
another's limit      | 5:cpu:/m; 4:memory:/a   | cpu/m/memory.limit_in_bytes=1 | inf)");
    EXPECT_GT(UsableMemory(), 1e6);
    EXPECT_LT(UsableMemory(), 1e15);
}

}  // namespace
}  // namespace sylvora::tests
