// Output files that are replaced atomically; see WholeFile.h.
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
#include <locale>
#include <memory>
#include <string_view>
#include <utility>

#include "../god/Report.h"
#include "FileAttributes.h"
#include "FileSystem.h"

namespace sylvora {
namespace {

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

// Removes a temporary file whose writer was killed. A living writer holds a lock on its file, so a
// file that can be locked is abandoned. A writer may lose its file between creating and locking it;
// CreateBeside notices that and creates another one. The file is opened for writing because network
// file systems do not lock others exclusively.
void RemoveIfAbandoned(const std::string& name) {
    const Descriptor left(::open(name.c_str(), O_RDWR | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    if (left.Get() < 0 || !LockFile(left.Get(), LOCK_EX | LOCK_NB)) return;
    if (IsSameFile(name, left.Get())) ::unlink(name.c_str());
}

// Removes the temporary files of killed writers from a folder.
void RemoveAbandonedFiles(const std::string& folder) {
    const std::unique_ptr<DIR, int (*)(DIR*)> entries(::opendir(folder.c_str()), ::closedir);
    while (const dirent* entry = entries ? ::readdir(entries.get()) : nullptr) {
        if (IsTemporaryName(entry->d_name)) RemoveIfAbandoned(folder + "/" + entry->d_name);
    }
}

}  // namespace

// A file system without locks still works, but abandoned files are then never removed.
bool TemporaryFile::CreateBeside(const std::string& target, bool fPrivate) {
    const mode_t mode = fPrivate ? 0600 : 0666;
    for (int numTry = 0;; ++numTry) {
        // Not derived from the target's name, which may already have the maximum length.
        std::string newName =
            Text(FolderOf(target), "/", kPrefix, ::getpid(), "-", numTry, kSuffix);
        lock = Descriptor(::open(newName.c_str(), O_CREAT | O_EXCL | O_WRONLY | O_CLOEXEC, mode));
        if (lock.Get() < 0 && errno == EEXIST) continue;
        if (lock.Get() < 0) return false;
        static_cast<void>(LockFile(lock.Get(), LOCK_EX));
        if (!IsSameFile(newName, lock.Get())) continue;
        name = std::move(newName);
        return true;
    }
}

TemporaryFile::~TemporaryFile() {
    if (Exists()) ::unlink(name.c_str());
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

WholeFile::WholeFile(const std::string& given, const StopCondition& isStopped)
    : path(given), target(ResolveLinks(given)) {
    Open(isStopped);
    fOpened = IsOpen();
    if (!fOpened) error = errno;
    stream.imbue(std::locale::classic());
}

void WholeFile::Open(const StopCondition& isStopped) {
    struct stat old = {};
    fExists = ::stat(target.c_str(), &old) == 0;
    if (!fExists && errno != ENOENT) return;  // for example a cycle of links
    if (fExists && !S_ISREG(old.st_mode)) {
        static_cast<void>(OpenDirectly(target, isStopped, stream));
        return;
    }
    if (fExists && ::access(target.c_str(), W_OK) != 0) return;
    RemoveAbandonedFiles(FolderOf(target));
    if (temporary.CreateBeside(target, fExists)) stream.open(temporary.Name());
}

bool WholeFile::Commit() {
    const bool fDone = IsOpen() && CloseStream(stream) && (!temporary.Exists() || Replace());
    if (!fDone) error = errno;
    return fDone;
}

bool WholeFile::Replace() {
    const std::string folder = FolderOf(target);  // allocated now: after MoveTo nothing may fail
    const std::string lost = CopyAttributes(target, temporary.Fd());
    if (::fsync(temporary.Fd()) != 0 || !temporary.MoveTo(target)) return false;
    SyncFolder(folder);
    if (!lost.empty()) Warn("Notice: ", target, ": not kept of the older file: ", lost, "!\n");
    return true;
}

std::string WholeFile::ErrorMessage() const {
    const char* const inFull = fOpened ? " in full: " : ": ";
    const bool fKept = fOpened && fExists && temporary.Exists();
    const char* const end = fKept ? "; the older one is kept!\n" : "!\n";
    return Text("ERROR: Can not write file ", path, inFull, std::strerror(error), end);
}

// Creating the temporary file does not test the length of the target's name, which may be longer.
// So that is checked separately.
std::string WhyNotWritable(const std::string& path) {
    const std::string target = ResolveLinks(path);
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
    if (longest >= 0 &&
        target.substr(target.rfind('/') + 1).size() > static_cast<size_t>(longest)) {
        return std::strerror(ENAMETOOLONG);
    }
    TemporaryFile temporary;
    constexpr bool kPrivate = true;
    return temporary.CreateBeside(target, kPrivate) ? "" : std::strerror(errno);
}

}  // namespace sylvora
