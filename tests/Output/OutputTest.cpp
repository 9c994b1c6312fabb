// Result files, and files that appear whole or not at all.
#include "Output.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <csignal>
#include <filesystem>
#include <string>
#include <vector>

#include "../Support.h"
#include "Output/WholeFile.h"

namespace {

using sylvora::WholeFile;
using sylvora::tests::Observe;
using sylvora::tests::ReadFile;
using sylvora::tests::TempFolder;

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
}

TEST(WholeFile, ReplacesOnlyOnCommit) {
    const TempFolder folder;
    const std::string path = folder.Write("file", "old");
    ::chmod(path.c_str(), 0640);
    const std::string link = folder.Path("link");
    std::filesystem::create_symlink(path, link);
    {
        WholeFile abandoned(link);
        abandoned.Stream() << "new";
    }
    EXPECT_EQ(ReadFile(path), "old");
    WholeFile file(link);
    file.Stream() << "new";
    EXPECT_TRUE(file.Commit());
    EXPECT_EQ(ReadFile(path), "new");
    EXPECT_TRUE(std::filesystem::is_symlink(link));
    EXPECT_EQ(std::filesystem::status(path).permissions(), std::filesystem::perms(0640));
    EXPECT_EQ(folder.Names().size(), 2u) << "nothing is left beside the file";
}

// A limit on the size of files stands for a full disk.
TEST(WholeFile, KeepsTheOlderFileWhenWritingFails) {
    const TempFolder folder;
    const std::string path = folder.Write("file", "old");
    const auto oldHandler = std::signal(SIGXFSZ, SIG_IGN);
    rlimit oldLimit = {};
    ::getrlimit(RLIMIT_FSIZE, &oldLimit);
    const rlimit limit = {4096, oldLimit.rlim_max};
    ::setrlimit(RLIMIT_FSIZE, &limit);
    bool fCommitted = true;
    {
        WholeFile file(path);
        file.Stream() << std::string(100000, 'x');
        fCommitted = file.Commit();
    }
    ::setrlimit(RLIMIT_FSIZE, &oldLimit);
    std::signal(SIGXFSZ, oldHandler);
    EXPECT_FALSE(fCommitted);
    EXPECT_EQ(ReadFile(path), "old");
    EXPECT_EQ(folder.Names(), std::vector<std::string>{"file"});
}

TEST(WholeFile, SaysWhyNot) {
    const TempFolder folder;
    EXPECT_FALSE(WholeFile(folder.Path("none/file")).IsOpen());
    EXPECT_EQ(sylvora::WhyNotWritable(folder.Path("none/file")), "No such file or directory");
    EXPECT_EQ(sylvora::WhyNotWritable(folder.Path("")), "Is a directory");
    EXPECT_EQ(sylvora::WhyNotWritable(folder.Path("new")), "");
    EXPECT_EQ(sylvora::WhyNotWritable("/dev/null"), "");
    EXPECT_TRUE(folder.Names().empty());
    WholeFile full("/dev/full");
    full.Stream() << "x";
    EXPECT_FALSE(full.Commit());
}

}  // namespace
