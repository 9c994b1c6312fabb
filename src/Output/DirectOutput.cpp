// Output files that are written where they are; see DirectOutput.h.
#include "DirectOutput.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <ext/stdio_filebuf.h>

#include <cerrno>
#include <ctime>
#include <utility>

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

// An opening that blocks could not be ended: a signal that comes just before it would be missed. So
// it does not block, and is tried again.
Descriptor OpenFifo(const std::string& path, const StopQuestion& isStopped) {
    for (;;) {
        Descriptor fifo(::open(path.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC));
        const bool fUnread = fifo.Get() < 0 && errno == ENXIO && IsFifo(path);
        if (fUnread && (!isStopped || !isStopped())) {
            SleepShortly();
            continue;
        }
        if (fUnread) errno = ECANCELED;
        if (fifo.Get() >= 0) ::fcntl(fifo.Get(), F_SETFL, 0);  // writes block
        return fifo;
    }
}

// The stream takes the descriptor over. The standard streams open names only.
bool Attach(Descriptor file, std::ofstream& stream) {
    if (file.Get() < 0) return false;
    __gnu_cxx::stdio_filebuf<char> buffer(file.Get(), std::ios::out);
    if (!buffer.is_open()) return false;
    file.Release();
    *stream.rdbuf() = std::move(buffer);
    return true;
}

}  // namespace

bool OpenDirectly(const std::string& path, const StopQuestion& isStopped, std::ofstream& stream) {
    if (IsFifo(path)) return Attach(OpenFifo(path, isStopped), stream);
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
