// Files that can be read only once, kept so that they can be read again.
#ifndef SYLVORA_FRONTEND_READING_TEMPORARYCOPY_H
#define SYLVORA_FRONTEND_READING_TEMPORARYCOPY_H

#include <cstddef>
#include <cstdio>
#include <memory>
#include <string>

namespace sylvora::frontend {

struct FileCloser {
    void operator()(std::FILE* opened) const { std::fclose(opened); }
};
typedef std::unique_ptr<std::FILE, FileCloser> OpenFile;

// Copies what is left of `from` to a temporary file without a name, and counts the bytes. Null with
// a complaint where that fails.
OpenFile CopyToTemporary(std::FILE* from, size_t& numBytes, std::string& complaint);

// A small file that the library reads and the command then looks into. A pipe is copied first.
class ReadTwice {
  public:
    // What cannot be opened is left to the library to complain of, or to do without.
    explicit ReadTwice(const std::string& path);

    // Why a pipe could not be copied; empty: it could.
    const std::string& Complaint() const { return complaint; }
    // Where the text can be read.
    const std::string& Path() const { return path; }
    // False where it can be read only once: a terminal, or a pipe without a /proc to find a copy
    // in.
    bool CanBeRead() const;

  private:
    std::string path;
    std::string complaint;
    OpenFile copy;
};

}  // namespace sylvora::frontend

#endif  // SYLVORA_FRONTEND_READING_TEMPORARYCOPY_H
