// Targets other than an existing regular file: links, FIFOs, devices, names that are too long; and
// abandoned temporary files.
#include "Output/WholeFile.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <thread>

#include "../Support.h"

namespace {

using namespace sylvora::tests;

bool WriteNew(const std::string& path) {
    sylvora::WholeFile file(path);
    file.Stream() << "new";
    return file.Commit();
}

TEST(WholeFile, FollowsALinkThatLeadsNowhereYet) {
    const TempFolder folder;
    std::filesystem::create_symlink("target", folder.Path("link"));
    EXPECT_TRUE(WriteNew(folder.Path("link")));
    EXPECT_TRUE(std::filesystem::is_symlink(folder.Path("link")));
    EXPECT_EQ(ReadFile(folder.Path("target")), "new");
}

TEST(WholeFile, TakesTheLongestNames) {
    const TempFolder folder;
    const std::string path = folder.Path(std::string(255, 'n'));
    EXPECT_EQ(sylvora::WhyNotWritable(path), "");
    EXPECT_TRUE(WriteNew(path));
    EXPECT_EQ(folder.Names().size(), 1U);
}

// The temporary file has a short name; the target's own name must be checked too.
TEST(WholeFile, RefusesWhatCanNotBeAName) {
    const TempFolder folder;
    std::filesystem::create_symlink("circle", folder.Path("other"));
    std::filesystem::create_symlink("other", folder.Path("circle"));
    std::filesystem::create_symlink(std::string(256, 'n'), folder.Path("long"));
    std::string farAway = folder.Path("");
    while (farAway.size() < 4096) farAway += "./";
    const std::pair<std::string, int> cases[] = {{folder.Path("circle"), ELOOP},
                                                 {folder.Path("long"), ENAMETOOLONG},
                                                 {folder.Path(std::string(256, 'n')), ENAMETOOLONG},
                                                 {farAway + "file", ENAMETOOLONG}};
    for (const auto& [path, error] : cases) {
        EXPECT_EQ(sylvora::WhyNotWritable(path), std::strerror(error));
        sylvora::WholeFile file(path);
        EXPECT_FALSE(file.IsOpen());
        EXPECT_EQ(file.ErrorMessage(),
                  "ERROR: Can not write file " + path + ": " + std::strerror(error) + "!\n");
    }
    EXPECT_TRUE(std::filesystem::is_symlink(folder.Path("circle")));
    EXPECT_EQ(folder.Names().size(), 3U);
}

// A FIFO that nobody reads.
TEST(WholeFile, WaitsForAReaderUntilItIsToldToStop) {
    const TempFolder folder;
    const std::string path = folder.Path("fifo");
    ASSERT_EQ(::mkfifo(path.c_str(), 0600), 0);
    for (const int lastTime : {1, 3}) {
        int numAsked = 0;
        const sylvora::WholeFile file(path, [&] { return ++numAsked == lastTime; });
        EXPECT_EQ(errno, ECANCELED);
        EXPECT_FALSE(file.IsOpen());
        EXPECT_EQ(numAsked, lastTime);
    }
    std::string seen;
    std::thread reader;
    bool fWritten = false;
    {
        // The reader starts only when the writer is already waiting.
        sylvora::WholeFile file(path, [&] {
            if (!reader.joinable()) reader = std::thread([&] { seen = ReadFile(path); });
            return false;
        });
        file.Stream() << std::string(100000, 'x') << 0.5;  // more than a pipe holds
        fWritten = file.Commit();
    }
    reader.join();
    EXPECT_TRUE(fWritten);
    EXPECT_EQ(seen, std::string(100000, 'x') + "0.5");
    EXPECT_TRUE(std::filesystem::is_fifo(path));
}

// Removes temporary files without a living writer. Keeps those with one, and files whose names are
// only similar.
TEST(WholeFile, ClearsWhatAKilledWriterLeft) {
    const TempFolder folder;
    for (const char* name : {".sylvora-1-0.tmp", ".sylvora-77-12.tmp", ".sylvora-.tmp",
                             ".sylvora-1-0.tmp.txt", ".sylvora-my.tmp"}) {
        folder.Write(name, "left");
    }
    std::filesystem::create_directory(folder.Path(".sylvora-2-0.tmp"));
    sylvora::WholeFile other(folder.Path("other"));
    EXPECT_TRUE(WriteNew(folder.Path("target")));
    EXPECT_EQ(folder.Names().size(), 6U);
    other.Stream() << "other";
    EXPECT_TRUE(other.Commit());
    EXPECT_EQ(ReadFile(folder.Path("other")), "other");
    EXPECT_EQ(ReadFile(folder.Path(".sylvora-my.tmp")), "left");
}

TEST(WholeFile, LeavesADeviceADevice) {
    EXPECT_TRUE(WriteNew("/dev/null"));
    EXPECT_TRUE(std::filesystem::is_character_file("/dev/null"));
}

}  // namespace
