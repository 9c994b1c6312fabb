// An output file that appears whole or not at all: it is written beside its place, synced, and
// renamed over an older file only when everything is on disk.
#ifndef SYLVORA_OUTPUT_WHOLEFILE_H
#define SYLVORA_OUTPUT_WHOLEFILE_H

#include <fstream>
#include <string>

#include "Descriptor.h"
#include "DirectOutput.h"

namespace sylvora {

// A file beside another one, with a name that nobody else uses; removed at the end.
class TemporaryFile {
  public:
    TemporaryFile() = default;
    ~TemporaryFile();
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;

    // Makes the file, empty, once; for this process's user alone if `fPrivate`, else as the umask
    // says. False (with errno) when it cannot be made.
    [[nodiscard]] bool CreateBeside(const std::string& target, bool fPrivate);
    // Puts it in the place of `target`; then there is none to remove. False with errno.
    [[nodiscard]] bool MoveTo(const std::string& target);
    // Takes the name away: the file lives as long as this object, whatever ends the process, and is
    // read and written through /proc/self/fd/<Fd()>.
    void Unlink();
    bool IsThere() const { return !name.empty(); }
    const std::string& Name() const { return name; }
    int Fd() const { return lock.Get(); }

  private:
    std::string name;
    Descriptor lock;  // held as long as the file is in use
};

// Write through Stream(), then Commit(). Without a successful Commit the destructor removes what
// was written and an older file stays as it was; what a killed process has left in the folder is
// removed by the next file that is written there. A path that leads to something other than a
// regular file (/dev/null, a FIFO) is written directly; symbolic links are followed.
//
// The new file has the owner, group, mode and extended attributes of the older one, as far as this
// process may set them (see FileAttributes.h). Where something is lost, hard links too, Commit
// writes a notice with what it is to standard error.
class WholeFile {
  public:
    // `isStopped`: see OpenDirectly.
    explicit WholeFile(const std::string& place, const StopQuestion& isStopped = {});
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
    // The line about a file that could not be opened or committed, with the reason.
    std::string Complaint() const;

  private:
    void Open(const StopQuestion& isStopped);
    bool Replace();

    std::string path;
    std::string target;       // the place, links resolved
    bool fOpened = false;     // was open once
    int error = 0;            // as in errno: why it could not be opened or committed
    TemporaryFile temporary;  // not there when written directly
    std::ofstream stream;
};

// Whether `path` could be written, without changing anything: empty if so, otherwise the reason in
// a few words ("No such file or directory", "File name too long").
[[nodiscard]] std::string WhyNotWritable(const std::string& path);

}  // namespace sylvora

#endif  // SYLVORA_OUTPUT_WHOLEFILE_H
