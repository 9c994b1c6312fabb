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

#include "BinChoice.h"
#include "BinScan.h"
#include "BinnedColumns.h"
#include "FineScan.h"
#include "Histogram.h"
#include "KeySelection.h"
#include "base/LargeArray.h"
#include "base/WorkerPool.h"
#include "engine/train/FixedPoint.h"
#include "engine/train/RowSets.h"
#include "engine/train/SearchResult.h"
#include "engine/train/Tuning.h"

namespace sylvora {
namespace engine {

// The first scan of a node's histogram.
struct NodeScan {
    std::vector<ColumnSummary> summaryV;  // by slot
    // The reference score of the best split of the slots is at least this; -1: perhaps there is
    // none.
    double leastBest = -1.0;
    // The rows of the largest node that used this memory.
    int mostRows = 0;
};

// One node to search. Everything that it points to stays with the caller.
struct SearchTask {
    // The node's rows in any order; ascending is fastest.
    RowSet rows;
    // Null for a node that sorts all of its columns.
    const Histogram* histogram;
    const int* columnV;  // by slot
    int numSlots;
    Cell total;  // the sums over the rows
    // The reference implementation's sum of the gradients.
    double gradAll;
    // Slots to refine at once with the help of idle workers; 0: this worker alone.
    int numTogether;
    // The histogram holds the narrow columns only; the node sorts the others.
    bool fNarrowOnly = false;
    // The reference score of the node's best split, in these slots or elsewhere, is at least this.
    double leastBest = -1.0;
    // What LookAhead returned for the same rows and slots; of the histogram, only the resolution is
    // used then. Null: it was not called.
    NodeScan* ahead = nullptr;
};

// Searches one node at a time; each worker has its own. Everything passed to the constructor must
// outlive it.
class SplitSearch {
  public:
    class BufferPool;

    SplitSearch(const BinnedColumns& columns, const FixedPoint& fixedPoint, const Tuning& figures,
                WorkerPool& workers, BufferPool& sharedBufferPool);
    ~SplitSearch();

    // Returns the winner, or the slots of a near-tie, or neither if the node has no split.
    SearchResult<Candidate> Search(const SearchTask& task);
    // Of the last search.
    const SearchWork& Work() const { return work; }
    // The first step of Search alone, which is much faster. The histogram must hold all columns.
    std::unique_ptr<NodeScan> LookAhead(const SearchTask& task);

  private:
    // Marks of the candidate bins: by 8-bit code of the column, and by rank / 2^step.
    struct CandidateRanks {
        CandidateCodes codes;
        std::vector<uint8_t> fCandidateV;
        int step;

        CandidateMarks Marks() const { return {fCandidateV.data(), step}; }
    };

    // The buffers for refining one slot.
    struct Buffers {
        explicit Buffers(const FixedPoint& fixed) : fine(fixed) {}

        FineScan fine;
        std::vector<FineBin> fineBinV;
        std::vector<uint64_t> subBinMaskV;  // a bit per number of a sub-bin: to be sorted
        std::vector<Candidate> candidateV;  // added by Keep
        std::vector<int> candidateBinV;
        CandidateRanks candidateRanks = {};
        // Keys of rank and row; in a small node, of rank and position in the node.
        LargeArray<uint64_t> keyV;
        LargeArray<uint64_t> otherKeyV;  // for sorting
        int64_t numKeys = 0;             // collected in this search
        // The keys of each chunk of rows.
        std::vector<LargeArray<uint64_t>> chunkKeyVV;

        void Begin() {
            candidateV.clear();
            numKeys = 0;
        }

        // Adds a candidate, unless its slot has two that may score more, or as much at lower ranks:
        // Decide needs the best one, and whether there is another. Without this limit, a node of
        // equal gradients would keep every split of its rows.
        void Keep(const Candidate& candidate);

        // Returns the memory of the keys to the system.
        void FreeKeys() {
            LargeArray<uint64_t>().swap(keyV);
            LargeArray<uint64_t>().swap(otherKeyV);
            std::vector<LargeArray<uint64_t>>().swap(chunkKeyVV);
        }
    };

    template <typename Step>
    void For(const SearchTask& task, int count, const Step& step);
    // The steps of a search, in this order.
    void Begin(const SearchTask& task);
    void ScanColumns(const SearchTask& task);
    void RefineSlots(const SearchTask& task);
    void AppendBoundaries(const SearchTask& task, int slot);
    void SearchBySorting(const SearchTask& task);
    bool IsSorted(const SearchTask& task, int slot) const;
    void RefineTogether(const SearchTask& task, const int* slots, int numSlots);
    // Refining one slot (SlotScoring.cpp). Each call uses the buffers of its slot only, and raises
    // `leastBest`, which is atomic; so several slots may be refined at the same time.
    void ScoreKeys(const SearchTask& task, int slot, Buffers& buffers);
    void ScoreBins(const SearchTask& task, int slot, Buffers& buffers);
    void ScoreSubBins(const SearchTask& task, int slot, Buffers& buffers);
    void KeepSubBinSplits(int slot, int id, Buffers& buffers);
    void MarkSubBins(Buffers& buffers) const;
    static void MarkCandidateRanks(const SearchTask& task, const Column& column, Buffers& buffers);
    void CollectKeys(const SearchTask& task, int begin, int end, int id,
                     const CandidateRanks& candidateRanks, LargeArray<uint64_t>& keyV) const;
    void ScoreBySorting(const SearchTask& task, int slot, Buffers& buffers);
    void ScoreRows(const SearchTask& task, int slot, const uint64_t* begin, const uint64_t* end,
                   const Cell& prefix, Buffers& buffers);
    // Sorted keys, and the sums over all keys before them.
    struct KeyRange {
        const uint64_t* begin;
        const uint64_t* end;
        Cell prefix;
    };
    template <typename Row, typename CellOf>
    void ScoreKeyRange(const SearchTask& task, int slot, const KeyRange& keys, const Row& rowOf,
                       const CellOf& cellOf, Buffers& buffers);
    // The error bound, and the choice of slots.
    void SetError(const SearchTask& task, double maxAbsSum);
    double ScoreError(double score) const;
    double ScoreError(const Candidate& candidate) const;
    double PruningThreshold() const;
    void RaiseLeastBest(double score);
    void Consider(Candidate candidate, Buffers& buffers);
    void ChooseSlots(const SearchTask& task);
    SearchResult<Candidate> Decide();

    const BinnedColumns& data;
    const FixedPoint& fixed;
    const Tuning tuning;
    WorkerPool& pool;
    BufferPool& bufferPool;
    const BinScan scan;
    const KeySelection& keySelection;
    NodeTotals node = {};
    // The least that the reference score of the best split can be; -1 as long as none was found.
    std::atomic<double> leastBest{-1.0};
    // e: how far our sums may be from the reference implementation's.
    double sumError = 0.0;
    SearchWork work;
    // Marks by column; all 0 between searches.
    std::vector<uint8_t> fTakenV;
    // The slots to search, without duplicate columns.
    std::vector<int> slotV;
    // The first scan of each column, by slot.
    std::vector<ColumnSummary> summaryV;
    // The cells of a small node, by position.
    std::vector<Cell> cellV;
    // The buffers of the slots being refined.
    std::vector<std::unique_ptr<Buffers>> buffersV;
};

// A pool of buffers shared by the searches of all workers. It holds as many as were ever used at
// once. Thread-safe; must outlive the searches.
class SplitSearch::BufferPool {
  public:
    explicit BufferPool(const FixedPoint& fixedPoint) : fixed(fixedPoint) {}

    // Takes back what LookAhead returned, for reuse.
    void GiveBack(std::unique_ptr<NodeScan> taken);

  private:
    friend class SplitSearch;

    // Fills `taken` up to `num` buffers. Throws std::bad_alloc. Release takes them all back and
    // never throws.
    void Acquire(size_t num, std::vector<std::unique_ptr<Buffers>>& taken);
    void Release(std::vector<std::unique_ptr<Buffers>>& taken);

    // The largest nodes should take theirs first: then few scans ever grow to full size.
    std::unique_ptr<NodeScan> TakeScan();

    const FixedPoint& fixed;
    std::mutex mutex;  // guards the members below
    std::vector<std::unique_ptr<Buffers>> freeV;
    // All buffers made, free or taken; freeV has capacity for them.
    size_t numMade = 0;
    // Sorted by mostRows.
    std::vector<std::unique_ptr<NodeScan>> freeScanV;
};

}  // namespace engine
}  // namespace sylvora

#endif  // SYLVORA_ENGINE_TRAIN_HISTOGRAM_SPLITSEARCH_H
