// The best cut of one regression node: filtered by fast exact sums, decided only as far as they can
// decide. The plain form adds up gradients in sorted order, in doubles; a bound on how far its
// scores can be from ours leaves a short list of cuts, mostly of one. What cannot be told apart is
// handed back, to be decided by the plain form itself.
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
#include "engine/train/Tuning.h"

namespace sylvora {
namespace engine {

struct SearchTask {
    RowSet rows;                 // the node's, in any order; ascending is quickest
    const Histogram* histogram;  // null for a small node: its columns are sorted
    const int* columnV;          // one column per slot
    int numSlots;
    Cell total;       // the sums over the rows
    double gradAll;   // the plain form's own sum of the gradients
    int numTogether;  // slots to refine in step with idle workers' help; 0: by this worker alone
};

struct SearchResult {
    bool fFound = false;  // a cut, and it is the plain form's
    Candidate winner = {};
    std::vector<int> undecidedV;  // otherwise: the slots to decide between, ascending
};

// Searches one node at a time, with buffers that the searches of all workers share.
class SplitSearch {
  public:
    class Buffers;

    SplitSearch(const BinnedColumns& columns, const FixedPoint& fixedPoint, const Tuning& figures,
                WorkerPool& workers, Buffers& sharedBuffers);
    ~SplitSearch();

    SearchResult Search(const SearchTask& task);

  private:
    // Where live bins are: by byte of the column, and by rank in steps of 2^step.
    struct LiveSteps {
        uint8_t fLiveByteV[256];
        std::vector<uint8_t> fLiveV;
        int step;
    };

    // What it takes to look inside the bins of one slot.
    struct Scratch {
        explicit Scratch(const FixedPoint& fixed) : fine(fixed) {}

        FineScan fine;
        std::vector<FineBin> fineBinV;
        std::vector<uint8_t> fLiveV;  // by piece of the fine scan
        std::vector<Candidate> candidateV;
        std::vector<int> liveBinV;
        LiveSteps live = {};
        LargeArray<uint64_t> keyV;       // rank and, in the low half, row (small nodes: place)
        LargeArray<uint64_t> otherKeyV;  // for sorting
        std::vector<LargeArray<uint64_t>> stretchVV;  // the keys of each stretch of rows

        void FreeKeys() {
            LargeArray<uint64_t>().swap(keyV);
            LargeArray<uint64_t>().swap(otherKeyV);
            std::vector<LargeArray<uint64_t>>().swap(stretchVV);
        }
    };

    template <typename Step>
    void For(const SearchTask& task, int count, const Step& step);
    void LookAtSlots(const SearchTask& task);
    void RefineSlots(const SearchTask& task);
    void RefineTogether(const SearchTask& task, const int* slots, int numSlots);
    void ScoreKeys(const SearchTask& task, int slot, Scratch& scratch);
    void ScoreBins(const SearchTask& task, int slot, Scratch& scratch);
    void ScorePieces(const SearchTask& task, int slot, Scratch& scratch);
    static void FindLiveSteps(const SearchTask& task, const Column& column, Scratch& scratch);
    void CollectKeys(const SearchTask& task, int begin, int end, int id, const LiveSteps& live,
                     LargeArray<uint64_t>& keyV) const;
    void SortSlot(const SearchTask& task, int slot, Scratch& scratch);
    void ScoreRows(const SearchTask& task, int slot, const uint64_t* begin, const uint64_t* end,
                   const Cell& prefix, Scratch& scratch);
    template <typename Row, typename CellOf>
    void ScoreRun(const SearchTask& task, int slot, const uint64_t* begin, const uint64_t* end,
                  Cell prefix, const Row& rowOf, const CellOf& cellOf, Scratch& scratch);
    void SetError(const SearchTask& task, double largestSum);
    void RaiseBest(double score);
    double Least() const;
    void FindSlots(const SearchTask& task);
    SearchResult Decide();

    const BinnedColumns& data;
    const FixedPoint& fixed;
    const Tuning tuning;
    WorkerPool& pool;
    Buffers& buffers;
    const BinScan scan;
    NodeTotals node = {};
    std::atomic<double> best{-1.0};  // best score so far, by fast sums
    double rowError = 0.0;           // how far a plain left or right sum can be from ours
    std::vector<uint8_t> fTakenV;    // by column, all 0 between searches
    std::vector<int> slotV;          // the slots to look at: no column twice
    std::vector<ColumnView> viewV;   // by slot
    std::vector<Cell> cellV;         // of a small node's rows
    std::vector<std::unique_ptr<Scratch>> scratchV;  // by slot of those that are refined together
};

// Taken for a node and given back, so that there are as many as slots were ever looked at together,
// whoever did it. For any number of threads; outlives its searches.
class SplitSearch::Buffers {
  public:
    explicit Buffers(const FixedPoint& fixedPoint) : fixed(fixedPoint) {}

  private:
    friend class SplitSearch;

    // Brings `taken` to `num`.
    void Take(size_t num, std::vector<std::unique_ptr<Scratch>>& taken);
    void GiveBack(std::vector<std::unique_ptr<Scratch>>& taken);

    const FixedPoint& fixed;
    std::mutex mutex;  // guards what follows
    std::vector<std::unique_ptr<Scratch>> freeV;
    size_t numMade = 0;
};

}  // namespace engine
}  // namespace sylvora

#endif  // SYLVORA_ENGINE_TRAIN_HISTOGRAM_SPLITSEARCH_H
