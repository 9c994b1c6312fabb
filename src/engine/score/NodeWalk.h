// Trees that are walked: compact nodes, several walks side by side.
//
// One walk waits at every node for a test that depends on the last one; side by side, the waiting
// times overlap.
#ifndef SYLVORA_ENGINE_SCORE_NODEWALK_H
#define SYLVORA_ENGINE_SCORE_NODEWALK_H

#include <cstddef>
#include <cstdint>
#include <vector>

#include "EnsembleSource.h"

namespace sylvora {
namespace engine {

// Sons lie side by side. A leaf is its own right son and tests against NaN, which leads right
// whatever the value, so a walk that has arrived stays. Leaves read column 0.
struct WalkNode {
    double threshold;
    uint32_t splitFea;
    uint32_t rson;  // the left son is the one before it
};

class WalkedTrees {
  public:
    // Room for so many nodes, those of all trees that will be appended.
    void Reserve(size_t numNodes) {
        nodeV.reserve(numNodes);
        valueV.reserve(numNodes);
    }
    // Appends a tree and returns its root. False where nodes can no longer be counted by 32 bits.
    bool Append(const PackedNode* nodes, size_t numNodes, uint32_t& root);

    // Walks `num` times, row rowV[i] from the root atV[i], and leaves the leaves in atV.
    void Walk(const double* const* rowV, uint32_t* atV, int num) const;

    const std::vector<double>& Values() const { return valueV; }  // by node

  private:
    template <int kWalks>
    void WalkTogether(const double* const* rowV, uint32_t* atV) const;

    std::vector<WalkNode> nodeV;
    std::vector<double> valueV;
};

}  // namespace engine
}  // namespace sylvora

#endif  // SYLVORA_ENGINE_SCORE_NODEWALK_H
