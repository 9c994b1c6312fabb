// Converts a tree that the engine grew into nodes of the public form.
#include <memory>

#include "../Tree.h"
#include "../god/Report.h"
#include "engine/train/GrownTree.h"

using sylvora::engine::GrownNode;

std::unique_ptr<NodeCR> TreeCR::MakeRecord(const GrownNode& grown) const {
    auto node = std::make_unique<NodeCR>(dimFeature, ratio, numBound, maxDepth);
    node->Init(grown.startDoc, grown.countDoc, grown.parent, grown.depth, fPrint, modelType,
               fRegCls);
    node->status = grown.splitFea < 0 ? "TERMINAL" : "INTERMEDIATE";
    node->splitFea = grown.splitFea;
    node->splitElemFea = grown.splitElemFea;
    node->fNarrowSplit = grown.fNarrow;
    node->lson = grown.lson;
    node->rson = grown.rson;
    node->countL = grown.countL;
    node->gradAll = grown.gradAll;
    node->wgtAll = grown.wgtAll;
    node->avgPredict = grown.Output();
    return node;
}

void TreeCR::Adopt(const std::vector<GrownNode>& grownV) {
    // Both forms have the nodes in the same order, so all indices stay valid.
    for (NodeCR* node : NodeV) delete node;
    NodeV.clear();
    numLeaf = 1;
    for (const GrownNode& grown : grownV) {
        if (grown.splitFea >= 0) ++numLeaf;  // a split replaces one leaf by two
    }
    depth = grownV.back().depth;
    if (takeNodes) {
        takeNodes(grownV);
    } else {
        NodeV.reserve(grownV.size());
        // Cannot throw: the capacity is reserved.
        for (const GrownNode& grown : grownV) NodeV.push_back(MakeRecord(grown).release());
    }
    if (fPrint) {
        sylvora::Print("Tree grow complete, depth:", depth, ", #leaves:", numLeaf, "\n");
    }
}
