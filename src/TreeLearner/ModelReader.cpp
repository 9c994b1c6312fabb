// The model file, read; its grammar is in ModelWriter.cpp. Line breaks do not matter here, and
// what follows the last node (the debug report) is never looked at.
#include <algorithm>
#include <cmath>
#include <memory>
#include <string>
#include <vector>

#include "../TreeLearner.h"
#include "../god/NumberParsing.h"
#include "../god/Report.h"
#include "../god/Truncation.h"
#include "Arrays.h"
#include "ModelSource.h"

using sylvora::Fail;
using sylvora::ModelSource;

namespace {

const char kWrongFormat[] = "ERROR: Wrong model format!\n";

// Counts in a file are not trusted with memory: room is made for so many things more than have been
// read, then for twice as many.
size_t Ahead(size_t numRead, int count) {
    constexpr size_t kAhead = 1024;
    return std::min(static_cast<size_t>(count), 2 * numRead + kAhead);
}

int ReadHeader(ModelSource& source, TreeLearner& learner) {
    int nTreeArray = 0;
    source >> nTreeArray >> learner.numClass >> learner.dimFea;
    learner.numTree = nTreeArray;
    if (nTreeArray < 0 || learner.dimFea < 0) return Fail(kWrongFormat);
    if (learner.numClass < 0) {
        return Fail(
            "ERROR: Wrong model format at line 1 of the model, numClass must be nonnegtive\n!\n");
    }
    CheckCfgCLS& c = learner.CfgInfo;
    c.fRegCls = learner.numClass != 0 ? "CLS" : "REG";
    source >> c.valSmpRt >> c.ratio >> c.maxLeaf >> c.maxDepth >> c.numBound >> c.valTau >>
        c.lossFunc >> c.randomMode >> c.modelType;
    return 0;
}

// Where the file has too few means for all its columns, the others are 0 or, if they are many,
// there are none at all.
int ReadMeans(ModelSource& source, TreeLearner& learner) {
    VecDle meanV;
    const size_t dim = static_cast<size_t>(learner.dimFea);
    while (meanV.size() < dim && source.IsGood()) source >> meanV.emplace_back();
    sylvora::FreeArray(learner.featureMean);
    if (Ahead(meanV.size(), learner.dimFea) < dim) return 0;
    if (sylvora::AllocateArray(learner.featureMean, learner.dimFea, "allocating featureMean") !=
        0) {
        return -1;
    }
    std::copy(meanV.begin(), meanV.end(), learner.featureMean);
    return 0;
}

int ReadNode(ModelSource& source, const TreeLearner& learner, NodeCR& node) {
    int nodeId = -1, loadSplitFea = -1, loadLson = -1, loadRson = -1;
    double loadSplitElemFea = -1.0;
    std::string loadStatus, predictStr;
    source >> nodeId >> loadStatus >> loadSplitFea >> loadSplitElemFea >> loadLson >> loadRson >>
        predictStr;
    if (loadStatus != "INTERMEDIATE" && loadStatus != "TERMINAL") {
        return Fail(
            "ERROR: Node status must be INTERMEDIATE or TERMINAL, unrecognized node status: ",
            loadStatus, "\n");
    }
    if (loadSplitFea < -1 || loadSplitFea > learner.dimFea - 1) {
        return Fail("ERROR: Wrong node split feature: ", loadSplitFea, "\n!");
    }
    double avgPredict = 0.0;
    if (!sylvora::ParseNumber(predictStr, avgPredict)) {
        return Fail("ERROR: Failed to read avgPredict: \"", predictStr, "\" when loading model!\n");
    }
    if (learner.CfgInfo.fRegCls == "CLS" &&
        sylvora::Truncate<int>(avgPredict) >= learner.numClass) {
        return Fail("ERROR: Class label is large than class number when loading model!\n");
    }
    node.status = loadStatus;
    node.splitFea = loadSplitFea;
    node.splitElemFea = loadSplitElemFea;
    node.lson = loadLson;
    node.rson = loadRson;
    node.avgPredict = avgPredict;
    return 0;
}

void AppendNodes(const TreeLearner& learner, TreeCR& tree, size_t numNodes) {
    const CheckCfgCLS& c = learner.CfgInfo;
    tree.NodeV.reserve(numNodes);
    while (tree.NodeV.size() < numNodes) {
        tree.NodeV.push_back(new NodeCR(learner.dimFea, c.ratio, c.numBound, c.maxDepth));
    }
}

int ReadTree(ModelSource& source, const TreeLearner& learner, TreeCR& tree) {
    int loadDepth = 0;
    int nNode = -1;
    source >> loadDepth >> nNode;
    if (nNode < 0) return Fail(kWrongFormat);
    for (size_t j = 0; j < static_cast<size_t>(nNode); ++j) {
        if (j == tree.NodeV.size()) AppendNodes(learner, tree, Ahead(j, nNode));
        if (ReadNode(source, learner, *tree.NodeV[j]) != 0) return -1;
    }
    return 0;
}

// What trees are made with: each has a copy, so names longer than any that exist are left out.
CheckCfgCLS SettingsOfTrees(const CheckCfgCLS& c) {
    constexpr size_t kLongestName = 64;
    CheckCfgCLS settings = c;
    for (std::string* name : {&settings.lossFunc, &settings.randomMode, &settings.modelType}) {
        if (name->size() > kLongestName) *name = "";
    }
    return settings;
}

int ReadGroup(ModelSource& source, TreeLearner& learner, CheckCfgCLS& settings) {
    std::string nameA = "-1", nameB = "-1", nameC = "-1";
    int idxTreeArray = -1;
    int num = -1;
    double loadStep = 0.0;
    source >> nameA >> idxTreeArray >> nameB >> num >> nameC >> loadStep;
    if (nameA != "idxTreeArray:" || nameB != "size:" || nameC != "shrink:") {
        return Fail("idxTreeArray: ", nameA, ", size: ", nameB, ", shrink: ", nameC,
                    "!\nERROR: Model format is wrong!\n");
    }
    if (num < 0) return Fail(kWrongFormat);
    const size_t g = learner.TreeVV.size();
    learner.TreeVV.emplace_back();
    learner.StepLengthV[g] = static_cast<float>(loadStep);
    for (int i = 0; i < num; ++i) {
        auto tree = std::make_unique<TreeCR>(settings, nullptr);
        learner.TreeVV[g].push_back(tree.get());
        TreeCR* const kept = tree.release();
        if (ReadTree(source, learner, *kept) != 0) return -1;
    }
    return 0;
}

int ReadGroups(ModelSource& source, TreeLearner& learner) {
    CheckCfgCLS settings = SettingsOfTrees(learner.CfgInfo);
    const size_t numGroups = static_cast<size_t>(learner.numTree);
    learner.StepLengthV.clear();
    for (size_t g = 0; g < numGroups; ++g) {
        if (g == learner.StepLengthV.size()) learner.StepLengthV.resize(Ahead(g, learner.numTree));
        if (ReadGroup(source, learner, settings) != 0) return -1;
    }
    return 0;
}

// What keeps a tree from being walked, or nothing. Children come after their parent and have only
// one, so a walk that passes this ends; no check is left for the walk itself.
std::string FindNodeFault(const TreeCR& tree, size_t k, bool fClassification,
                          std::vector<bool>& fHasParentV) {
    const NodeCR& node = *tree.NodeV[k];
    if (node.status == "TERMINAL") {
        const bool fNoClass = fClassification && sylvora::Truncate<int>(node.avgPredict) < 0;
        return fNoClass ? "its class label is negative" : "";
    }
    if (node.splitFea < 0) return "it tests no feature";
    for (const int son : {node.lson, node.rson}) {
        if (son < 0 || static_cast<size_t>(son) >= tree.NodeV.size()) {
            return "it has a child outside its tree";
        }
        if (static_cast<size_t>(son) <= k) return "it has a child before itself";
        if (fHasParentV[static_cast<size_t>(son)]) return "it has a child of another node";
        fHasParentV[static_cast<size_t>(son)] = true;
    }
    return "";
}

std::string FindTreeFault(const TreeCR& tree, bool fClassification) {
    if (tree.NodeV.empty()) return "it has no nodes";
    std::vector<bool> fHasParentV(tree.NodeV.size(), false);
    for (size_t k = 0; k < tree.NodeV.size(); ++k) {
        const std::string fault = FindNodeFault(tree, k, fClassification, fHasParentV);
        if (!fault.empty()) return sylvora::Text("node ", k, ": ", fault);
    }
    return "";
}

// What the file has last.
std::string NameLast(const std::vector<std::vector<TreeCR*>>& groupV) {
    const std::string group = sylvora::Text("group ", groupV.size() - 1);
    if (groupV.back().empty()) return group;
    const size_t numNodes = groupV.back().back()->NodeV.size();
    return sylvora::Text(group, ", tree ", groupV.back().size() - 1, ", node ", numNodes - 1);
}

}  // namespace

int TreeLearner::LoadModelFull(std::string fileM) {
    return sylvora::Guarded([&] {
        if (RefuseAtWork("LoadModelFull") != 0) return -1;
        walkFault = "the model was not loaded in full";
        ModelSource source(fileM);
        if (!source.IsOpen()) return Fail("ERROR: Cannot open model file!\n");
        if (source.IsEmpty()) return Fail("ERROR: empty model file!\n");
        if (ReadHeader(source, *this) != 0) return -1;
        if (ReadMeans(source, *this) != 0) return -1;
        modelDim = meanDim = dimFea;
        RetireTrees();
        if (ReadGroups(source, *this) != 0) return -1;
        walkFault = FindFault();
        if (walkFault.empty() && source.IsCut() && !TreeVV.empty()) {
            walkFault = NameLast(TreeVV) + ": the file ends in it";
        }
        CompileEnsemble();
        if (CfgInfo.fPrint) sylvora::Print("Load model complete.\n");
        return 0;
    });
}

// Whether the ensemble as loaded can be scored: empty, or what stands in the way.
std::string TreeLearner::FindFault() const {
    if (featureMean == nullptr) {
        return sylvora::Text("it has no means for its ", dimFea, " columns");
    }
    for (size_t g = 0; g < TreeVV.size(); ++g) {
        if (!std::isfinite(StepLengthV[g])) {
            return sylvora::Text("group ", g, ": its shrink is not finite");
        }
        for (size_t t = 0; t < TreeVV[g].size(); ++t) {
            const std::string fault = FindTreeFault(*TreeVV[g][t], CfgInfo.fRegCls == "CLS");
            if (!fault.empty()) return sylvora::Text("group ", g, ", tree ", t, ", ", fault);
        }
    }
    return "";
}
