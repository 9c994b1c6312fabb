// The first pass over a data file: opens it, counts each block in parallel and sums the counts.
#include "DataFile.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

#include "TextBlocks.h"
#include "god/DataLines.h"
#include "god/Report.h"

namespace sylvora::frontend {
namespace {

class LineCounter : public BlockScanner {
  public:
    void Begin(size_t) override {}
    DataFile::Tally ScanBlock(BlockReader& reader, size_t) override { return CountLines(reader); }
};

// The counts of `before` followed by those of `next`, with line numbers of `next` moved behind.
DataFile::Tally Sum(const DataFile::Tally& before, const DataFile::Tally& next) {
    DataFile::Tally sum = before;
    sum.numLines += next.numLines;
    sum.numRows += next.numRows;
    sum.error = next.error;
    if (next.largestId > before.largestId) {
        sum.largestId = next.largestId;
        sum.lineOfLargestId = before.numLines + next.lineOfLargestId;
    }
    if (before.lineOfOddId == 0 && next.lineOfOddId > 0) {
        sum.lineOfOddId = before.numLines + next.lineOfOddId;
    }
    return sum;
}

}  // namespace

bool IsBlank(std::string_view line) {
    return line.find_first_not_of(" \t\n\v\f\r") == std::string_view::npos;
}

DataFile::Tally CountLines(BlockReader& reader) {
    DataFile::Tally tally;
    std::string_view line;
    while (reader.Next(line)) {
        ++tally.numLines;
        if (IsBlank(line)) continue;
        ++tally.numRows;
        if (!MayHaveLargerId(line, tally.largestId)) continue;
        const LineIds ids = IdsOfLine(line);
        tally.TakeId(ids.largest);
        if (!ids.odd.empty()) tally.TakeOddId();
    }
    tally.TakeError(reader.Error());
    return tally;
}

void DataFile::Tally::TakeId(int id) {
    if (id <= largestId) return;
    largestId = id;
    lineOfLargestId = numLines;
}

void DataFile::Tally::TakeOddId() {
    if (lineOfOddId == 0) lineOfOddId = numLines;
}

void DataFile::Tally::TakeError(int readingError) {
    error = readingError;
    if (error != 0) ++numLines;
}

DataFile::DataFile(std::string parameterName, std::string filePath)
    : parameter(std::move(parameterName)), path(std::move(filePath)) {}

int DataFile::Refuse(long atLine, const std::string& complaint) const {
    if (atLine == 0) return Fail("ERROR: ", Name(), ": ", complaint, "\n");
    return Fail("ERROR: ", Name(), ", line ", atLine, ": ", complaint, "\n");
}

std::string DataFile::Unreadable(int error) {
    return std::string("cannot be read: ") + std::strerror(error);
}

// Some files of the kernel, such as those in /proc, report size 0 and still have content; such a
// file is copied like a pipe. Opening a pipe takes its content from other readers, or waits.
int DataFile::Open(int numReaders) {
    const char* const noParts =
        "is no regular file, so several ranks cannot read a part of it each; copy it to a file";
    struct stat status = {};
    const bool fAlone = numReaders == 1;
    if (!fAlone && ::stat(path.c_str(), &status) == 0 && !S_ISREG(status.st_mode) &&
        !S_ISDIR(status.st_mode)) {
        return Refuse(0, noParts);
    }
    text.reset(std::fopen(path.c_str(), "re"));
    if (!text) return Refuse(0, std::string("cannot be opened: ") + std::strerror(errno));
    if (::fstat(Descriptor(), &status) != 0) return Refuse(0, std::strerror(errno));
    if (S_ISDIR(status.st_mode)) return Refuse(0, "is a directory, not a data file");
    numBytes = static_cast<size_t>(status.st_size);
    char first = 0;
    const bool fSized = numBytes > 0 || ::pread(Descriptor(), &first, 1, 0) == 0;
    if (S_ISREG(status.st_mode) && fSized) return 0;
    return fAlone ? Spool() : Refuse(0, noParts);
}

int DataFile::Spool() {
    std::string complaint;
    OpenFile copy = CopyToTemporary(text.get(), numBytes, complaint);
    if (!copy) return Refuse(0, complaint);
    text = std::move(copy);
    return 0;
}

int DataFile::Scan(ReadingThreads& threads) {
    LineCounter counter;
    return Scan(threads, counter);
}

int DataFile::Scan(ReadingThreads& threads, BlockScanner& scanner) {
    if (Open(1) != 0) return -1;
    return Place({ScanPart(threads, scanner, 0, 1)}, 0);
}

DataFile::Tally DataFile::ScanPart(ReadingThreads& threads, BlockScanner& scanner, int part,
                                   int numParts) {
    blockBytes = threads.BlockBytes();
    const size_t numAll = (numBytes + blockBytes - 1) / blockBytes;
    const size_t divisor = static_cast<size_t>(numParts);
    firstBlock = numAll * static_cast<size_t>(part) / divisor;
    const size_t numBlocks = numAll * (static_cast<size_t>(part) + 1) / divisor - firstBlock;
    WorkerPool& pool = threads.For(numBlocks);
    std::vector<BlockReader> readerV(static_cast<size_t>(pool.NumWorkers()));
    std::vector<Tally> tallyV(numBlocks);
    scanner.Begin(numBlocks);
    pool.For(static_cast<int>(numBlocks), [&](int block, int worker) {
        BlockReader& reader = readerV[static_cast<size_t>(worker)];
        BeginBlock(reader, static_cast<size_t>(block));
        tallyV[static_cast<size_t>(block)] = scanner.ScanBlock(reader, static_cast<size_t>(block));
    });
    beforeV.assign(1, {});
    for (const Tally& tally : tallyV) {
        beforeV.push_back(Sum(beforeV.back(), tally));
        if (tally.error != 0) break;
    }
    return beforeV.back();
}

int DataFile::Place(const std::vector<Tally>& partV, int part) {
    all = {};
    for (size_t i = 0; i < partV.size(); ++i) {
        for (Tally& before : beforeV) {
            if (i == static_cast<size_t>(part)) before.numLines += all.numLines;
        }
        all = Sum(all, partV[i]);
        if (all.error != 0) return Refuse(all.numLines, Unreadable(all.error));
    }
    return 0;
}

void DataFile::BeginBlock(BlockReader& reader, size_t block) const {
    reader.Begin(Descriptor(), blockBytes, firstBlock + block);
}

}  // namespace sylvora::frontend
