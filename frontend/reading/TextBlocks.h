// The lines of a text file, block by block, so that several threads can read them in any order.
//
// The file is cut every `blockBytes`; a block has the lines that begin in it, of which the last may
// end far beyond. Lines end with a line feed or with the file.
#ifndef SYLVORA_FRONTEND_READING_TEXTBLOCKS_H
#define SYLVORA_FRONTEND_READING_TEXTBLOCKS_H

#include <cstddef>
#include <memory>
#include <string_view>

namespace sylvora::frontend {

// Goes through the lines of one block after another. The file is read in pieces and never mapped:
// one that another program cuts short meanwhile is then an end that comes early, not a crash.
// Throws std::bad_alloc. One thread at a time; several readers can share a file.
class BlockReader {
  public:
    // Starts with block number `block` of the open file `file`, which stays the caller's.
    void Begin(int file, size_t blockBytes, size_t block);
    // Starts with the same block again.
    void Again();

    // The next line, without its line feed; valid until the next call. False at the end of the
    // block, and when the file cannot be read on.
    [[nodiscard]] bool Next(std::string_view& line);

    // What is in memory around the line.
    std::string_view Text() const { return {text.get(), numHeld}; }

    // Why the file could not be read, as in errno; 0: it could.
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
    size_t endOfBlock = 0;  // where lines begin that belong to the next block
    size_t offset = 0;      // of the first byte of `text` in the file
    size_t position = 0;    // of the next line in `text`
    size_t numHeld = 0;     // bytes of `text` that are filled
    size_t capacity = 0;
    std::unique_ptr<char, Releaser> text;
    bool fEnd = false;  // of the file
    int error = 0;
};

}  // namespace sylvora::frontend

#endif  // SYLVORA_FRONTEND_READING_TEXTBLOCKS_H
