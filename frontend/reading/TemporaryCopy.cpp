// Copies pipes to temporary files, which are opened again by way of /proc/self/fd.
#include "TemporaryCopy.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <system_error>

namespace sylvora::frontend {

OpenFile CopyToTemporary(std::FILE* from, size_t& numBytes, std::string& complaint) {
    OpenFile copy(std::tmpfile());
    if (!copy) {
        complaint = std::string("no temporary file: ") + std::strerror(errno);
        return nullptr;
    }
    char block[1 << 16];
    numBytes = 0;
    for (;;) {
        const size_t count = std::fread(block, 1, sizeof block, from);
        if (std::ferror(from)) {
            complaint = std::string("cannot be read: ") + std::strerror(errno);
            return nullptr;
        }
        const bool fWritten = std::fwrite(block, 1, count, copy.get()) == count;
        if (!fWritten || (count == 0 && std::fflush(copy.get()) != 0)) {
            complaint =
                std::string("cannot be copied to a temporary file: ") + std::strerror(errno);
            return nullptr;
        }
        if (count == 0) return copy;
        numBytes += count;
    }
}

RereadableFile::RereadableFile(const std::string& original) : path(original) {
    const std::string openFiles = "/proc/self/fd/";
    std::error_code unknown;
    if (!std::filesystem::is_fifo(path, unknown) || ::access(openFiles.c_str(), X_OK) != 0) return;
    const OpenFile pipe(std::fopen(path.c_str(), "re"));
    size_t numBytes = 0;
    if (!pipe || !(copy = CopyToTemporary(pipe.get(), numBytes, complaint))) return;
    path = openFiles + std::to_string(::fileno(copy.get()));
}

bool RereadableFile::CanBeRead() const {
    std::error_code unknown;
    return std::filesystem::is_regular_file(path, unknown);
}

}  // namespace sylvora::frontend
