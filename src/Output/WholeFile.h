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

// A file beside another one, with a name that nobody else uses; removed at the end.
class TemporaryFile {
  public:
    TemporaryFile() = default;
    ~TemporaryFile();
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;

    // Makes the file, empty, once. False (with errno) when it cannot be made.
    [[nodiscard]] bool CreateBeside(const std::string& target);
    // Puts it in the place of `target`; then there is none to remove. False with errno.
    [[nodiscard]] bool MoveTo(const std::string& target);
    bool IsThere() const { return !name.empty(); }
    const std::string& Name() const { return name; }

  private:
    std::string name;
    Descriptor lock;  // held as long as the file is in use
};

// Write through Stream(), then Commit(). Without a successful Commit the destructor removes what
// was written and an older file stays as it was; what a killed process has left in the folder is
// removed by the next file that is written there. A path that leads to something other than a
// regular file (/dev/null, a FIFO) is written directly; symbolic links are followed.
class WholeFile {
  public:
    explicit WholeFile(const std::string& path);
    WholeFile(const WholeFile&) = delete;
    WholeFile& operator=(const WholeFile&) = delete;

    // Whether the file could be opened; errno says why not.
    [[nodiscard]] bool IsOpen() const { return stream.is_open(); }
    std::ofstream& Stream() { return stream; }
    // Whether what is written is sent at once, because the path leads to no regular file.
    bool IsDirect() const { return !temporary.IsThere(); }
    // Where what is written stands until Commit; not for a file that is written directly.
    const std::string& Name() const { return temporary.Name(); }
    // Puts the file in its place. False (with errno) when it could not be written in full.
    [[nodiscard]] bool Commit();

  private:
    std::string target;       // the place, links resolved
    TemporaryFile temporary;  // not there when written directly
    std::ofstream stream;
};

// Whether `path` could be written, without changing anything: empty if so, otherwise the reason in
// a few words ("No such file or directory").
[[nodiscard]] std::string WhyNotWritable(const std::string& path);

}  // namespace sylvora

#endif  // SYLVORA_OUTPUT_WHOLEFILE_H
