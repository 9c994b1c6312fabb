// Output files that are replaced atomically. The content goes to a temporary file in the same
// folder, which is synced to disk and then renamed over the target. So the target has either its
// old content or all of the new.
#ifndef SYLVORA_OUTPUT_WHOLEFILE_H
#define SYLVORA_OUTPUT_WHOLEFILE_H

#include <fstream>
#include <string>

#include "Descriptor.h"
#include "DirectOutput.h"

namespace sylvora {

// A temporary file in the folder of its target, with a unique name. The destructor removes it.
class TemporaryFile {
  public:
    TemporaryFile() = default;
    ~TemporaryFile();
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;

    // Creates the empty file; call at most once. Its mode is 0600 if `fPrivate`, otherwise 0666
    // less the umask. Returns false with errno set if it cannot be created.
    [[nodiscard]] bool CreateBeside(const std::string& target, bool fPrivate);
    // Renames the file to `target`; it is then no longer temporary. Returns false with errno set.
    [[nodiscard]] bool MoveTo(const std::string& target);
    // Removes the name. The file lives as long as this object, however the process ends, and is
    // accessible as /proc/self/fd/<Fd()>.
    void Unlink();
    bool Exists() const { return !name.empty(); }
    const std::string& Name() const { return name; }
    int Fd() const { return lock.Get(); }

  private:
    std::string name;
    Descriptor lock;  // holds a lock that marks the file as in use
};

// Usage: write to Stream(), then Commit(). Without a successful Commit the destructor removes what
// was written, and an existing target keeps its content. Temporary files that a killed process left
// in the folder are removed when the next file is opened there. A target that is not a regular file
// (/dev/null, a FIFO) is written directly. Symbolic links are followed.
//
// The new file gets the owner, group, mode and extended attributes of the old one, as far as this
// process may set them (see FileAttributes.h). If any of them, or hard links, are lost, Commit
// writes a notice to standard error.
//
// Not safe for concurrent use of one object; several threads and processes may write to the same
// folder.
class WholeFile {
  public:
    // Opens the file; check with IsOpen(). `isStopped` is that of OpenDirectly.
    explicit WholeFile(const std::string& path, const StopCondition& isStopped = {});
    WholeFile(const WholeFile&) = delete;
    WholeFile& operator=(const WholeFile&) = delete;

    // Whether the file is open. Right after a failed construction, errno has the reason.
    [[nodiscard]] bool IsOpen() const { return stream.is_open(); }
    std::ofstream& Stream() { return stream; }
    // Whether output goes directly to the target, because that is not a regular file.
    bool IsDirect() const { return !temporary.Exists(); }
    // The path of the temporary file that holds the output until Commit; "" if IsDirect().
    const std::string& Name() const { return temporary.Name(); }
    // Completes the file and replaces the target. Returns false with errno set if it could not be
    // written in full; the target then keeps its old content.
    [[nodiscard]] bool Commit();
    // The error message, one line, after a failed construction or Commit.
    std::string ErrorMessage() const;

  private:
    void Open(const StopCondition& isStopped);
    bool Replace();

    std::string path;         // as given; for messages
    std::string target;       // `path` with symbolic links resolved
    bool fExists = false;     // the target, when this was opened
    bool fOpened = false;     // was opened successfully
    int error = 0;            // errno of the failed open or commit
    TemporaryFile temporary;  // does not exist if IsDirect()
    std::ofstream stream;
};

// Checks, without changing the file, whether `path` can be written. Returns "" if so, otherwise the
// reason in a few words ("No such file or directory", "File name too long").
[[nodiscard]] std::string WhyNotWritable(const std::string& path);

}  // namespace sylvora

#endif  // SYLVORA_OUTPUT_WHOLEFILE_H
