// Names and locks of files; see FileSystem.h.
#include "FileSystem.h"

#include <sys/file.h>
#include <sys/stat.h>

#include <cerrno>
#include <filesystem>

namespace sylvora {

std::string FolderOf(const std::string& path) {
    const size_t slash = path.rfind('/');
    if (slash == std::string::npos) return ".";
    return slash == 0 ? "/" : path.substr(0, slash);
}

std::string ResolveLinks(std::string path) {
    constexpr int kMaxLinks = 40;
    for (int numLinks = 0; numLinks < kMaxLinks; ++numLinks) {
        struct stat file = {};
        if (::stat(path.c_str(), &file) == 0 && !S_ISREG(file.st_mode)) break;
        std::error_code none;
        const std::filesystem::path next = std::filesystem::read_symlink(path, none);
        if (none) break;
        path = next.is_absolute() ? next.string() : FolderOf(path) + "/" + next.string();
    }
    return path;
}

bool IsSameFile(const std::string& name, int fd) {
    struct stat opened = {};
    struct stat named = {};
    return ::fstat(fd, &opened) == 0 && ::lstat(name.c_str(), &named) == 0 &&
           opened.st_dev == named.st_dev && opened.st_ino == named.st_ino;
}

bool LockFile(int fd, int operation) {
    int status = 0;
    do status = ::flock(fd, operation);
    while (status != 0 && errno == EINTR);
    return status == 0;
}

}  // namespace sylvora
