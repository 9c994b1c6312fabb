// The compact form in which an ensemble's trees are kept: 32 bytes per node, one array per tree.
// Plain data; not synchronised.
#ifndef SYLVORA_ENGINE_SCORE_PACKEDTREES_H
#define SYLVORA_ENGINE_SCORE_PACKEDTREES_H

#include <algorithm>
#include <cstddef>
#include <memory>
#include <utility>
#include <vector>

namespace sylvora {
namespace engine {

// A node as a model file describes it. Members are named as in NodeCR. A leaf may also have a split
// and children; they are kept but mean nothing.
struct PackedNode {
    double splitElemFea = -1.0;
    double avgPredict = -1000.0;
    int splitFea = -1;
    int lson = -1;  // index into the tree's nodes, the root being 0; so is rson
    int rson = -1;
    bool fLeaf = true;
    bool fNarrow = false;  // see NarrowSplit.h; false in a loaded tree

    bool IsLeaf() const { return fLeaf; }
};

// One tree, the root first. Owns its nodes; movable, not copyable.
struct PackedTree {
    PackedTree() = default;
    // `count` nodes to be set, or copies. Both throw std::bad_alloc.
    PackedTree(size_t count, int treeDepth)
        : nodeV(count > 0 ? new PackedNode[count] : nullptr),
          numNodes(static_cast<unsigned>(count)),
          depth(treeDepth) {}
    PackedTree(const PackedNode* nodes, size_t count, int treeDepth)
        : PackedTree(count, treeDepth) {
        std::copy(nodes, nodes + count, nodeV.get());
    }

    std::unique_ptr<PackedNode[]> nodeV;
    unsigned numNodes = 0;
    int depth = 0;  // as in TreeCR: 0 in a loaded tree
};

// The trees of an ensemble, group after group. Groups may be empty.
struct PackedTrees {
    std::vector<PackedTree> treeV;
    std::vector<size_t> groupEndV;  // by group: the number of trees up to its end; never falls
    // By tree: how many of the rows that it was grown on reach each node. Shorter than treeV, or
    // with empty entries, where that is not known.
    std::vector<std::vector<int>> coverVV;

    size_t NumGroups() const { return groupEndV.size(); }
    size_t GroupBegin(size_t group) const { return group == 0 ? 0 : groupEndV[group - 1]; }
    size_t GroupSize(size_t group) const { return groupEndV[group] - GroupBegin(group); }
    // Makes a group of the trees that follow the last group.
    void EndGroup() { groupEndV.push_back(treeV.size()); }
    // The covers of the tree that is appended next. If that fails, the next call replaces them.
    void AddCovers(std::vector<int> coverV) {
        coverVV.resize(treeV.size());
        coverVV.push_back(std::move(coverV));
    }
    // Whether there are trees that no group has, and the first of them.
    bool HasOpenGroup() const { return treeV.size() > (NumGroups() > 0 ? groupEndV.back() : 0); }
    const PackedTree& FirstOpen() const { return treeV[NumGroups() > 0 ? groupEndV.back() : 0]; }
    // Frees all groups but the first `numGroups`.
    void KeepGroups(size_t numGroups) {
        groupEndV.resize(numGroups);
        DropOpenGroup();
    }
    // Frees the trees that no group has.
    void DropOpenGroup() {
        treeV.resize(groupEndV.empty() ? 0 : groupEndV.back());
        coverVV.resize(std::min(coverVV.size(), treeV.size()));
    }
};

}  // namespace engine
}  // namespace sylvora

#endif  // SYLVORA_ENGINE_SCORE_PACKEDTREES_H
