// The best split of a regression node, pruned with exact integer sums; near-ties go to the
// reference search. The reference implementation adds up gradients in sorted order, in doubles. A
// bound on the distance between its scores and ours leaves few candidates, usually one.
#ifndef SYLVORA_ENGINE_TRAIN_HISTOGRAM_SPLITSEARCH_H
#define SYLVORA_ENGINE_TRAIN_HISTOGRAM_SPLITSEARCH_H

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

#include "BinScan.h"
#include "BinnedColumns.h"
#include "FineScan.h"
#include "Histogram.h"
#include "base/LargeArray.h"
#include "base/WorkerPool.h"
#include "engine/train/FixedPoint.h"
#include "engine/train/SearchResult.h"
#include "engine/train/Tuning.h"

namespace sylvora {
namespace engine {

struct SearchTask {
    RowSet rows;                 // in any order; ascending is fastest
    const Histogram* histogram;  // null for a small node, which sorts its columns
    const int* columnV;          // by slot
    int numSlots;
    Cell total;       // the sums over the rows
    double gradAll;   // the reference implementation's sum of the gradients
    int numTogether;  // slots to refine at once with the help of idle workers; 0: this worker alone
};

// Searches one node at a time; each worker has its own. Everything passed to the constructor must
// outlive it.
class SplitSearch {
  public:
    class BufferPool;

    SplitSearch(const BinnedColumns& columns, const FixedPoint& fixedPoint, const Tuning& figures,
                WorkerPool& workers, BufferPool& sharedBufferPool);
    ~SplitSearch();

    SearchResult<Candidate> Search(const SearchTask& task);

  private:
    // Marks of the candidate bins: by 8-bit code of the column, and by rank / 2^step.
    struct CandidateRanks {
        uint8_t fCandidateCodeV[256];
        std::vector<uint8_t> fCandidateV;
        int step;
    };

    // The buffers for refining one slot.
    struct Buffers {
        explicit Buffers(const FixedPoint& fixed) : fine(fixed) {}

        FineScan fine;
        std::vector<FineBin> fineBinV;
        std::vector<uint8_t> fCandidateV;  // by sub-bin: to be sorted
        std::vector<Candidate> candidateV;
        std::vector<int> candidateBinV;
        CandidateRanks candidateRanks = {};
        LargeArray<uint64_t> keyV;                     // rank and row (in a small node: position)
        LargeArray<uint64_t> otherKeyV;                // for sorting
        std::vector<LargeArray<uint64_t>> chunkKeyVV;  // the keys of each chunk of rows

        void FreeKeys() {
            LargeArray<uint64_t>().swap(keyV);
            LargeArray<uint64_t>().swap(otherKeyV);
            std::vector<LargeArray<uint64_t>>().swap(chunkKeyVV);
        }
    };

    template <typename Step>
    void For(const SearchTask& task, int count, const Step& step);
    void ScanColumns(const SearchTask& task);
    void RefineSlots(const SearchTask& task);
    void RefineTogether(const SearchTask& task, const int* slots, int numSlots);
    void ScoreKeys(const SearchTask& task, int slot, Buffers& buffers);
    void ScoreBins(const SearchTask& task, int slot, Buffers& buffers);
    void ScoreSubBins(const SearchTask& task, int slot, Buffers& buffers);
    static void MarkCandidateRanks(const SearchTask& task, const Column& column, Buffers& buffers);
    void CollectKeys(const SearchTask& task, int begin, int end, int id,
                     const CandidateRanks& candidateRanks, LargeArray<uint64_t>& keyV) const;
    void ScoreBySorting(const SearchTask& task, int slot, Buffers& buffers);
    void ScoreRows(const SearchTask& task, int slot, const uint64_t* begin, const uint64_t* end,
                   const Cell& prefix, Buffers& buffers);
    template <typename Row, typename CellOf>
    void ScoreKeyRange(const SearchTask& task, int slot, const uint64_t* begin, const uint64_t* end,
                       Cell prefix, const Row& rowOf, const CellOf& cellOf, Buffers& buffers);
    void SetError(const SearchTask& task, double maxAbsSum);
    double PruningThreshold() const;
    void ChooseSlots(const SearchTask& task);
    SearchResult<Candidate> Decide();

    const BinnedColumns& data;
    const FixedPoint& fixed;
    const Tuning tuning;
    WorkerPool& pool;
    BufferPool& bufferPool;
    const BinScan scan;
    NodeTotals node = {};
    std::atomic<double> best{-1.0};  // the best score so far, by integer sums
    double sumError = 0.0;         // e: how far our sums may be from the reference implementation's
    std::vector<uint8_t> fTakenV;  // by column; all 0 between searches
    std::vector<int> slotV;        // the slots to search, without duplicate columns
    std::vector<ColumnSummary> summaryV;             // by slot
    std::vector<Cell> cellV;                         // by position in a small node
    std::vector<std::unique_ptr<Buffers>> buffersV;  // of the slots being refined
};

// A pool of buffers shared by the searches of all workers. It holds as many as were ever used at
// once. Thread-safe; must outlive the searches.
class SplitSearch::BufferPool {
  public:
    explicit BufferPool(const FixedPoint& fixedPoint) : fixed(fixedPoint) {}

  private:
    friend class SplitSearch;

    // Fills `taken` up to `num` buffers.
    void Take(size_t num, std::vector<std::unique_ptr<Buffers>>& taken);
    void Release(std::vector<std::unique_ptr<Buffers>>& taken);

    const FixedPoint& fixed;
    std::mutex mutex;  // guards the members below
    std::vector<std::unique_ptr<Buffers>> freeV;
    size_t numMade = 0;
};

}  // namespace engine
}  // namespace sylvora

#endif  // SYLVORA_ENGINE_TRAIN_HISTOGRAM_SPLITSEARCH_H
