// Read access to a learner's trees; see EnsembleView.h.
#include "EnsembleView.h"

#include <utility>

#include "../TreeLearner.h"

namespace sylvora {
namespace {

// Keeps what scoring and a model file need of a node.
engine::PackedNode PackNode(const NodeCR& node) {
    engine::PackedNode packed;
    packed.splitElemFea = node.splitElemFea;
    packed.avgPredict = node.avgPredict;
    packed.splitFea = node.splitFea;
    packed.lson = node.lson;
    packed.rson = node.rson;
    packed.fLeaf = IsLeaf(node);
    packed.fNarrow = node.fNarrowSplit;
    return packed;
}

}  // namespace

engine::PackedNode TreeView::Node(size_t k) const {
    return packed ? packed->nodeV[k] : PackNode(*records->NodeV[k]);
}

const char* TreeView::Status(size_t k) const {
    if (packed == nullptr) return records->NodeV[k]->status.c_str();
    return packed->nodeV[k].fLeaf ? "TERMINAL" : "INTERMEDIATE";
}

EnsembleView::EnsembleView(const TreeLearner& learner)
    : groupV(learner.TreeVV), packed(learner.packedTrees.get()) {}

size_t EnsembleView::NumTrees() const {
    if (packed != nullptr) return packed->groupEndV.empty() ? 0 : packed->groupEndV.back();
    size_t numTrees = 0;
    for (const auto& group : groupV) numTrees += group.size();
    return numTrees;
}

engine::PackedTree Pack(const TreeCR& tree) {
    std::vector<engine::PackedNode> nodeV;
    nodeV.reserve(tree.NodeV.size());
    for (const NodeCR* node : tree.NodeV) nodeV.push_back(PackNode(*node));
    return {nodeV.data(), nodeV.size(), tree.depth};
}

std::vector<int> CoversOf(const TreeCR& tree) {
    std::vector<int> coverV;
    coverV.reserve(tree.NodeV.size());
    for (const NodeCR* node : tree.NodeV) coverV.push_back(node->countDoc);
    return coverV;
}

void AppendPacked(const TreeCR& tree, bool fCovers, engine::PackedTrees& trees) {
    if (fCovers) trees.AddCovers(CoversOf(tree));
    trees.treeV.push_back(Pack(tree));
}

void AppendPacked(const std::vector<engine::GrownNode>& grownV, bool fCovers,
                  engine::PackedTrees& trees) {
    if (fCovers) {
        std::vector<int> coverV;
        coverV.reserve(grownV.size());
        for (const engine::GrownNode& grown : grownV) coverV.push_back(grown.countDoc);
        trees.AddCovers(std::move(coverV));
    }
    engine::PackedTree tree(grownV.size(), grownV.back().depth);
    for (size_t k = 0; k < grownV.size(); ++k) {
        const engine::GrownNode& grown = grownV[k];
        engine::PackedNode& packed = tree.nodeV[k];
        packed.splitElemFea = grown.splitElemFea;
        packed.avgPredict = grown.Output();
        packed.splitFea = grown.splitFea;
        packed.lson = grown.lson;
        packed.rson = grown.rson;
        packed.fLeaf = grown.splitFea < 0;
        packed.fNarrow = grown.fNarrow;
    }
    trees.treeV.push_back(std::move(tree));
}

}  // namespace sylvora
