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

TEST(WholeFile, LeavesADeviceADevice) {
    EXPECT_TRUE(WriteNew("/dev/null"));
    EXPECT_TRUE(std::filesystem::is_character_file("/dev/null"));
}

}  // namespace
