// Interleaved walks, so that memory accesses overlap; see PackedWalk.h.
#include "PackedWalk.h"

#include <algorithm>

namespace sylvora {
namespace engine {
namespace {

// Walks interleaved; the smaller number is for what is left over.
constexpr int kManyWalks = 16;
constexpr int kFewWalks = 4;
// Steps between checks whether all walks have reached a leaf.
constexpr int kStepsPerCheck = 4;

// Without a branch, which would be mispredicted.
inline int Choose(bool fFirst, int first, int second) {
    return second ^ ((first ^ second) & -static_cast<int>(fFirst));
}

// A walk that has reached a leaf stays there. A leaf may have any column, so it reads the first.
template <int kWalks>
void WalkInterleaved(const PackedNode* nodes, const double* const* rowV, int* atV) {
    for (bool fAtLeaves = false; !fAtLeaves;) {
        for (int step = 0; step < kStepsPerCheck; ++step) {
            for (int i = 0; i < kWalks; ++i) {
                const PackedNode& node = nodes[atV[i]];
                const double value = rowV[i][Choose(node.fLeaf, 0, node.splitFea)];
                const int child = Choose(value <= node.splitElemFea, node.lson, node.rson);
                atV[i] = Choose(node.fLeaf, atV[i], child);
            }
        }
        fAtLeaves = true;
        for (int i = 0; i < kWalks; ++i) fAtLeaves &= nodes[atV[i]].fLeaf;
    }
}

}  // namespace

void FindLeaves(const PackedTree& tree, const double* const* rowV, int numRows, int* atV) {
    const PackedNode* const nodes = tree.nodeV.get();
    std::fill_n(atV, numRows, 0);
    int i = 0;
    for (; i + kManyWalks <= numRows; i += kManyWalks) {
        WalkInterleaved<kManyWalks>(nodes, rowV + i, atV + i);
    }
    for (; i + kFewWalks <= numRows; i += kFewWalks) {
        WalkInterleaved<kFewWalks>(nodes, rowV + i, atV + i);
    }
    for (; i < numRows; ++i) WalkInterleaved<1>(nodes, rowV + i, atV + i);
}

}  // namespace engine
}  // namespace sylvora
