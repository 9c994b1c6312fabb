// Rows that are parsed while their file is looked through for its width: as wide as the widest row
// that was known of by then, and made wider at the end. A file with a wrong line, or with rows that
// may be too much for the memory, is left to the second pass, which knows the width.
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

// An array that grows. Large ones are moved by the kernel, page by page: never are there two.
template <typename Element>
class GrowingArray {
  public:
    size_t Size() const { return size; }
    Element* Get() { return held.get(); }

    void Append(Element element) {
        if (size == capacity) Resize(std::max(2 * capacity, size_t{1024}));
        held[size++] = element;
    }

    // Gives the array away, no larger than it must be.
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

// What DataFile::Scan has look at the blocks of one file.
class EarlyRows : public BlockLook {
  public:
    // No row will have fewer than least.line.dim values; where larger ids are ignored, none will
    // have more. All pairs of a line are read. Rows that would take more than `memory` bytes are
    // given up, most of them before they take any.
    explicit EarlyRows(const RowRules& least, double memory = MostMemory());
    ~EarlyRows() override;
    // For all files of a run together.
    static double MostMemory() { return UsableMemory() / 4; }

    void Begin(size_t numBlocks) override;
    DataFile::Tally Look(BlockReader& reader, size_t block) override;

    // Whether all rows of the scanned file are here and can be had as `wanted`.
    bool CanBe(const LineRules& wanted) const;
    // Frees them all; from now on Look only counts.
    void Drop();
    // Moves them to `set`, each with `dim` values, and returns their queries as ReadRows would.
    std::vector<QueryRun> MoveTo(DataSet& set, int dim, ReadingThreads& threads);

  private:
    typedef std::unique_ptr<double[], Releaser> Row;

    // The rows of a block. The first line of a run is counted from the beginning of the block,
    // until the lines of all blocks before it are known.
    struct BlockRows {
        DataFile::Tally tally;
        VecDle labelV;
        std::vector<Row> rowV;
        std::vector<QueryRun> runV;
        RowCounts counts;
        int mostPairs = 0;  // of a line; with fewer, LineRules would leave out some of it
        int width = 0;
    };

    // Rows of one block after those of all before it.
    struct Section {
        size_t end;  // the row behind the last
        int width;
    };

    bool Parse(BlockReader& reader, int width, BlockRows& rows) const;
    bool ParseLine(std::string_view line, std::string_view text, BlockRows& rows) const;
    bool Fits(size_t numRows, int width) const;
    bool Widen(const DataFile::Tally& counted);
    void Take(size_t block, BlockRows&& rows);
    void Append(BlockRows& rows);
    void Clear();

    const RowRules rules;  // but for the width
    const double mostMemory;
    double mostOfBlock = 0.0;  // its share of the memory
    std::atomic<int> width;    // of the widest row so far
    std::atomic<bool> fDropped{false};

    std::mutex mutex;                      // of all that follows
    std::map<size_t, BlockRows> waitingM;  // for a block before them
    size_t numTaken = 0;                   // blocks, in order
    long numLines = 0;                     // of those
    GrowingArray<double> labels;
    GrowingArray<double*> rows;
    std::vector<QueryRun> runV;
    std::vector<Section> sectionV;
    RowCounts counts;
    int mostPairs = 0;  // of a line; with fewer, LineRules would leave out some of it
};

}  // namespace sylvora::frontend

#endif  // SYLVORA_FRONTEND_READING_EARLYROWS_H
