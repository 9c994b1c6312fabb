// Walks through packed trees; see PackedWalk.h.
#include "PackedWalk.h"

#include <algorithm>

#include "InterleavedWalks.h"

namespace sylvora {
namespace engine {
namespace {

// Without a branch, which would be mispredicted.
inline int Choose(bool fFirst, int first, int second) {
    return second ^ ((first ^ second) & -static_cast<int>(fFirst));
}

}  // namespace

// A leaf may have any column, so it reads the first.
void FindLeaves(const PackedTree& tree, const double* const* rowV, int numRows, int* atV) {
    const PackedNode* const nodes = tree.nodeV.get();
    std::fill_n(atV, numRows, 0);
    const auto step = [nodes](const double* row, int at) {
        const PackedNode& node = nodes[at];
        const double value = row[Choose(node.fLeaf, 0, node.splitFea)];
        const int child = Choose(value <= node.splitElemFea, node.lson, node.rson);
        return Choose(node.fLeaf, at, child);
    };
    WalkInterleaved(rowV, atV, numRows, step, [nodes](int at) { return nodes[at].fLeaf; });
}

}  // namespace engine
}  // namespace sylvora
