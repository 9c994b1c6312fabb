// Rows that are parsed speculatively during the first pass over a file, before its width is known.
// Each block is parsed with the largest width found so far, and its rows are widened at the end. If
// a line is malformed, or if the rows may not fit into memory, the parsed rows are dropped and the
// second pass, which knows the width, reads the file.
#ifndef SYLVORA_FRONTEND_READING_EARLYROWS_H
#define SYLVORA_FRONTEND_READING_EARLYROWS_H

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <map>
#include <memory>
#include <mutex>
#include <new>
#include <string_view>
#include <vector>

#include "DataFile.h"
#include "DataSet.h"
#include "ReadingThreads.h"
#include "RowReading.h"
#include "god/UsableMemory.h"

namespace sylvora::frontend {

// A growing array. It uses realloc, so that the kernel moves the pages of a large array and there
// are never two copies in memory.
template <typename Element>
class GrowingArray {
  public:
    size_t Size() const { return size; }
    Element* Get() { return held.get(); }

    void Append(Element element) {
        if (size == capacity) Resize(std::max(2 * capacity, size_t{1024}));
        held[size++] = element;
    }

    // Shrinks the array to its size and transfers ownership.
    std::unique_ptr<Element[], Releaser> Release() {
        Resize(std::max(size, size_t{1}));
        size = capacity = 0;
        return std::move(held);
    }

  private:
    void Resize(size_t count) {
        void* const moved = std::realloc(held.get(), count * sizeof(Element));
        if (moved == nullptr) throw std::bad_alloc();
        static_cast<void>(held.release());
        held.reset(static_cast<Element*>(moved));
        capacity = count;
    }

    std::unique_ptr<Element[], Releaser> held;
    size_t size = 0;
    size_t capacity = 0;
};

// The scanner to pass to DataFile::Scan, for one file.
class EarlyRows : public BlockScanner {
  public:
    // Rows have at least least.line.dim values, and no more where larger ids are ignored. All pairs
    // of a line are read. If the rows may need more than `memory` bytes, they are dropped, usually
    // before most of the memory is allocated.
    explicit EarlyRows(const RowRules& least, double memory = MostMemory());
    ~EarlyRows() override;
    // The limit in bytes for all files of a run together.
    static double MostMemory() { return UsableMemory() / 4; }

    void Begin(size_t numBlocks) override;
    DataFile::Tally ScanBlock(BlockReader& reader, size_t block) override;

    // True if all rows of the scanned file are held, and are what `wanted` would give.
    bool Satisfies(const LineRules& wanted) const;
    // Frees all rows. From then on ScanBlock only counts.
    void Drop();
    // Moves the rows, widened to `dim` values, into `set` and returns the same query runs as
    // ReadRows.
    std::vector<QueryRun> MoveTo(DataSet& set, int dim, ReadingThreads& threads);

  private:
    typedef std::unique_ptr<double[], Releaser> Row;

    // The rows of one block. Line numbers are relative to the block until Append adds the lines of
    // all blocks before it.
    struct BlockRows {
        DataFile::Tally tally;
        VecDle labelV;
        std::vector<Row> rowV;
        std::vector<QueryRun> runV;
        RowCounts counts;
        int mostPairs =
            0;          // most pairs on a line: the least LineRules::mostPairs that reads it all
        int width = 0;  // values per row
    };

    // The rows of one block, from the end of the previous range to `end`, exclusive.
    struct RowRange {
        size_t end;
        int width;
    };

    bool Parse(BlockReader& reader, int width, BlockRows& rows) const;
    bool ParseLine(std::string_view line, std::string_view text, BlockRows& rows) const;
    bool Fits(size_t numRows, int width) const;
    bool Widen(const DataFile::Tally& counted);
    void Take(size_t block, BlockRows&& rows);
    void Append(BlockRows& rows);
    void Clear();

    const RowRules rules;      // the width in them is only a lower bound
    const double mostMemory;   // bytes
    double mostOfBlock = 0.0;  // bytes that the rows of one block may take
    std::atomic<int> width;    // of the widest row found so far; only grows
    std::atomic<bool> fDropped{false};

    std::mutex mutex;                      // guards all members below
    std::map<size_t, BlockRows> waitingM;  // finished blocks that wait for an earlier one
    size_t numTaken = 0;                   // blocks 0 to numTaken - 1 have been appended
    long numLines = 0;                     // in the appended blocks
    GrowingArray<double> labels;
    GrowingArray<double*> rows;
    std::vector<QueryRun> runV;
    std::vector<RowRange> rangeV;  // one per appended block with rows
    RowCounts counts;
    int mostPairs = 0;  // as in BlockRows
};

}  // namespace sylvora::frontend

#endif  // SYLVORA_FRONTEND_READING_EARLYROWS_H
