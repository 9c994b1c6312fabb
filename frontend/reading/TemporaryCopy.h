// Temporary copies of pipes and other files that can be read only once.
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

// Copies the rest of `from` to an unnamed temporary file and sets `numBytes`. Returns null and sets
// `complaint` on failure.
OpenFile CopyToTemporary(std::FILE* from, size_t& numBytes, std::string& complaint);

// A small file that both the library and the command read. A pipe is copied to a temporary file,
// which lives as long as this object.
class RereadableFile {
  public:
    // A file that cannot be opened is not an error here; the library reports or ignores it.
    explicit RereadableFile(const std::string& path);

    // Why a pipe could not be copied; empty if there was no error.
    const std::string& Complaint() const { return complaint; }
    // The path to read from: the given one, or that of the copy.
    const std::string& Path() const { return path; }
    // False if the file cannot be read a second time: a terminal, or a pipe if /proc is missing, so
    // that a copy would have no path.
    bool CanBeRead() const;

  private:
    std::string path;
    std::string complaint;
    OpenFile copy;
};

}  // namespace sylvora::frontend

#endif  // SYLVORA_FRONTEND_READING_TEMPORARYCOPY_H
