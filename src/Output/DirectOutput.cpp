// Output files that are written where they are; see DirectOutput.h.
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

// Opens a FIFO once it has a reader. An opening that blocks could not be ended: a signal that comes
// just before it would be missed. So it does not block, and is tried again.
Descriptor OpenWhenRead(const std::string& path, const StopQuestion& isStopped) {
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

bool OpenDirectly(const std::string& path, const StopQuestion& isStopped, std::ofstream& stream) {
    if (!IsFifo(path)) {
        stream.open(path);
        return stream.is_open();
    }
    const Descriptor fifo = OpenWhenRead(path, isStopped);
    if (fifo.Get() < 0) return false;
    // The stream opens the FIFO once more, and blocks if the reader has left already. With a reader
    // of our own for the moment it does not.
    const Descriptor ownReader(::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    stream.open(path);
    return stream.is_open();
}

// What an earlier write left in the buffer is tried again here, which tells the reason once more.
bool CloseStream(std::ofstream& stream) {
    errno = 0;
    stream.flush();
    const bool fWritten = stream.good();
    stream.close();
    if (fWritten && !stream.fail()) return true;
    if (errno == 0) errno = EIO;  // the reason is gone
    return false;
}

}  // namespace sylvora
