// A tree as the engine grows it, and the limits that it grows within.
#ifndef SYLVORA_ENGINE_GROWNTREE_H
#define SYLVORA_ENGINE_GROWNTREE_H

#include <algorithm>
#include <cstddef>

namespace sylvora {
namespace engine {

struct GrowthLimits {
    int maxLeaf;
    int maxDepth;
    int numBound;
    int numSelFea;  // columns drawn per node
    bool fForest;   // neither maxLeaf nor maxDepth counts

    // How many of `numOpen` nodes of a level are taken at once by a tree of `numLeaf` leaves: as
    // many as the leaf limit may still allow to be split, so that no column is drawn for a node
    // that the limit closes.
    size_t BatchSize(size_t numOpen, int numLeaf) const {
        if (fForest) return numOpen;
        return std::min(numOpen, static_cast<size_t>(std::max(maxLeaf - numLeaf, 1)));
    }
};

// One node as grown; the words are those of NodeCR.
struct GrownNode {
    int startDoc = 0;
    int countDoc = 0;
    int parent = -1;
    int depth = 0;
    int splitFea = -1;
    double splitElemFea = -1.0;
    int lson = -1;
    int rson = -1;
    int countL = 0;
    double gradAll = 0.0;
    int wgtAll = 0;
    int majority = -1;  // classification: the class of the most rows
};

}  // namespace engine
}  // namespace sylvora

#endif  // SYLVORA_ENGINE_GROWNTREE_H
