// Buffered reading of the lines that begin in a block.
#include "TextBlocks.h"

#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <new>

namespace sylvora::frontend {
namespace {

constexpr size_t kTail = 4096;  // bytes read beyond a block for its last line; most are shorter

}  // namespace

void BlockReader::Releaser::operator()(char* allocated) const {
    std::free(allocated);
}

void BlockReader::Begin(int file, size_t blockBytes, size_t block) {
    descriptor = file;
    beginOfBlock = block * blockBytes;
    endOfBlock = beginOfBlock + blockBytes;
    Restart();
}

// Reads from one byte before the block: if that byte is a line feed, a line begins with the block.
void BlockReader::Restart() {
    offset = beginOfBlock - (beginOfBlock > 0 ? 1 : 0);
    position = numHeld = 0;
    fEnd = false;
    error = 0;
    Reserve(kTail);
    if (beginOfBlock > 0 && !SkipToLine()) position = numHeld;
}

bool BlockReader::Next(std::string_view& line) {
    if (offset + position >= endOfBlock) return false;
    for (size_t searched = position;;) {
        const void* const found = std::memchr(text.get() + searched, '\n', numHeld - searched);
        if (found != nullptr || fEnd) {
            const char* const begin = text.get() + position;
            const char* const end =
                found != nullptr ? static_cast<const char*>(found) : text.get() + numHeld;
            if (found == nullptr && begin == end) return false;
            line = {begin, static_cast<size_t>(end - begin)};
            position += line.size() + (found != nullptr ? 1 : 0);
            return true;
        }
        searched = numHeld - position;  // Fill moves the line to the front of the buffer
        if (!Fill()) return false;
    }
}

// Skips the rest of a line that began in an earlier block. False if no line begins in this block.
bool BlockReader::SkipToLine() {
    while (Fill()) {
        const void* const found = std::memchr(text.get(), '\n', numHeld);
        if (found != nullptr) {
            position = static_cast<size_t>(static_cast<const char*>(found) - text.get()) + 1;
            return true;
        }
        position = numHeld;
        if (fEnd || offset + position >= endOfBlock) return false;
    }
    return false;
}

// Moves the unread bytes to the front of the buffer and reads more after them. False after an
// error.
bool BlockReader::Fill() {
    const size_t numLeft = numHeld - position;
    std::memmove(text.get(), text.get() + position, numLeft);
    offset += position;
    position = 0;
    numHeld = numLeft;
    // First reads the rest of the block and kTail; beyond the block, doubles what is held.
    const size_t next = offset + numHeld;
    const size_t wanted = kTail + (next < endOfBlock ? endOfBlock - next : numHeld);
    Reserve(numHeld + wanted);
    ssize_t count = 0;
    do {
        count = ::pread(descriptor, text.get() + numHeld, wanted, static_cast<off_t>(next));
    } while (count < 0 && errno == EINTR);
    if (count < 0) {
        error = errno;
        return false;
    }
    fEnd = count == 0;
    numHeld += static_cast<size_t>(count);
    return true;
}

void BlockReader::Reserve(size_t numBytes) {
    if (numBytes <= capacity) return;
    char* const larger = static_cast<char*>(std::realloc(text.get(), numBytes));
    if (larger == nullptr) throw std::bad_alloc();
    static_cast<void>(text.release());
    text.reset(larger);
    capacity = numBytes;
}

}  // namespace sylvora::frontend
