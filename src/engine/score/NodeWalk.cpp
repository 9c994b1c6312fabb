// Interleaved walks; see NodeWalk.h.
#include "NodeWalk.h"

#include <limits>
#include <utility>

namespace sylvora {
namespace engine {
namespace {

// Walks interleaved; the smaller number is for what is left over.
constexpr int kManyWalks = 16;
constexpr int kFewWalks = 4;
// Steps between checks whether all walks have reached a leaf.
constexpr int kStepsPerCheck = 4;

}  // namespace

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

// The inner loop has no branch: the comparison is subtracted from the index of the right child.
template <int kWalks>
void WalkedTrees::WalkInterleaved(const double* const* rowV, uint32_t* atV) const {
    const CompactNode* const nodes = nodeV.data();
    for (bool fAtLeaves = false; !fAtLeaves;) {
        for (int step = 0; step < kStepsPerCheck; ++step) {
            for (int i = 0; i < kWalks; ++i) {
                const CompactNode& node = nodes[atV[i]];
                const bool fLeft = rowV[i][node.splitFea] <= node.threshold;
                atV[i] = node.rightChild - static_cast<uint32_t>(fLeft);
            }
        }
        fAtLeaves = true;
        for (int i = 0; i < kWalks; ++i) fAtLeaves &= nodes[atV[i]].rightChild == atV[i];
    }
}

void WalkedTrees::Walk(const double* const* rowV, uint32_t* atV, int num) const {
    int i = 0;
    for (; i + kManyWalks <= num; i += kManyWalks) WalkInterleaved<kManyWalks>(rowV + i, atV + i);
    for (; i + kFewWalks <= num; i += kFewWalks) WalkInterleaved<kFewWalks>(rowV + i, atV + i);
    for (; i < num; ++i) WalkInterleaved<1>(rowV + i, atV + i);
}

}  // namespace engine
}  // namespace sylvora
