// Control groups as both versions lay them out, and the memory that they allow.
#include "frontend/UsableMemory.h"

#include <gtest/gtest.h>

#include <limits>

#include "../ControlGroupCases.h"

namespace sylvora::tests {
namespace {

TEST(UsableMemory, IsAtMostThatOfTheControlGroup) {
    constexpr double kNoLimit = std::numeric_limits<double>::infinity();
    TryControlGroups<double>(
        frontend::MemoryOfControlGroup,
        {
            {"no file", "", {}, kNoLimit},
            {"version 2, no limit", "0::/a/b\n", {{"a/b/memory.max", "max\n"}}, kNoLimit},
            {"the group above is lower",
             "0::/a/b\n",
             {{"a/b/memory.max", "8000000000\n"}, {"a/memory.max", "4000000000\n"}},
             4e9},
            {"a container that sees the host's path",
             "0::/host/x\n",
             {{"memory.max", "300000\n"}},
             3e5},
            {"version 1, some other hierarchies",
             "5:cpu:/m\n4:memory:/a\n0::/\n",
             {{"memory/a/memory.limit_in_bytes", "150000\n"},
              {"memory/memory.limit_in_bytes", "9223372036854771712\n"},
              {"cpu/m/memory.limit_in_bytes", "1\n"}},
             15e4},
        });
    EXPECT_GT(frontend::UsableMemory(), 1e6);
    EXPECT_LT(frontend::UsableMemory(), 1e15);
}

}  // namespace
}  // namespace sylvora::tests
