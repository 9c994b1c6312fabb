// Trees that are walked; see NodeWalk.h.
#include "NodeWalk.h"

#include <limits>
#include <utility>

#include "InterleavedWalks.h"

namespace sylvora {
namespace engine {

// Depth first, left before right, with the children of a node appended as a pair. So the children
// of a left child directly follow its own pair, often in the same cache line; those of its sibling
// follow everything below the left child.
//
// Invariant: every node in todoV has its index already, and only nodes in todoV lack their
// contents.
bool WalkedTrees::Append(const PackedNode* nodes, size_t numNodes, uint32_t& root) {
    constexpr size_t kMaxNodes = std::numeric_limits<uint32_t>::max();
    if (numNodes > kMaxNodes || nodeV.size() > kMaxNodes - numNodes - 1) return false;
    std::vector<std::pair<const PackedNode*, uint32_t>> todoV;  // a node and its index
    const auto append = [&](const PackedNode* source) {
        todoV.push_back({source, static_cast<uint32_t>(nodeV.size())});
        nodeV.push_back({});
        valueV.push_back(0.0);
    };
    root = static_cast<uint32_t>(nodeV.size());
    append(nodes);
    while (!todoV.empty()) {
        const auto [source, at] = todoV.back();
        todoV.pop_back();
        if (source->IsLeaf()) {
            nodeV[at] = {std::numeric_limits<double>::quiet_NaN(), 0, at};
            valueV[at] = source->avgPredict;
            continue;
        }
        const uint32_t right = static_cast<uint32_t>(nodeV.size()) + 1;
        nodeV[at] = {source->splitElemFea, static_cast<uint32_t>(source->splitFea), right};
        append(nodes + source->lson);
        append(nodes + source->rson);
        std::swap(todoV[todoV.size() - 1], todoV[todoV.size() - 2]);
    }
    return true;
}

// A step has no branch: the comparison is subtracted from the index of the right child.
void WalkedTrees::Walk(const double* const* rowV, uint32_t* atV, int num) const {
    const CompactNode* const nodes = nodeV.data();
    const auto step = [nodes](const double* row, uint32_t at) {
        const CompactNode& node = nodes[at];
        const bool fLeft = row[node.splitFea] <= node.threshold;
        return node.rightChild - static_cast<uint32_t>(fLeft);
    };
    WalkInterleaved(rowV, atV, num, step,
                    [nodes](uint32_t at) { return nodes[at].rightChild == at; });
}

}  // namespace engine
}  // namespace sylvora
