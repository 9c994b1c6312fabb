// Output files that are written in place; see DirectOutput.h.
#include "DirectOutput.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <ctime>

#include "Descriptor.h"

namespace sylvora {
namespace {

bool IsFifo(const std::string& path) {
    struct stat file = {};
    return ::stat(path.c_str(), &file) == 0 && S_ISFIFO(file.st_mode);
}

void SleepShortly() {
    constexpr timespec kBetweenTries = {0, 50'000'000};
    ::nanosleep(&kBetweenTries, nullptr);
}

// Opens a FIFO once it has a reader. Polls instead of a blocking open, which could not be ended
// reliably: a signal that arrives just before the call would not interrupt it.
Descriptor OpenWhenRead(const std::string& path, const StopCondition& isStopped) {
    for (;;) {
        Descriptor fifo(::open(path.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC));
        if (fifo.Get() >= 0 || errno != ENXIO || !IsFifo(path)) return fifo;
        if (isStopped && isStopped()) {
            errno = ECANCELED;
            return Descriptor();
        }
        SleepShortly();
    }
}

}  // namespace

bool OpenDirectly(const std::string& path, const StopCondition& isStopped, std::ofstream& stream) {
    if (!IsFifo(path)) {
        stream.open(path);
        return stream.is_open();
    }
    const Descriptor fifo = OpenWhenRead(path, isStopped);
    if (fifo.Get() < 0) return false;
    // The stream opens the FIFO again, which would block if the reader has left meanwhile. A
    // temporary reader of our own prevents that.
    const Descriptor ownReader(::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    stream.open(path);
    return stream.is_open();
}

// If an earlier write failed, its data is still in the buffer. Flushing tries again and so sets
// errno to the reason once more.
bool CloseStream(std::ofstream& stream) {
    errno = 0;
    stream.flush();
    const bool fWritten = stream.good();
    stream.close();
    if (fWritten && !stream.fail()) return true;
    if (errno == 0) errno = EIO;  // the reason is no longer known
    return false;
}

}  // namespace sylvora
