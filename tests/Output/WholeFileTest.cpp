// Files appear whole or not at all, whatever stands in their place.
#include "Output/WholeFile.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstring>

#include "../Support.h"

namespace {

using sylvora::WholeFile;
using sylvora::WhyNotWritable;
using sylvora::tests::ReadFile;
using sylvora::tests::TempFolder;

typedef std::vector<std::string> Names;

bool WriteNew(const std::string& path) {
    WholeFile file(path);
    file.Stream() << "new";
    return file.Commit();
}

TEST(WholeFile, AppearsWithItsCommit) {
    TempFolder folder;
    for (const bool fOlder : {false, true}) {
        const std::string path = folder.Path(fOlder ? "b" : "a");
        if (fOlder) {
            folder.Write("b", "older");
            chmod(path.c_str(), 0640);
        }
        {
            WholeFile file(path);
            ASSERT_TRUE(file.IsOpen());
            file.Stream() << "lost" << std::flush;
            EXPECT_EQ(access(path.c_str(), F_OK) == 0, fOlder);
        }
        EXPECT_EQ(access(path.c_str(), F_OK) == 0, fOlder);
        if (fOlder) EXPECT_EQ(ReadFile(path), "older");
        EXPECT_EQ(WhyNotWritable(path), "");
        EXPECT_TRUE(WriteNew(path));
        EXPECT_EQ(ReadFile(path), "new");
        struct stat info = {};
        stat(path.c_str(), &info);
        if (fOlder) EXPECT_EQ(info.st_mode & 07777, 0640U);
    }
    EXPECT_EQ(folder.Names().size(), 2U);  // nothing temporary is left
}

TEST(WholeFile, FollowsLinks) {
    TempFolder folder;
    for (const bool fDangling : {false, true}) {
        const std::string name = fDangling ? "nowhere" : "file";
        const std::string link = folder.Path("link-to-" + name);
        if (!fDangling) folder.Write(name, "older");
        std::filesystem::create_symlink(name, link);
        EXPECT_TRUE(WriteNew(link));
        EXPECT_TRUE(std::filesystem::is_symlink(link)) << name;
        EXPECT_EQ(ReadFile(link), "new");
    }
}

TEST(WholeFile, WritesToDevicesDirectly) {
    EXPECT_EQ(WhyNotWritable("/dev/null"), "");
    EXPECT_TRUE(WriteNew("/dev/null"));
    EXPECT_TRUE(std::filesystem::is_character_file("/dev/null"));
}

TEST(WholeFile, AFullDiskIsAFailure) {
    errno = 0;
    EXPECT_FALSE(WriteNew("/dev/full"));
    EXPECT_EQ(errno, ENOSPC);
}

TEST(WholeFile, SaysWhyAPlaceCannotBeWritten) {
    TempFolder folder;
    folder.Write("file", "older");
    const std::string longName(250, 'n');  // no room for a longer name beside it
    folder.Write(longName, "older");
    const struct {
        std::string path;
        int error;
    } cases[] = {{folder.Path("missing/a"), ENOENT},
                 {folder.Path("file/a"), ENOTDIR},
                 {folder.Path(""), EISDIR},
                 {folder.Path(std::string(300, 'n')), ENAMETOOLONG}};
    for (const auto& c : cases) {
        EXPECT_EQ(WhyNotWritable(c.path), std::strerror(c.error));
        WholeFile file(c.path);
        EXPECT_EQ(errno, c.error) << c.path;
        EXPECT_FALSE(file.IsOpen());
        EXPECT_FALSE(file.Commit());
    }
    EXPECT_EQ(WhyNotWritable(folder.Path(longName)), "");
    EXPECT_TRUE(WriteNew(folder.Path(longName)));
    EXPECT_EQ(folder.Names().size(), 2U);
}

}  // namespace
