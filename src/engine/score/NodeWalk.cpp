// Walks side by side; see NodeWalk.h.
#include "NodeWalk.h"

#include <limits>
#include <utility>

namespace sylvora {
namespace engine {
namespace {

constexpr int kManyWalks = 16;
constexpr int kFewWalks = 4;
// Steps between two looks at whether all walks have arrived.
constexpr int kStride = 4;

}  // namespace

// A pair of sons is placed right behind its parent's, or behind all that lies below its left
// neighbour: going left mostly stays in the cache line.
bool WalkedTrees::Append(const PackedNode* nodes, size_t numNodes, uint32_t& root) {
    constexpr size_t kMostNodes = std::numeric_limits<uint32_t>::max();
    if (numNodes > kMostNodes || nodeV.size() > kMostNodes - numNodes - 1) return false;
    std::vector<std::pair<const PackedNode*, uint32_t>> todoV;  // a node and its place
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

template <int kWalks>
void WalkedTrees::WalkTogether(const double* const* rowV, uint32_t* atV) const {
    const WalkNode* const nodes = nodeV.data();
    for (bool fArrived = false; !fArrived;) {
        for (int step = 0; step < kStride; ++step) {
            for (int i = 0; i < kWalks; ++i) {
                const WalkNode& node = nodes[atV[i]];
                const bool fLeft = rowV[i][node.splitFea] <= node.threshold;
                atV[i] = node.rson - static_cast<uint32_t>(fLeft);
            }
        }
        fArrived = true;
        for (int i = 0; i < kWalks; ++i) fArrived &= nodes[atV[i]].rson == atV[i];
    }
}

void WalkedTrees::Walk(const double* const* rowV, uint32_t* atV, int num) const {
    int i = 0;
    for (; i + kManyWalks <= num; i += kManyWalks) WalkTogether<kManyWalks>(rowV + i, atV + i);
    for (; i + kFewWalks <= num; i += kFewWalks) WalkTogether<kFewWalks>(rowV + i, atV + i);
    for (; i < num; ++i) WalkTogether<1>(rowV + i, atV + i);
}

}  // namespace engine
}  // namespace sylvora
