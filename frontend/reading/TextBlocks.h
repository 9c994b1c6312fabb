// Reads the lines of a text file block by block, so that several threads can read blocks in any
// order.
//
// The file is divided every `blockBytes` bytes. A line belongs to the block in which it begins; the
// last line of a block may end far beyond it. A line ends with a line feed or at the end of the
// file.
#ifndef SYLVORA_FRONTEND_READING_TEXTBLOCKS_H
#define SYLVORA_FRONTEND_READING_TEXTBLOCKS_H

#include <cstddef>
#include <memory>
#include <string_view>

namespace sylvora::frontend {

// Iterates over the lines of a block, then of another. The file is read, not mapped: if another
// program truncates it meanwhile, the reader sees an early end of file instead of a crash. May
// throw std::bad_alloc. A reader is not thread-safe, but several readers can share a descriptor.
class BlockReader {
  public:
    // Starts reading block number `block` of the descriptor `file`, which the caller keeps open.
    void Begin(int file, size_t blockBytes, size_t block);
    // Starts the same block again.
    void Restart();

    // Gets the next line, without its line feed; `line` is valid until the next call. False at the
    // end of the block and after a read error.
    [[nodiscard]] bool Next(std::string_view& line);

    // All of the buffer that is filled, around the line: parsers may read ahead in it.
    std::string_view Text() const { return {text.get(), numHeld}; }

    // The errno of a failed read; 0 if none failed.
    int Error() const { return error; }

  private:
    struct Releaser {
        void operator()(char* allocated) const;
    };

    bool Fill();
    bool SkipToLine();
    void Reserve(size_t numBytes);

    int descriptor = -1;
    size_t beginOfBlock = 0;
    size_t endOfBlock = 0;  // a line that begins here belongs to the next block
    size_t offset = 0;      // file offset of the first byte of `text`
    size_t position = 0;    // of the next line, in `text`
    size_t numHeld = 0;     // bytes of `text` that are filled
    size_t capacity = 0;    // bytes of `text` that are allocated
    std::unique_ptr<char, Releaser> text;
    bool fEnd = false;  // the end of the file is in `text`
    int error = 0;
};

}  // namespace sylvora::frontend

#endif  // SYLVORA_FRONTEND_READING_TEXTBLOCKS_H
