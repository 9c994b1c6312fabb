// Copies the attributes of a file that is replaced; see FileAttributes.h.
#include "FileAttributes.h"

#include <linux/posix_acl.h>
#include <linux/posix_acl_xattr.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string_view>

#include "../god/Report.h"

namespace sylvora {
namespace {

constexpr mode_t kModeBits = 07777;
constexpr char kAccessList[] = "system.posix_acl_access";

// Reads a value whose size the kernel reports in a first call. Tries again if it has grown in
// between (ERANGE).
template <typename Read>
bool ReadSized(Read read, std::string& bytes) {
    for (;;) {
        const ssize_t size = read(nullptr, 0);
        if (size < 0) return false;
        bytes.resize(static_cast<size_t>(size));
        if (size == 0) return true;
        const ssize_t numRead = read(bytes.data(), bytes.size());
        if (numRead < 0 && errno == ERANGE) continue;
        if (numRead >= 0) bytes.resize(static_cast<size_t>(numRead));
        return numRead >= 0;
    }
}

bool StartsWith(std::string_view name, std::string_view prefix) {
    return name.substr(0, prefix.size()) == prefix;
}

// Access control lists: those of POSIX and those of network file systems.
bool IsAccessList(std::string_view name) {
    return StartsWith(name, "system.");
}

// Whether an attribute describes the old content, such as a signature, and must not be copied.
bool BelongsToContent(std::string_view name) {
    return StartsWith(name, "security.") && name != "security.selinux" &&
           name != "security.SMACK64";
}

// Calls visit(entry) for each entry of an access control list in the kernel's format: a header,
// then the entries. `visit` may change the entry.
template <typename Visit>
void ForEachEntry(std::string& list, Visit visit) {
    posix_acl_xattr_entry entry = {};
    for (size_t at = sizeof(posix_acl_xattr_header); at + sizeof entry <= list.size();
         at += sizeof entry) {
        std::memcpy(&entry, &list[at], sizeof entry);
        visit(entry);
        std::memcpy(&list[at], &entry, sizeof entry);
    }
}

// Restricts the file's group and others to the rights that all entries of groups and others have in
// common.
void Restrict(std::string& list) {
    constexpr unsigned kOwn = ACL_GROUP_OBJ | ACL_OTHER;
    unsigned rights = S_IRWXO;
    ForEachEntry(list, [&rights](const posix_acl_xattr_entry& entry) {
        if ((entry.e_tag & (kOwn | ACL_GROUP | ACL_MASK)) != 0) rights &= entry.e_perm;
    });
    ForEachEntry(list, [rights](posix_acl_xattr_entry& entry) {
        if ((entry.e_tag & kOwn) != 0) entry.e_perm = static_cast<decltype(entry.e_perm)>(rights);
    });
}

// One copy of the attributes of `from` to the descriptor `to`; both are borrowed.
class AttributeCopy {
  public:
    AttributeCopy(const std::string& path, int fd) : from(path), to(fd) {}

    std::string Run() {
        struct stat old = {};
        // No old file: nothing to keep.
        if (::lstat(from.c_str(), &old) != 0 || ::fstat(to, &now) != 0) return "";
        const auto list = [this](char* at, size_t size) {
            return ::llistxattr(from.c_str(), at, size);
        };
        if (!ReadSized(list, names)) names.clear();  // the file system has no extended attributes
        // The order matters. Only the owner may set extended attributes, so they come before the
        // owner. Changing the owner clears mode bits, so the mode comes last.
        const bool fOthers = CopyWhere([](std::string_view n) { return !IsAccessList(n); });
        CopyOwner(old);
        const bool fOtherLists = CopyOtherLists();
        CopyAccessList();
        Note(fSameList && fOtherLists, "access control list");
        CopyMode(old);
        Note(fOthers, "extended attributes");
        NoteLinks(old);
        return lost;
    }

  private:
    void Note(bool fKept, std::string_view what) {
        if (fKept) return;
        if (!lost.empty()) lost += ", ";
        lost += what;
    }

    void NoteLinks(const struct stat& old) {
        if (old.st_nlink <= 1) return;
        const auto numOther = old.st_nlink - 1;
        Note(false, Text("hard links (", numOther, numOther == 1 ? " other name" : " other names",
                         " of the older content)"));
    }

    // An attribute that already has the value is not set again: setting it might be forbidden.
    bool CopyOne(const char* name) const {
        std::string value, present;
        const auto read = [&](char* at, size_t size) {
            return ::lgetxattr(from.c_str(), name, at, size);
        };
        if (!ReadSized(read, value)) return errno == ENODATA;
        const auto readPresent = [&](char* at, size_t size) {
            return ::fgetxattr(to, name, at, size);
        };
        if (ReadSized(readPresent, present) && present == value) return true;
        return Set(name, value);
    }

    bool Set(const char* name, const std::string& value) const {
        return ::fsetxattr(to, name, value.data(), value.size(), 0) == 0;
    }

    template <typename Condition>
    bool CopyWhere(Condition isWanted) const {
        bool fAll = true;
        for (size_t at = 0; at < names.size(); at += std::string_view(&names[at]).size() + 1) {
            const std::string_view name(&names[at]);
            if (isWanted(name) && !BelongsToContent(name)) fAll = CopyOne(name.data()) && fAll;
        }
        return fAll;
    }

    // The group comes first: after giving the file away, this process could not change its group.
    void CopyOwner(const struct stat& old) {
        const uid_t noUser = static_cast<uid_t>(-1);
        const gid_t noGroup = static_cast<gid_t>(-1);
        fGroup = now.st_gid == old.st_gid || ::fchown(to, noUser, old.st_gid) == 0;
        fOwner = now.st_uid == old.st_uid || ::fchown(to, old.st_uid, noGroup) == 0;
        Note(fOwner, "owner");
        Note(fGroup, "group");
    }

    // If the old file has no list, a list that the new file inherited from its folder is removed.
    void CopyAccessList() {
        const auto read = [this](char* at, size_t size) {
            return ::lgetxattr(from.c_str(), kAccessList, at, size);
        };
        std::string list;
        fList = ReadSized(read, list) && !list.empty();
        if (fList) {
            const std::string old = list;
            if (!fGroup) Restrict(list);
            fListCorrect = Set(kAccessList, list);
            fSameList = fListCorrect && list == old;
        } else {
            fListCorrect = fSameList = ::fgetxattr(to, kAccessList, nullptr, 0) <= 0 ||
                                       ::fremovexattr(to, kAccessList) == 0;
        }
    }

    // In these lists, the mode that is set last determines the entries of owner, group and others.
    bool CopyOtherLists() const {
        return CopyWhere(
            [](std::string_view name) { return IsAccessList(name) && name != kAccessList; });
    }

    // If the file has an access control list, the group bits of its mode are the mask of the list.
    void CopyMode(const struct stat& old) {
        const bool fKnown = ::fstat(to, &now) == 0;
        mode_t mode = old.st_mode & kModeBits;
        if (!fOwner) mode &= ~mode_t{S_ISUID};
        if (!fGroup) {
            const mode_t both = (mode >> 3) & mode & S_IRWXO;
            const mode_t narrow = fList ? now.st_mode & (S_IRWXG | S_IRWXO) : both << 3 | both;
            mode = (mode & (S_ISUID | S_ISVTX | S_IRWXU)) | narrow;
        }
        if (!fListCorrect) mode &= ~mode_t{S_IRWXG | S_IRWXO};
        const bool fSet = (fKnown && (now.st_mode & kModeBits) == mode) || ::fchmod(to, mode) == 0;
        Note(fSet && mode == (old.st_mode & kModeBits), "mode");
    }

    const std::string& from;
    const int to;
    struct stat now = {};       // status of the new file
    std::string names;          // the old file's attribute names, each followed by a NUL
    bool fOwner = false;        // the owner was kept
    bool fGroup = false;        // the group was kept
    bool fList = false;         // the old file has an access control list
    bool fListCorrect = false;  // the new file has the same list, a stricter one, or like the old
                                // one none
    bool fSameList = false;     // the new file has the same list, or like the old one none
    std::string lost;           // what was not kept, separated by ", "
};

}  // namespace

std::string CopyAttributes(const std::string& path, int fd) {
    return AttributeCopy(path, fd).Run();
}

}  // namespace sylvora
