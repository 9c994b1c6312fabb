// Grows one tree. The vector of nodes is also the work queue: nodes are handled in the order in
// which they were appended. Each is split into two children at the end of the vector, or becomes a
// leaf.
#include "Growth.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdlib>
#include <memory>
#include <string>

#include "../Node/SampledColumns.h"
#include "../god/Report.h"

using sylvora::Fail;

namespace {

// An upper bound on the number of split nodes: min(maxLeaf, 2^maxDepth, numRows) + 2. A tree on
// numRows rows has at most that many leaves, because no side of a split is empty.
int MaxSplitNodes(int maxLeaf, int maxDepth, int numRows) {
    const double full = std::ldexp(1.0f, maxDepth);
    const double bound =
        std::min({static_cast<double>(maxLeaf), full, static_cast<double>(numRows)});
    return static_cast<int>(std::max(bound, 0.0)) + 2;
}

}  // namespace

TreeCR::TreeCR(CheckCfgCLS& c, SamplingFeatureType sft)
    : numThreadNode(c.numThread),
      numBound(c.numBound),
      maxLeaf(c.maxLeaf),
      maxDepth(c.maxDepth),
      numClass(c.numClass),
      treeSFT(sft),
      ratio(c.ratio),
      fPrint(c.fPrint),
      modelType(c.modelType),
      CfgInfo(c),
      fRegCls(c.fRegCls) {}

TreeCR::~TreeCR() {
    for (NodeCR* node : NodeV) delete node;
}

int TreeCR::Init(int dimfea, int selectnum, int num) {
    return sylvora::Guarded([&] {
        dimFeature = dimfea;
        numData = num;
        numFeaSel = sylvora::NumSampledColumns(dimfea, ratio);
        // A worker without a slot would have nothing to do.
        numThreadNode = std::min(numThreadNode, numFeaSel);
        auto root = std::make_unique<NodeCR>(dimFeature, ratio, numBound, maxDepth);
        if (root->Init(0, selectnum, -1, 0, fPrint, modelType, fRegCls) != 0) {
            return Fail("ERROR: Failed to init tree root!\n");
        }
        // Only a reservation, with two children per split; a tree may grow beyond it.
        const int maxSplit = modelType == "RandomForest" ? numData / std::max(numBound, 1)
                                                         : MaxSplitNodes(maxLeaf, maxDepth, num);
        NodeV.reserve(2 * static_cast<size_t>(std::max(maxSplit, 0)) + 2);
        NodeV.push_back(root.release());
        return 0;
    });
}

int TreeCR::GrowHalf(double** featureVV, double* gradV, int* numDocPairQueV, int*& indexV,
                     bool /*fPrintLeafDis*/, std::ofstream& opt_debug, fea_debuginfo_t*& fea_debug,
                     long* seed) {
    Growth growth = {featureVV, gradV, numDocPairQueV, indexV, seed, true, nullptr, {}, {}};
    return GrowAndReport(growth, opt_debug, fea_debug);
}

int TreeCR::GrowOne(double** featureVV, double* gradV, int* numDocPairQueV, int*& indexV,
                    bool /*fPrintLeafDis*/, std::ofstream& opt_debug, fea_debuginfo_t*& fea_debug,
                    long* seed) {
    Growth growth = {featureVV, gradV, numDocPairQueV, indexV, seed, false, nullptr, {}, {}};
    return GrowAndReport(growth, opt_debug, fea_debug);
}

// Grows the tree and writes its debug records. `record` is declared first, so it is freed on every
// way out.
int TreeCR::GrowAndReport(Growth& growth, std::ofstream& opt_debug, fea_debuginfo_t* fea_debug) {
    return sylvora::Guarded([&] {
        sylvora::DebugRecord record(singleTreeDebug, fea_debug);
        fDebug = opt_debug.is_open();
        if (CheckWeights(growth) != 0) return -1;
        if (fDebug) {
            const int maxSplit = MaxSplitNodes(maxLeaf, maxDepth, NodeV[0]->countDoc);
            if (record.Allocate(maxSplit, numFeaSel) != 0) return -1;
            growth.record = &record;
        }
        // At least one entry each: NodeCR writes through data(), which may be null for none.
        growth.selFeaV.assign(static_cast<size_t>(std::max(numFeaSel, 1)), -1);
        growth.tids.resize(static_cast<size_t>(std::max(numThreadNode, 1)));
        int numSplit = 0;
        if (Grow(growth, numSplit) != 0) return -1;
        depth = NodeV.back()->depth;
        if (setNodeValues) {
            setNodeValues(growth.indexV);
            if (fDebug) record.UpdateValues(NodeV);
        }
        if (fPrint) {
            sylvora::Print("Tree grow complete, depth:", depth, ", #leaves:", numLeaf, "\n");
        }
        if (fDebug) record.Write(opt_debug, numSplit);
        return 0;
    });
}

// Refuses weights whose sum may overflow the int in which a node adds them up.
// Classification ignores the weights.
int TreeCR::CheckWeights(const Growth& growth) const {
    if (fRegCls != "REG") return 0;
    const int numRows = NodeV[0]->countDoc;
    long long total = 0;
    for (int i = 0; i < numRows; ++i) {
        total += std::llabs(growth.numDocPairQueV[growth.indexV[i]]);
    }
    if (total <= INT_MAX) return 0;
    return Fail("ERROR: The weights of the tree's ", numRows, " rows add up to ", total,
                ", more than ", INT_MAX, ": use smaller weights!\n");
}

// Loop invariant: the nodes before idxNode are finished; those from idxNode on wait for their turn.
// The slices of the leaves and of the waiting nodes together are the whole row index, without
// overlap. numLeaf counts these nodes, that is, the leaves if no further node were split.
int TreeCR::Grow(Growth& growth, int& numSplit) {
    numLeaf = 1;
    bool fLimited = false;  // the limit of leaves was reached
    for (size_t idxNode = 0; idxNode < NodeV.size();) {
        NodeCR& node = *NodeV[idxNode];
        if (ComputeLeafValue(growth, node) != 0) {
            return Fail("ERROR: Failed to get grad sum of a node!\n");
        }
        if (node.status != "TOSPLIT") {
            node.ReleaseClassCounts();  // a leaf keeps only its class
            ++idxNode;
            continue;
        }
        double criteria = -1.0;
        if (SplitNode(growth, node, criteria) != 0) return -1;
        // A node without a usable split has become "TERMINAL" and is visited again. Its leaf value
        // is then computed a second time, with the same result.
        if (node.status == "TERMINAL") continue;
        if (growth.record != nullptr) growth.record->Add(node, growth.selFeaV, criteria);
        if (AppendChildren(node, static_cast<int>(idxNode)) != 0) return -1;
        ++numSplit;
        ++idxNode;
        ++numLeaf;
        if (!fLimited && numLeaf >= maxLeaf && modelType != "RandomForest") {
            // All waiting nodes become leaves. They are still visited, for their leaf values.
            fLimited = true;
            for (size_t i = idxNode; i < NodeV.size(); ++i) NodeV[i]->status = "TERMINAL";
        }
    }
    return 0;
}

// Computes the output of a node, which is its leaf value if it is not split. The search needs the
// sums or class counts that this also computes.
int TreeCR::ComputeLeafValue(Growth& growth, NodeCR& node) {
    const int* indexV = growth.indexV;
    if (fRegCls != "REG") return node.GetGradSumCls(growth.gradV, indexV, numClass);
    return node.GetGradSum(growth.gradV, indexV, growth.numDocPairQueV);
}

// Samples columns, searches the best split over them and partitions the node's rows. Leaves the
// node "INTERMEDIATE", or "TERMINAL" without a usable split. `criteria` is the score of the split.
int TreeCR::SplitNode(Growth& growth, NodeCR& node, double& criteria) {
    if (node.SamplingFeature(treeSFT, growth.selFeaV.data(), growth.seed) != 0) {
        fSamplerThrew = node.fSamplerThrew;
        return Fail("ERROR: Failed to sampling feature!\n");
    }
    if (SearchNode(growth, node, criteria) != 0) {
        return Fail("ERROR: Failed to get split point!\n");
    }
    // Only the search needs the counts; free them now rather than with the tree.
    node.ReleaseClassCounts();
    if (ranks != nullptr) return SplitByRanks(growth, node, criteria);
    if (node.DataSplit(growth.featureVV, growth.indexV) != 0) {
        return Fail("ERROR: Failed to split data!\n");
    }
    return 0;
}

// The casts and references only fit the fixed signatures of NodeCR, which take pointers by
// reference. The searches write nothing through them.
int TreeCR::SearchNode(Growth& growth, NodeCR& node, double& criteria) {
    const double** featureVV = const_cast<const double**>(growth.featureVV);
    const int* indexV = growth.indexV;
    const double*& gradV = growth.gradV;
    const int*& weightV = growth.numDocPairQueV;
    pthread_t* tids = growth.tids.data();
    if (fRegCls == "REG") {
        return growth.fThreaded
                   ? node.GetSplitPoint(featureVV, indexV, weightV, gradV, criteria, numThreadNode,
                                        tids)
                   : node.GetSplitPointOne(featureVV, indexV, weightV, gradV, criteria);
    }
    return growth.fThreaded
               ? node.GetSplitPointCls(featureVV, indexV, numClass, gradV, criteria, numThreadNode,
                                       tids)
               : node.GetSplitPointClsOne(featureVV, indexV, numClass, gradV, criteria);
}

// Appends both children of `node`, which has index `idxNode`. They share its slice: the first
// countL rows go to the left child, the others to the right one. NodeV owns a child as soon as
// push_back has succeeded; only then is it released.
int TreeCR::AppendChildren(NodeCR& node, int idxNode) {
    const auto append = [&](int startDoc, int countDoc) {
        auto child = std::make_unique<NodeCR>(dimFeature, ratio, numBound, maxDepth);
        const int initialised =
            child->Init(startDoc, countDoc, idxNode, node.depth + 1, fPrint, modelType, fRegCls);
        if (initialised == 0) {
            NodeV.push_back(child.get());
            static_cast<void>(child.release());
        }
        return initialised;
    };
    if (NodeV.size() > size_t{INT_MAX} - 1) {
        return Fail("ERROR: A tree has more than ", INT_MAX, " nodes: use a larger numBound!\n");
    }
    // The parent must know the indices before the vector grows; `node` itself does not move, as the
    // vector holds pointers.
    node.lson = static_cast<int>(NodeV.size());
    node.rson = node.lson + 1;
    if (append(node.startDoc, node.countL) != 0) {
        return Fail("ERROR: Failed to init left son node!\n");
    }
    if (append(node.startDoc + node.countL, node.countDoc - node.countL) != 0) {
        return Fail("ERROR: Failed to init right son node!\n");
    }
    return 0;
}
