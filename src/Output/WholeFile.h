// An output file that appears whole or not at all: it is written beside its place, synced, and
// renamed over an older file only when everything is on disk.
#ifndef SYLVORA_OUTPUT_WHOLEFILE_H
#define SYLVORA_OUTPUT_WHOLEFILE_H

#include <fstream>
#include <string>
#include <utility>

namespace sylvora {

// An open file, closed at the end; -1 for none. Leaves errno as it is.
class Descriptor {
  public:
    explicit Descriptor(int opened = -1) : fd(opened) {}
    ~Descriptor();
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    Descriptor& operator=(Descriptor&& other) noexcept {
        std::swap(fd, other.fd);
        return *this;
    }

    int Get() const { return fd; }

  private:
    int fd;
};

// Write through Stream(), then Commit(). Without a successful Commit the destructor removes what
// was written and an older file stays as it was; what a killed process has left in the folder is
// removed by the next file that is written there. A path that leads to something other than a
// regular file (/dev/null, a FIFO) is written directly; symbolic links are followed.
class WholeFile {
  public:
    explicit WholeFile(const std::string& path);
    ~WholeFile();
    WholeFile(const WholeFile&) = delete;
    WholeFile& operator=(const WholeFile&) = delete;

    // Whether the file could be opened; errno says why not.
    [[nodiscard]] bool IsOpen() const { return stream.is_open(); }
    std::ofstream& Stream() { return stream; }
    // Puts the file in its place. False (with errno) when it could not be written in full.
    [[nodiscard]] bool Commit();

  private:
    std::string target;     // the place, links resolved
    std::string temporary;  // beside it; empty when written directly
    Descriptor lock;        // of the temporary: it is in use
    std::ofstream stream;
};

// Whether `path` could be written, without changing anything: empty if so, otherwise the reason in
// a few words ("No such file or directory").
[[nodiscard]] std::string WhyNotWritable(const std::string& path);

}  // namespace sylvora

#endif  // SYLVORA_OUTPUT_WHOLEFILE_H
