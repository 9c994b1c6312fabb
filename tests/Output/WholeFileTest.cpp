// Places for a file that are not simply a regular file or nothing.
#include "Output/WholeFile.h"

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

// A file that was left has no writer; one with a writer stays, as does what only looks like one.
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
