// Which attributes a new file keeps from the one it replaces, and that nobody gains rights.
#include "Output/FileAttributes.h"

#include <grp.h>
#include <linux/posix_acl.h>
#include <linux/posix_acl_xattr.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <sys/xattr.h>

#include <cerrno>
#include <cstring>

#include "../Support.h"
#include "Output/WholeFile.h"

namespace {

using namespace sylvora::tests;

constexpr char kAccess[] = "system.posix_acl_access";
constexpr char kDefault[] = "system.posix_acl_default";
constexpr unsigned kOther = 2000;  // user id and group id of another, ordinary user

std::string Replace(const std::string& path) {
    return Observe([&] {
               sylvora::WholeFile file(path);
               file.Stream() << "new";
               return file.Commit() ? 0 : -1;
           })
        .err;
}

std::string Notice(const std::string& path, const std::string& lost) {
    return lost.empty() ? "" : "Notice: " + path + ": not kept of the older file: " + lost + "!\n";
}

struct stat StatusOf(const std::string& path) {
    struct stat status = {};
    EXPECT_EQ(::stat(path.c_str(), &status), 0);
    return status;
}

mode_t ModeOf(const std::string& path) {
    return StatusOf(path).st_mode & 07777;
}

// The value of an extended attribute, or "" if there is none.
std::string Attribute(const std::string& path, const char* name) {
    std::string value(1000, ' ');
    const ssize_t size = ::getxattr(path.c_str(), name, value.data(), value.size());
    return value.substr(0, size < 0 ? 0 : static_cast<size_t>(size));
}

bool SetAttribute(const std::string& path, const char* name, const std::string& value) {
    return ::setxattr(path.c_str(), name, value.data(), value.size(), 0) == 0;
}

// An access control list with a named user and a named group.
std::string AccessList(int ownGroup, int namedGroup, int mask, int others) {
    const auto entry = [](int tag, int rights, unsigned id) {
        posix_acl_xattr_entry bytes = {};
        bytes.e_tag = static_cast<__le16>(tag);
        bytes.e_perm = static_cast<__le16>(rights);
        bytes.e_id = id;
        return std::string(reinterpret_cast<const char*>(&bytes), sizeof bytes);
    };
    const unsigned none = static_cast<unsigned>(ACL_UNDEFINED_ID);
    return std::string("\2\0\0\0", 4) + entry(ACL_USER_OBJ, 6, none) + entry(ACL_USER, 6, kOther) +
           entry(ACL_GROUP_OBJ, ownGroup, none) + entry(ACL_GROUP, namedGroup, 3000) +
           entry(ACL_MASK, mask, none) + entry(ACL_OTHER, others, none);
}

TEST(FileAttributes, ModeAndLinks) {
    const TempFolder folder;
    const std::string path = folder.Write("file", "old");
    for (const mode_t mode : {0600u, 0640u, 0666u, 06755u, 01777u}) {
        ASSERT_EQ(::chmod(path.c_str(), mode), 0);
        EXPECT_EQ(Replace(path), "");
        EXPECT_EQ(ModeOf(path), mode);
    }
    ASSERT_EQ(::link(path.c_str(), folder.Path("second").c_str()), 0);
    EXPECT_EQ(Replace(path), Notice(path, "hard links (1 other name of the older content)"));
    ASSERT_EQ(::link(path.c_str(), folder.Path("third").c_str()), 0);
    std::filesystem::create_symlink("file", folder.Path("symbolic"));
    ASSERT_EQ(::link(path.c_str(), folder.Path("fourth").c_str()), 0);
    EXPECT_EQ(Replace(folder.Path("symbolic")),
              Notice(path, "hard links (2 other names of the older content)"));
    EXPECT_EQ(ReadFile(folder.Path("second")), "new");
}

TEST(FileAttributes, ExtendedAttributes) {
    const TempFolder folder;
    const std::string path = folder.Write("file", "old");
    if (!SetAttribute(path, "user.note", "kept")) GTEST_SKIP() << std::strerror(errno);
    SetAttribute(path, "user.empty", "");
    SetAttribute(path, "trusted.note", "kept");  // by the superuser
    const std::string trusted = Attribute(path, "trusted.note");
    EXPECT_EQ(Replace(path), "");
    EXPECT_EQ(Attribute(path, "user.note"), "kept");
    EXPECT_EQ(::getxattr(path.c_str(), "user.empty", nullptr, 0), 0);
    EXPECT_EQ(Attribute(path, "trusted.note"), trusted);
}

// Includes a folder with a default list, which new files inherit.
TEST(FileAttributes, AccessControlLists) {
    const TempFolder folder;
    const std::string path = folder.Write("file", "old");
    const std::string list = AccessList(4, 6, 6, 0);
    if (!SetAttribute(path, kAccess, list)) GTEST_SKIP() << std::strerror(errno);
    ASSERT_EQ(ModeOf(path), 0660u);
    EXPECT_EQ(Replace(path), "");
    EXPECT_EQ(Attribute(path, kAccess), list);
    EXPECT_EQ(ModeOf(path), 0660u);
    const std::string plain = folder.Write("plain", "old");
    ASSERT_EQ(::chmod(plain.c_str(), 0644), 0);
    ASSERT_TRUE(SetAttribute(folder.Path(""), kDefault, AccessList(7, 7, 7, 7)));
    for (const std::string& each : {path, plain}) EXPECT_EQ(Replace(each), "");
    EXPECT_EQ(Attribute(path, kAccess), list);
    EXPECT_EQ(Attribute(plain, kAccess), "");
    EXPECT_EQ(ModeOf(plain), 0644u);
}

class FileOfAnother : public testing::Test {
  protected:
    void SetUp() override {
        const std::string file = folder.Write("file", "");
        if (::chown(file.c_str(), 1000, 1000) != 0)
            GTEST_SKIP() << "only the superuser can make one";
        ASSERT_EQ(::chmod(folder.Path("").c_str(), 0777), 0);
    }

    std::string Make(mode_t mode) {
        const std::string path = folder.Write("file", "old");
        EXPECT_EQ(::chown(path.c_str(), 1000, 1000), 0);
        EXPECT_EQ(::chmod(path.c_str(), mode), 0);
        return path;
    }

    // Replaces the file as an ordinary user, in a child process, and returns its notice.
    std::string ReplaceAsOther(const std::string& path) {
        const std::string said = folder.Write("said", "");
        const pid_t child = ::fork();
        if (child == 0) {
            std::ofstream answer(said);
            if (::setgroups(0, nullptr) != 0 || ::setgid(kOther) != 0 || ::setuid(kOther) != 0)
                ::_exit(1);
            answer << Replace(path) << std::flush;
            ::_exit(answer.good() ? 0 : 1);
        }
        int status = -1;
        ::waitpid(child, &status, 0);
        EXPECT_EQ(status, 0);
        EXPECT_EQ(ReadFile(path), "new");
        return ReadFile(said);
    }

    const TempFolder folder;
};

TEST_F(FileOfAnother, KeepsItsOwnerWhereThatIsAllowed) {
    for (const mode_t mode : {0600u, 06775u}) {
        const std::string path = Make(mode);
        EXPECT_EQ(Replace(path), "");
        EXPECT_EQ(StatusOf(path).st_uid, 1000u);
        EXPECT_EQ(StatusOf(path).st_gid, 1000u);
        EXPECT_EQ(ModeOf(path), mode);
    }
}

TEST_F(FileOfAnother, GivesNobodyMoreThanBefore) {
    const std::pair<mode_t, mode_t> cases[] = {
        {0666, 0666}, {0676, 0666}, {0606, 0600}, {0657, 0655}, {07777, 01777}};
    for (const auto& [before, after] : cases) {
        const std::string path = Make(before);
        EXPECT_EQ(ReplaceAsOther(path),
                  Notice(path, before == after ? "owner, group" : "owner, group, mode"));
        EXPECT_EQ(StatusOf(path).st_uid, kOther);
        EXPECT_EQ(ModeOf(path), after);
    }
}

TEST_F(FileOfAnother, NarrowsItsAccessControlList) {
    struct Case {
        std::string before, after;
        mode_t mode;
        std::string lost;
    };
    const std::string list = ", access control list";
    const Case cases[] = {
        {AccessList(7, 7, 7, 6), AccessList(6, 7, 7, 6), 0676, list},
        {AccessList(7, 5, 7, 6), AccessList(4, 5, 7, 4), 0674, list + ", mode"},
        {AccessList(6, 6, 6, 6), AccessList(6, 6, 6, 6), 0666, ""},
    };
    for (const Case& each : cases) {
        const std::string path = Make(0666);
        if (!SetAttribute(path, kAccess, each.before)) GTEST_SKIP() << std::strerror(errno);
        EXPECT_EQ(ReplaceAsOther(path), Notice(path, "owner, group" + each.lost));
        EXPECT_EQ(Attribute(path, kAccess), each.after);
        EXPECT_EQ(ModeOf(path), each.mode);
    }
}

}  // namespace
