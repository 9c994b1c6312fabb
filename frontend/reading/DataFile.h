// A data file: lines of labelled rows (see god.h for the grammar of a line). It is read once or
// twice. The first pass finds out how wide the rows are and where in the file they stand; whoever
// wants all of them has them parsed on the way (EarlyRows.h). The second, in RowReading.h, parses
// rows straight into their places. The text is never in memory beside the rows.
#ifndef SYLVORA_FRONTEND_READING_DATAFILE_H
#define SYLVORA_FRONTEND_READING_DATAFILE_H

#include <cstddef>
#include <cstdio>
#include <string>
#include <string_view>
#include <vector>

#include "ReadingThreads.h"
#include "TemporaryCopy.h"

namespace sylvora::frontend {

class BlockReader;
class BlockLook;

// Whether a line is no row.
bool IsBlank(std::string_view line);

// Lines that hold nothing but white space are no rows; the last line needs no line feed.
class DataFile {
  public:
    // What is found in a block of the file, or in all before one.
    struct Tally {
        long numLines = 0;
        long numRows = 0;
        int largestId = 0;         // 0: no row has a feature
        long lineOfLargestId = 0;  // the first of them, from 1
        long lineOfOddId = 0;      // the first with an id that is read as another (IdsOfLine)
        int error = 0;             // as in errno: why the last line of these could not be read

        // Notes the largest id of the line counted last, and that it has an odd one.
        void TakeId(int id);
        void TakeOddId();
        // Notes how the reading ended, as in errno: what could not be read is a line too.
        void TakeError(int readingError);
    };

    // `parameterName` is the parameter that names the file, for messages.
    DataFile(std::string parameterName, std::string filePath);

    // The first pass. What is no regular file (a pipe) is copied to a temporary one, since it can
    // be read only once. Wrong lines are left to the second pass. Returns 0, or -1 after a message.
    [[nodiscard]] int Scan(ReadingThreads& threads);
    // The same with more than a count of what is in the blocks.
    [[nodiscard]] int Scan(ReadingThreads& threads, BlockLook& look);

    // Writes "ERROR: ", the place and the complaint, and returns -1; line 0 stands for the file.
    int Refuse(long atLine, const std::string& complaint) const;
    // The complaint about a line that could not be read, for an error as in errno.
    static std::string Unreadable(int error);

    // Parameter and path, for messages.
    std::string Name() const { return parameter + " " + path; }
    const std::string& Path() const { return path; }
    int Descriptor() const { return ::fileno(text.get()); }

    // What the first pass found.
    size_t BlockBytes() const { return blockBytes; }
    const Tally& Before(size_t block) const { return beforeV[block]; }  // the last: all blocks
    size_t NumBlocks() const { return beforeV.size() - 1; }
    long NumRows() const { return beforeV.back().numRows; }
    int LargestId() const { return beforeV.back().largestId; }
    long LineOfLargestId() const { return beforeV.back().lineOfLargestId; }
    long LineOfOddId() const { return beforeV.back().lineOfOddId; }

  private:
    int OpenText();
    int Spool();

    std::string parameter;
    std::string path;
    OpenFile text;
    size_t numBytes = 0;
    size_t blockBytes = 0;
    std::vector<Tally> beforeV = {{}};
};

// What the first pass does with the blocks of a file.
class BlockLook {
  public:
    virtual ~BlockLook() = default;
    virtual void Begin(size_t numBlocks) = 0;
    // Tells what is in block number `block`, at which the reader stands. Each is asked for once, by
    // any thread; those before it were asked for earlier.
    virtual DataFile::Tally Look(BlockReader& reader, size_t block) = 0;
};

// Counts what is in the block that the reader stands at.
DataFile::Tally CountLines(BlockReader& reader);

}  // namespace sylvora::frontend

#endif  // SYLVORA_FRONTEND_READING_DATAFILE_H
