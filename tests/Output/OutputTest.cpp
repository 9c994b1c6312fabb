// Result files: format and failures.
#include "Output.h"

#include <gtest/gtest.h>

#include <string>

#include "../Support.h"

namespace {

using namespace sylvora::tests;

TEST(ResultFile, Rows) {
    const TempFolder folder;
    VecDle scores = {0.123456789, 1};
    VecDle labels = {-2, 0};
    const std::string base = folder.Path("result");
    EXPECT_EQ(Output(scores.data(), base, 12, labels.data(), 2), 0);
    EXPECT_EQ(ReadFile(base + ".txt.12"), "0.123457\t-2\n1\t0\n");
    EXPECT_EQ(OutputCls(scores.data(), {{}, {3, 7}}, base, 12, labels.data(), 2), 0);
    EXPECT_EQ(ReadFile(base + ".txt.12"), "0.123457\t-2\t\n1\t0\t0:3\t1:7\t\n");
    EXPECT_EQ(Output(nullptr, base, 12, nullptr, 0), 0);
    EXPECT_EQ(ReadFile(base + ".txt.12"), "");
    const auto noFolder = Observe(
        [&] { return Output(scores.data(), folder.Path("none/result"), 1, labels.data(), 2); });
    EXPECT_EQ(noFolder.status, 0);
    EXPECT_EQ(noFolder.err, "");
    std::filesystem::create_symlink("/dev/full", base + ".txt.13");
    const auto full = Observe([&] { return Output(scores.data(), base, 13, labels.data(), 2); });
    EXPECT_EQ(full.status, 0);
    EXPECT_EQ(full.err,
              "ERROR: Can not write file " + base + ".txt.13 in full: No space left on device!\n");
}

}  // namespace
