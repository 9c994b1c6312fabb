// The right to use a file; see UseLock.h.
#include "UseLock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

#include "../god/Report.h"
#include "FileSystem.h"

namespace sylvora {

// The holder before may remove the empty file between its opening and its locking here; then
// another one is made.
std::string UseLock::Take(const std::string& path) {
    const std::string target = ResolveLinks(path);
    std::string wanted =
        FolderOf(target) + "/.sylvora-" + target.substr(target.rfind('/') + 1) + ".lock";
    constexpr int kFlags = O_CREAT | O_RDWR | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC;
    while (true) {
        Descriptor opened(::open(wanted.c_str(), kFlags, 0666));
        if (opened.Get() < 0) return Text("cannot be locked: ", wanted, ": ", std::strerror(errno));
        if (!LockFile(opened.Get(), LOCK_EX | LOCK_NB) && errno == EWOULDBLOCK) {
            return "is in use by another training; wait for its end, or name another file";
        }
        if (!IsSameFile(wanted, opened.Get())) continue;
        lock = std::move(opened);
        name = std::move(wanted);
        return "";
    }
}

// Removed while it is still locked, so that nobody else has it.
UseLock::~UseLock() {
    if (!name.empty()) ::unlink(name.c_str());
}

}  // namespace sylvora
