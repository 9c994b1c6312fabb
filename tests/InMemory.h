// Files and messages in memory, for tests that create very many of them.
#ifndef SYLVORA_TESTS_INMEMORY_H
#define SYLVORA_TESTS_INMEMORY_H

#include <sys/mman.h>
#include <unistd.h>

#include <cstdlib>
#include <iostream>
#include <sstream>
#include <string>
#include <string_view>

namespace sylvora::tests {

// A file that exists only in memory, but has a path.
class MemoryFile {
  public:
    MemoryFile() : descriptor(memfd_create("sylvora", MFD_CLOEXEC)) {
        if (descriptor < 0) std::abort();
    }
    ~MemoryFile() { close(descriptor); }
    MemoryFile(const MemoryFile&) = delete;
    MemoryFile& operator=(const MemoryFile&) = delete;

    // Replaces the content and returns the path.
    std::string Fill(std::string_view content) const {
        if (ftruncate(descriptor, 0) != 0) std::abort();
        for (size_t at = 0; at < content.size();) {
            const ssize_t written = pwrite(descriptor, content.data() + at, content.size() - at,
                                           static_cast<off_t>(at));
            if (written <= 0) std::abort();
            at += static_cast<size_t>(written);
        }
        return "/proc/self/fd/" + std::to_string(descriptor);
    }

  private:
    int descriptor;
};

// Captures what is written to std::cout and std::cerr while this object exists. Cheaper than
// capturing the descriptors (Captured), but misses output that does not use the streams.
class Messages {
  public:
    Messages() : oldOut(std::cout.rdbuf(out.rdbuf())), oldErr(std::cerr.rdbuf(err.rdbuf())) {}
    ~Messages() {
        std::cout.rdbuf(oldOut);
        std::cerr.rdbuf(oldErr);
    }
    Messages(const Messages&) = delete;
    Messages& operator=(const Messages&) = delete;

    // Returns what was written to standard error since the last call.
    std::string Take() {
        const std::string text = err.str();
        err.str("");
        out.str("");
        return text;
    }

  private:
    std::ostringstream out, err;
    std::streambuf* oldOut;
    std::streambuf* oldErr;
};

}  // namespace sylvora::tests

#endif  // SYLVORA_TESTS_INMEMORY_H
