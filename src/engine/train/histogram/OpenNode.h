// What HistogramGrower.cpp, NodeHistograms.cpp and RankedSplits.cpp share; for these files only.
#ifndef SYLVORA_ENGINE_TRAIN_HISTOGRAM_OPENNODE_H
#define SYLVORA_ENGINE_TRAIN_HISTOGRAM_OPENNODE_H

#include <memory>
#include <vector>

#include "HistogramGrower.h"
#include "TieBreak.h"

namespace sylvora {
namespace engine {

// A node that waits to be split, and then the outcome.
struct HistogramGrower::OpenNode {
    int idxNode = 0;
    // The number of workers that it warrants; 0: too small to be shared.
    int numTogether = 0;
    Cell total = {};
    // Null: the worker counts it, or none is needed.
    std::unique_ptr<Histogram> histogram = nullptr;
    std::vector<int> columnV = {};  // sampled, by slot
    // With several ranks: what LookAhead found here, the resolution of what it counted, and what
    // all ranks know of the best split; see SearchTask.
    std::unique_ptr<NodeScan> ahead = nullptr;
    std::unique_ptr<Histogram> own = nullptr;
    double leastBest = -1.0;
    // What the search found, until the split is marked.
    SearchResult<Candidate> found = {};
    // Column -1: the node stays a leaf.
    SplitPoint split = {};
    // The sums over the left child's rows.
    Cell left = {};
    GrownNode children[2] = {};
    std::unique_ptr<Histogram> childHistogramV[2] = {};
};

// What one worker needs for the node that it splits. Other workers may help through the pool.
struct HistogramGrower::Worker {
    Worker(const BinnedColumns& data, const FixedPoint& fixed, const Tuning& tuning,
           HistogramFiller& histogramFiller, WorkerPool& pool, SplitSearch::BufferPool& bufferPool)
        : filler(histogramFiller),
          search(data, fixed, tuning, pool, bufferPool),
          partition(data, pool, tuning.chunkRows),
          tieBreak(data) {}

    HistogramFiller& filler;
    SplitSearch search;
    RowPartition partition;
    TieBreak tieBreak;
    // The histogram of the node being split, if the node has none from its parent, and the columns
    // that it counts.
    Histogram own;
    std::vector<int> columnV;
};

}  // namespace engine
}  // namespace sylvora

#endif  // SYLVORA_ENGINE_TRAIN_HISTOGRAM_OPENNODE_H
