// Converts a tree that the engine grew into nodes of the public form.
#include <memory>

#include "../Tree.h"
#include "../god/Report.h"
#include "engine/train/GrownTree.h"

void TreeCR::Adopt(const std::vector<sylvora::engine::GrownNode>& grownV) {
    // Both forms have the nodes in the same order, so all indices stay valid.
    for (NodeCR* node : NodeV) delete node;
    NodeV.clear();
    NodeV.reserve(grownV.size());
    numLeaf = 1;
    for (const sylvora::engine::GrownNode& grown : grownV) {
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
        // majority is the class in classification and negative in regression.
        node->avgPredict = grown.majority >= 0 ? grown.majority : grown.gradAll / grown.wgtAll;
        if (grown.splitFea >= 0) ++numLeaf;  // a split replaces one leaf by two
        NodeV.push_back(node.release());     // cannot throw: the capacity is reserved
    }
    depth = NodeV.back()->depth;
    if (fPrint) {
        sylvora::Print("Tree grow complete, depth:", depth, ", #leaves:", numLeaf, "\n");
    }
}
