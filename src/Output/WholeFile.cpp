// Output files that appear whole or not at all; see WholeFile.h.
#include "WholeFile.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <locale>
#include <memory>
#include <string_view>
#include <utility>

#include "../god/Report.h"
#include "FileAttributes.h"

namespace sylvora {
namespace {

std::string FolderOf(const std::string& path) {
    const size_t slash = path.rfind('/');
    if (slash == std::string::npos) return ".";
    return slash == 0 ? "/" : path.substr(0, slash);
}

std::string NameOf(const std::string& path) {
    return path.substr(path.rfind('/') + 1);
}

// The path behind symbolic links, the last of which may lead to a file that is not there yet. Links
// to what is no regular file stay: those to a pipe, as /dev/stdout can be, lead to no path.
std::string Resolve(std::string path) {
    constexpr int kMostLinks = 40;
    for (int numLinks = 0; numLinks < kMostLinks; ++numLinks) {
        struct stat file = {};
        if (::stat(path.c_str(), &file) == 0 && !S_ISREG(file.st_mode)) break;
        std::error_code none;
        const std::filesystem::path next = std::filesystem::read_symlink(path, none);
        if (none) break;
        path = next.is_absolute() ? next.string() : FolderOf(path) + "/" + next.string();
    }
    return path;
}

void SyncFolder(const std::string& folder) {
    const Descriptor opened(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (opened.Get() >= 0) ::fsync(opened.Get());
}

constexpr std::string_view kPrefix = ".sylvora-";
constexpr std::string_view kSuffix = ".tmp";

bool IsTemporaryName(std::string_view name) {
    if (name.size() <= kPrefix.size() + kSuffix.size()) return false;
    if (name.substr(0, kPrefix.size()) != kPrefix) return false;
    if (name.substr(name.size() - kSuffix.size()) != kSuffix) return false;
    name.remove_prefix(kPrefix.size());
    name.remove_suffix(kSuffix.size());
    return std::all_of(name.begin(), name.end(),
                       [](char c) { return c == '-' || (c >= '0' && c <= '9'); });
}

// Whether `name` still leads to the file that is open as `fd`.
bool IsAt(const std::string& name, int fd) {
    struct stat opened = {};
    struct stat named = {};
    return ::fstat(fd, &opened) == 0 && ::lstat(name.c_str(), &named) == 0 &&
           opened.st_dev == named.st_dev && opened.st_ino == named.st_ino;
}

bool Lock(int fd, int operation) {
    int status = 0;
    do status = ::flock(fd, operation);
    while (status != 0 && errno == EINTR);
    return status == 0;
}

// A file is locked for as long as its writer lives, so what can be locked was left by one that was
// killed. A writer that has made its file but not locked it yet makes another one. Network file
// systems lock only what is open for writing.
void RemoveIfLeft(const std::string& name) {
    const Descriptor left(::open(name.c_str(), O_RDWR | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    if (left.Get() < 0 || !Lock(left.Get(), LOCK_EX | LOCK_NB)) return;
    if (IsAt(name, left.Get())) ::unlink(name.c_str());
}

// Removes what killed writers have left in a folder.
void Sweep(const std::string& folder) {
    const std::unique_ptr<DIR, int (*)(DIR*)> entries(::opendir(folder.c_str()), ::closedir);
    while (const dirent* entry = entries ? ::readdir(entries.get()) : nullptr) {
        if (IsTemporaryName(entry->d_name)) RemoveIfLeft(folder + "/" + entry->d_name);
    }
}

}  // namespace

// Where the file system knows no locks, what is left is left for good.
bool TemporaryFile::CreateBeside(const std::string& target, bool fPrivate) {
    const mode_t mode = fPrivate ? 0600 : 0666;
    for (int numTry = 0;; ++numTry) {
        // A name of its own: the target's may be as long as names can be.
        std::string trial = Text(FolderOf(target), "/", kPrefix, ::getpid(), "-", numTry, kSuffix);
        lock = Descriptor(::open(trial.c_str(), O_CREAT | O_EXCL | O_WRONLY | O_CLOEXEC, mode));
        if (lock.Get() < 0 && errno == EEXIST) continue;
        if (lock.Get() < 0) return false;
        static_cast<void>(Lock(lock.Get(), LOCK_EX));
        if (!IsAt(trial, lock.Get())) continue;
        name = std::move(trial);
        return true;
    }
}

TemporaryFile::~TemporaryFile() {
    if (IsThere()) ::unlink(name.c_str());
}

void TemporaryFile::Unlink() {
    ::unlink(name.c_str());
    name.clear();
}

bool TemporaryFile::MoveTo(const std::string& target) {
    if (std::rename(name.c_str(), target.c_str()) != 0) return false;
    name.clear();
    return true;
}

WholeFile::WholeFile(const std::string& place, const StopQuestion& isStopped)
    : path(place), target(Resolve(place)) {
    Open(isStopped);
    fOpened = IsOpen();
    if (!fOpened) error = errno;
    stream.imbue(std::locale::classic());
}

void WholeFile::Open(const StopQuestion& isStopped) {
    struct stat old = {};
    const bool fExists = ::stat(target.c_str(), &old) == 0;
    if (!fExists && errno != ENOENT) return;  // a circle of links, say
    if (fExists && !S_ISREG(old.st_mode)) {
        static_cast<void>(OpenDirectly(target, isStopped, stream));
        return;
    }
    if (fExists && ::access(target.c_str(), W_OK) != 0) return;
    Sweep(FolderOf(target));
    if (temporary.CreateBeside(target, fExists)) stream.open(temporary.Name());
}

bool WholeFile::Commit() {
    const bool fDone = IsOpen() && CloseStream(stream) && (!temporary.IsThere() || Replace());
    if (!fDone) error = errno;
    return fDone;
}

bool WholeFile::Replace() {
    const std::string folder = FolderOf(target);  // nothing may fail once the file is in its place
    const std::string lost = CopyAttributes(target, temporary.Fd());
    if (::fsync(temporary.Fd()) != 0 || !temporary.MoveTo(target)) return false;
    SyncFolder(folder);
    if (!lost.empty()) Warn("Notice: ", target, ": not kept of the older file: ", lost, "!\n");
    return true;
}

std::string WholeFile::Complaint() const {
    const char* const inFull = fOpened ? " in full: " : ": ";
    const char* const end = fOpened && temporary.IsThere() ? "; the older one is kept!\n" : "!\n";
    return Text("ERROR: Can not write file ", path, inFull, std::strerror(error), end);
}

// The temporary file has a shorter name, so the target's is not tried by making that one.
std::string WhyNotWritable(const std::string& path) {
    const std::string target = Resolve(path);
    const std::string folder = FolderOf(target);
    struct stat old = {};
    if (::stat(target.c_str(), &old) == 0) {
        if (S_ISDIR(old.st_mode)) return std::strerror(EISDIR);
        if (S_ISSOCK(old.st_mode)) return std::strerror(ENXIO);
        if (::access(target.c_str(), W_OK) != 0) return std::strerror(errno);
        if (!S_ISREG(old.st_mode)) return "";
    } else if (errno != ENOENT) {
        return std::strerror(errno);
    }
    const long longest = ::pathconf(folder.c_str(), _PC_NAME_MAX);
    if (longest >= 0 && NameOf(target).size() > static_cast<size_t>(longest)) {
        return std::strerror(ENAMETOOLONG);
    }
    TemporaryFile trial;
    constexpr bool kPrivate = true;
    return trial.CreateBeside(target, kPrivate) ? "" : std::strerror(errno);
}

}  // namespace sylvora
