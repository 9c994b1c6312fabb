// The best cut of one regression node: filtered by fast exact sums, decided only as far as they can
// decide. The plain form adds up gradients in sorted order, in doubles; a bound on how far its
// scores can be from ours leaves a short list of cuts, mostly of one. What cannot be told apart is
// handed back, to be decided by the plain form itself.
#ifndef SYLVORA_ENGINE_NODESEARCH_H
#define SYLVORA_ENGINE_NODESEARCH_H

#include <cstdint>
#include <vector>

#include "ColumnScan.h"
#include "Columns.h"
#include "FixedPoint.h"
#include "Histogram.h"

namespace sylvora {
namespace engine {

struct SearchTask {
    RowSlice rows;               // the node's rows in the order of the tree's row index
    const Histogram* histogram;  // null for a small node: its columns are sorted
    const int* columnV;          // one column per slot
    int numSlots;
    Cell total;      // the sums over the rows
    double gradAll;  // the plain form's own sum of the gradients
};

struct SearchResult {
    bool fFound = false;  // a cut, and it is the plain form's
    Candidate winner = {};
    std::vector<int> undecidedV;  // otherwise: the slots to decide between, ascending
};

// Buffers are reused from node to node; one per worker.
class NodeSearch {
  public:
    NodeSearch(const Columns& columns, const FixedPoint& fixedPoint);

    SearchResult Search(const SearchTask& task);

  private:
    void LookAtSlots(const SearchTask& task);
    void RefineSlots(const SearchTask& task);
    void RefineSlot(const SearchTask& task, int slot);
    void CollectKeys(const SearchTask& task, const Column& column);
    void SortedSlot(const SearchTask& task, int slot);
    void ScoreRun(const SearchTask& task, int slot, size_t begin, size_t end, Cell prefix);
    void SetError(const SearchTask& task, double largestSum);
    SearchResult Decide();
    double Least() const;
    bool IsRepeat(const SearchTask& task, int slot) const;

    const Columns& data;
    const FixedPoint& fixed;
    ColumnScan scan;
    NodeTotals node = {};
    double best = -1.0;     // best score so far, by fast sums
    double rowError = 0.0;  // how far a plain left or right sum can be from ours
    std::vector<ColumnView> viewV;
    std::vector<Candidate> candidateV;
    std::vector<int> liveBinV;
    std::vector<uint64_t> keyV;  // rank and, in the low half, place in the slice
    std::vector<uint8_t> liveV;  // by rank, in steps: whether a live bin is there
};

}  // namespace engine
}  // namespace sylvora

#endif  // SYLVORA_ENGINE_NODESEARCH_H
