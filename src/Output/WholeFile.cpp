// Output files that appear whole or not at all; see WholeFile.h.
#include "WholeFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <locale>

namespace sylvora {
namespace {

std::string FolderOf(const std::string& path) {
    const size_t slash = path.rfind('/');
    if (slash == std::string::npos) return ".";
    return slash == 0 ? "/" : path.substr(0, slash);
}

// The path behind symbolic links, the last of which may lead to a file that is not there yet.
std::string Resolve(std::string path) {
    constexpr int kMostLinks = 40;
    for (int numLinks = 0; numLinks < kMostLinks; ++numLinks) {
        std::error_code none;
        const std::filesystem::path next = std::filesystem::read_symlink(path, none);
        if (none) break;
        path = next.is_absolute() ? next.string() : FolderOf(path) + "/" + next.string();
    }
    return path;
}

bool SyncPath(const std::string& path, int flags) {
    const int fd = ::open(path.c_str(), flags | O_CLOEXEC);
    if (fd < 0) return false;
    const bool fSynced = ::fsync(fd) == 0;
    const int error = errno;
    ::close(fd);
    errno = error;
    return fSynced;
}

// Creates an empty file beside `target` that nobody else uses; empty (with errno) on failure.
std::string CreateBeside(const std::string& target) {
    for (int numTry = 0;; ++numTry) {
        // A name of its own: the target's may be as long as names can be.
        const std::string name = FolderOf(target) + "/.sylvora-" + std::to_string(::getpid()) +
                                 "-" + std::to_string(numTry) + ".tmp";
        const int fd = ::open(name.c_str(), O_CREAT | O_EXCL | O_WRONLY | O_CLOEXEC, 0666);
        if (fd >= 0) {
            ::close(fd);
            return name;
        }
        if (errno != EEXIST) return "";
    }
}

}  // namespace

WholeFile::WholeFile(const std::string& path) : target(Resolve(path)) {
    struct stat old = {};
    const bool fExists = ::stat(target.c_str(), &old) == 0;
    if (fExists && !S_ISREG(old.st_mode)) {
        stream.open(target);
    } else if (!fExists || ::access(target.c_str(), W_OK) == 0) {
        temporary = CreateBeside(target);
        if (temporary.empty()) return;
        if (fExists) ::chmod(temporary.c_str(), old.st_mode & 07777);
        stream.open(temporary);
    }
    stream.imbue(std::locale::classic());
}

WholeFile::~WholeFile() {
    stream.close();
    if (!temporary.empty()) ::unlink(temporary.c_str());
}

bool WholeFile::Commit() {
    if (!IsOpen()) return false;
    errno = 0;
    stream.flush();
    const bool fWritten = stream.good();
    stream.close();
    if (!fWritten || stream.fail()) {
        if (errno == 0) errno = EIO;  // an earlier write failed; its reason is gone
        return false;
    }
    if (temporary.empty()) return true;
    if (!SyncPath(temporary, O_WRONLY)) return false;
    if (std::rename(temporary.c_str(), target.c_str()) != 0) return false;
    temporary.clear();
    SyncPath(FolderOf(target), O_RDONLY | O_DIRECTORY);
    return true;
}

std::string WhyNotWritable(const std::string& path) {
    const std::string target = Resolve(path);
    struct stat old = {};
    if (::stat(target.c_str(), &old) == 0) {
        if (S_ISDIR(old.st_mode)) return std::strerror(EISDIR);
        if (::access(target.c_str(), W_OK) != 0) return std::strerror(errno);
        if (!S_ISREG(old.st_mode)) return "";
    }
    const std::string trial = CreateBeside(target);
    if (trial.empty()) return std::strerror(errno);
    ::unlink(trial.c_str());
    return "";
}

}  // namespace sylvora
