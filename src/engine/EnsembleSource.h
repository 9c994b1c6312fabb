// An ensemble in plain words: what is compiled for scoring.
#ifndef SYLVORA_ENGINE_ENSEMBLESOURCE_H
#define SYLVORA_ENGINE_ENSEMBLESOURCE_H

#include <cstddef>
#include <vector>

namespace sylvora {
namespace engine {

struct SourceNode {
    int splitFea;  // -1: a leaf
    int lson;      // counted from the tree's root, as is rson
    int rson;
    double splitElemFea;
    double value;  // of a leaf

    bool IsLeaf() const { return splitFea < 0; }
};

// The groups in order, each with its trees in order.
struct EnsembleSource {
    struct Group {
        size_t numTrees;
        double shrink;
    };
    std::vector<SourceNode> nodeV;   // tree after tree, the root first
    std::vector<size_t> firstNodeV;  // of each tree
    std::vector<Group> groupV;
    int numClass = 0;  // 0 for regression
    int dimFea = 0;

    size_t NumTrees() const { return firstNodeV.size(); }
    const SourceNode* Tree(size_t tree) const { return nodeV.data() + firstNodeV[tree]; }
    size_t NumNodes(size_t tree) const {
        return (tree + 1 < NumTrees() ? firstNodeV[tree + 1] : nodeV.size()) - firstNodeV[tree];
    }
};

}  // namespace engine
}  // namespace sylvora

#endif  // SYLVORA_ENGINE_ENSEMBLESOURCE_H
