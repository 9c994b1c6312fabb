// Trees that are walked, node by node, for those that cannot be coded (see CompiledEnsemble.h).
#ifndef SYLVORA_ENGINE_SCORE_NODEWALK_H
#define SYLVORA_ENGINE_SCORE_NODEWALK_H

#include <cstddef>
#include <cstdint>
#include <vector>

#include "EnsembleSource.h"

namespace sylvora {
namespace engine {

// Children are neighbours. A leaf is its own right child, and its threshold is NaN, which sends
// every value right: a walk that has reached a leaf stays there. A leaf reads column 0, which every
// row has.
struct CompactNode {
    double threshold;
    uint32_t splitFea;
    uint32_t rightChild;  // an index; the left child precedes it
};

// Owns the nodes of all walked trees of an ensemble. Walk() is thread-safe once all trees are
// appended.
class WalkedTrees {
  public:
    // Allocates room for `numNodes` nodes in all, those of every tree that will be appended.
    void Reserve(size_t numNodes) {
        nodeV.reserve(numNodes);
        valueV.reserve(numNodes);
    }
    // Appends a tree and sets `root` to the index of its root. The links between its nodes must be
    // valid. Returns false if indices would exceed 32 bits.
    bool Append(const PackedNode* nodes, size_t numNodes, uint32_t& root);

    // Walks `num` rows: row rowV[i] starts at node atV[i], and atV[i] becomes the leaf it reaches.
    void Walk(const double* const* rowV, uint32_t* atV, int num) const;

    // Leaf values by node index; 0 for other nodes.
    const std::vector<double>& Values() const { return valueV; }

  private:
    std::vector<CompactNode> nodeV;
    std::vector<double> valueV;
};

}  // namespace engine
}  // namespace sylvora

#endif  // SYLVORA_ENGINE_SCORE_NODEWALK_H
