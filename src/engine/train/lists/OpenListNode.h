// What SortedListGrower.cpp and RankedListSplits.cpp share; for these two files only.
#ifndef SYLVORA_ENGINE_TRAIN_LISTS_OPENLISTNODE_H
#define SYLVORA_ENGINE_TRAIN_LISTS_OPENLISTNODE_H

#include <vector>

#include "SortedListGrower.h"

namespace sylvora {
namespace engine {

// A node that waits to be split, and then the outcome.
struct SortedListGrower::OpenNode {
    int idxNode = 0;
    const int* columnV = nullptr;  // sampled, by slot
    // What the search found, until the split is marked.
    SearchResult<ListCandidate> found = {};
    // Column -1: the node stays a leaf.
    SplitPoint split = {};
    GrownNode children[2] = {};
    bool fOpenV[2] = {};
};

// The buffers of one worker, or of the team, for the node being split.
struct SortedListGrower::Worker {
    // Calls task(index, worker) for each index below count: alone, or with the whole team.
    template <typename Task>
    void For(int count, const Task& task) {
        if (pool != nullptr) {
            pool->For(count, [&](int i, int w) { task(i, *memberV[static_cast<size_t>(w)]); });
            return;
        }
        for (int i = 0; i < count; ++i) task(i, *this);
    }

    WorkerPool* pool = nullptr;    // null: a single worker
    std::vector<Worker*> memberV;  // the members of a team
    NodeFacts facts;
    ScanBuffers scanBuffers;
    std::vector<const Entry*> listV;  // by slot
    // Lists that are made per node.
    std::vector<Entry> madeV;
    ListBuffers buffers;
    std::vector<ListCandidate> candidateV;  // by slot
    std::vector<Entry> otherV;              // for partitioning a list
};

}  // namespace engine
}  // namespace sylvora

#endif  // SYLVORA_ENGINE_TRAIN_LISTS_OPENLISTNODE_H
