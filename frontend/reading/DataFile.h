// A data file: lines of labelled rows (see god.h for the grammar of a line). It is read in one pass
// or two. The first pass finds the width of the rows and the number of rows in each block; it can
// also parse the rows speculatively (EarlyRows.h). The second pass (RowReading.h) parses rows into
// the caller's buffers. The text of the file is never held in memory as a whole.
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
class BlockScanner;

// True for a line of white space only, which is not a row.
bool IsBlank(std::string_view line);

// The last line needs no line feed. Lines are counted from 1, blocks and rows from 0. Not
// thread-safe during Scan; afterwards any number of threads may use the const members.
class DataFile {
  public:
    // Counts of one block of the file, or of all blocks before one.
    struct Tally {
        long numLines = 0;
        long numRows = 0;
        int largestId = 0;         // 0: no row has a feature
        long lineOfLargestId = 0;  // the first line with it, from 1
        long lineOfOddId = 0;  // the first line with an id that the library misreads (IdsOfLine)
        int error = 0;         // the errno of a failed read, which counts as the last line

        // Record the largest id of the line counted last, and that it has an odd id.
        void TakeId(int id);
        void TakeOddId();
        // Records how reading ended: an errno or 0. An unreadable line is counted as a line.
        void TakeError(int readingError);
    };

    // `parameterName` is the parameter that names the file; messages start with it.
    DataFile(std::string parameterName, std::string filePath);

    // The first pass. A pipe or other file that is not regular is first copied to a temporary file,
    // because it can be read only once. Malformed lines are reported by the second pass. Returns 0,
    // or -1 after a message.
    [[nodiscard]] int Scan(ReadingThreads& threads);
    // The same, with `scanner` in place of CountLines.
    [[nodiscard]] int Scan(ReadingThreads& threads, BlockScanner& scanner);

    // The first pass in steps, for several readers of one file, each of which scans a part of the
    // blocks. The parts have about the same number of bytes; a line belongs to the part in which it
    // begins. Every reader opens the file, scans its part, learns the counts of all parts and
    // places its own among them. With more than one reader the file must be regular. Open and Place
    // return 0, or -1 after a message, which is the same at all readers.
    [[nodiscard]] int Open(int numReaders);
    Tally ScanPart(ReadingThreads& threads, BlockScanner& scanner, int part, int numParts);
    [[nodiscard]] int Place(const std::vector<Tally>& partV, int part);

    // Writes "ERROR: ", the file, the line unless it is 0, and the complaint. Returns -1.
    int Refuse(long atLine, const std::string& complaint) const;
    // The complaint about a line that could not be read; `error` is an errno.
    static std::string Unreadable(int error);

    // Parameter name and path, for messages.
    std::string Name() const { return parameter + " " + path; }
    const std::string& Path() const { return path; }
    int Descriptor() const { return ::fileno(text.get()); }

    // The size of an opened file.
    size_t NumBytes() const { return numBytes; }

    // Results of the first pass. Blocks and rows are those of the reader's part of the file; lines
    // are counted from the begin of the file. Before(b) has the numbers of lines before block b and
    // of rows in the blocks 0 to b - 1.
    void BeginBlock(BlockReader& reader, size_t block) const;
    const Tally& Before(size_t block) const { return beforeV[block]; }
    size_t NumBlocks() const { return beforeV.size() - 1; }
    long NumRows() const { return beforeV.back().numRows; }
    // Of the whole file.
    long NumAllRows() const { return all.numRows; }
    int LargestId() const { return all.largestId; }
    long LineOfLargestId() const { return all.lineOfLargestId; }
    long LineOfOddId() const { return all.lineOfOddId; }

  private:
    int Spool();

    std::string parameter;
    std::string path;
    OpenFile text;
    size_t numBytes = 0;
    size_t blockBytes = 0;
    size_t firstBlock = 0;              // of the part
    std::vector<Tally> beforeV = {{}};  // one entry more than blocks; the last has the totals
    Tally all;                          // of all parts
};

// Processes the blocks of a file in the first pass.
class BlockScanner {
  public:
    virtual ~BlockScanner() = default;
    virtual void Begin(size_t numBlocks) = 0;
    // Reads block number `block`, at whose start the reader is, and returns its counts. Called once
    // per block, concurrently by several threads; blocks are started in ascending order.
    virtual DataFile::Tally ScanBlock(BlockReader& reader, size_t block) = 0;
};

// Counts lines, rows and ids of the block at whose start the reader is.
DataFile::Tally CountLines(BlockReader& reader);

}  // namespace sylvora::frontend

#endif  // SYLVORA_FRONTEND_READING_DATAFILE_H
