// Loading a model. Its text is read into packed trees. These are checked for faults that would make
// a walk fail and, unless the learner keeps its trees packed, converted to records.
#include <algorithm>
#include <cmath>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "../TreeLearner.h"
#include "../god/Report.h"
#include "../god/Truncation.h"
#include "../god/UsableMemory.h"
#include "CallScope.h"
#include "Description.h"
#include "EnsembleView.h"
#include "ModelParser.h"

using sylvora::Fail;
using sylvora::ModelOrigin;
using sylvora::ModelSource;
using sylvora::engine::PackedNode;
using sylvora::engine::PackedTree;
using sylvora::engine::PackedTrees;

namespace {

constexpr double kBlock = 2 * sizeof(void*);  // what the allocator keeps beside each block
constexpr double kPointer = sizeof(void*);    // of a tree or a node, in its vector
constexpr double kGigabyte = 1e9;

// Bytes that packed trees may take. A growing array of trees can hold twice its size, next to the
// array that it is copied from, hence the factor of 3.
double PackedBytes(size_t numTrees, size_t numNodes) {
    return (3.0 * sizeof(PackedTree) + kBlock) * static_cast<double>(numTrees) +
           sizeof(PackedNode) * static_cast<double>(numNodes);
}

// Bytes that the same trees take as records.
double RecordBytes(size_t numTrees, size_t numNodes) {
    constexpr double kLongNames = 4 * 64;  // strings of the settings, copied into each tree
    return (sizeof(TreeCR) + kLongNames + kBlock + kPointer) * static_cast<double>(numTrees) +
           (sizeof(NodeCR) + kBlock + kPointer) * static_cast<double>(numNodes);
}

// Compares what a model needs with what the process may use. All amounts in bytes.
struct MemoryLimit {
    const double present = sylvora::UsableMemory();

    // Returns 0, or -1 after a message.
    int Check(double wanted, size_t numTrees, size_t numNodes) const {
        if (wanted <= present) return 0;
        return Fail("ERROR: The model's ", numTrees, " trees with ", numNodes, " nodes take ",
                    wanted / kGigabyte, " GB of memory, there are ", present / kGigabyte, "!\n");
    }
};

// Appends the trees to `trees`, which it borrows. Checks before each allocation that the memory is
// there, so that a model that is too large ends with a message and not with a killed process.
class PackingSink : public sylvora::ModelSink {
  public:
    explicit PackingSink(PackedTrees& target) : trees(target) {}

    int BeginGroup() override {
        if (fOpen) trees.EndGroup();
        fOpen = true;
        return 0;
    }
    int ReserveNodes(size_t count) override {
        numReading = std::max(numReading, count);
        const size_t numTrees = trees.treeV.size() + 1;
        const size_t numAll = numNodes + count;
        return limit.Check(PackedBytes(numTrees, numAll) + ReadingBytes(), numTrees, numAll);
    }
    int TakeTree(const std::vector<PackedNode>& nodeV, size_t numClaimed) override {
        numNodes += nodeV.size();
        numUnfilled = static_cast<int>(numClaimed - nodeV.size());
        const size_t numTrees = trees.treeV.size() + 1;
        if (limit.Check(PackedBytes(numTrees, numNodes) + ReadingBytes(), numTrees, numNodes) !=
            0) {
            return -1;
        }
        trees.treeV.emplace_back(nodeV.data(), nodeV.size(), 0);
        return 0;
    }
    // Ends the last group. Call it after parsing, also after a failure.
    void Finish() {
        if (fOpen) trees.EndGroup();
    }

    // Whether there is memory for the trees as records as well. Returns 0, or -1 after a message.
    int CheckRecords() const { return limit.Check(Bytes(), trees.treeV.size(), numNodes); }
    // The same without a message.
    bool CanHoldRecords() const { return Bytes() <= limit.present; }
    int NumUnfilled() const { return numUnfilled; }  // nodes of the last tree that were not read

  private:
    double Bytes() const {
        const size_t numTrees = trees.treeV.size();
        return PackedBytes(numTrees, numNodes) + ReadingBytes() + RecordBytes(numTrees, numNodes);
    }
    // Bytes of the array that a tree is read into. While it grows, the old one, half as large, is
    // there as well.
    double ReadingBytes() const {
        return 1.5 * sizeof(PackedNode) * static_cast<double>(numReading);
    }

    const MemoryLimit limit;
    PackedTrees& trees;
    bool fOpen = false;  // a group has begun
    size_t numNodes = 0;
    size_t numReading = 0;  // the most nodes that were reserved for one tree
    int numUnfilled = 0;
};

// The fault of node `k` that would make a walk of the tree fail; empty if there is none. Children
// come after their parent, and no node has two parents. So every walk ends at a leaf, and walks
// need no checks of their own. Marks the children of `k` in fHasParentV.
std::string FindNodeFault(const PackedTree& tree, size_t k, bool fClassification,
                          std::vector<bool>& fHasParentV) {
    const PackedNode& node = tree.nodeV[k];
    if (node.IsLeaf()) {
        const bool fNoClass = fClassification && sylvora::Truncate<int>(node.avgPredict) < 0;
        return fNoClass ? "its class label is negative" : "";
    }
    if (node.splitFea < 0) return "it tests no feature";
    for (const int child : {node.lson, node.rson}) {
        if (child < 0 || static_cast<size_t>(child) >= tree.numNodes) {
            return "it has a child outside its tree";
        }
        if (static_cast<size_t>(child) <= k) return "it has a child before itself";
        if (fHasParentV[static_cast<size_t>(child)]) return "it has a child of another node";
        fHasParentV[static_cast<size_t>(child)] = true;
    }
    return "";
}

// The first fault of a tree; empty if there is none.
std::string FindTreeFault(const PackedTree& tree, bool fClassification) {
    if (tree.numNodes == 0) return "it has no nodes";
    std::vector<bool> fHasParentV(tree.numNodes, false);
    for (size_t k = 0; k < tree.numNodes; ++k) {
        const std::string fault = FindNodeFault(tree, k, fClassification, fHasParentV);
        if (!fault.empty()) return sylvora::Text("node ", k, ": ", fault);
    }
    return "";
}

// Why the loaded ensemble cannot be scored; empty if it can.
std::string FindFault(const TreeLearner& learner, const PackedTrees& trees) {
    if (learner.featureMean == nullptr) {
        return sylvora::Text("it has no means for its ", learner.dimFea, " columns");
    }
    size_t t = 0;
    for (size_t g = 0; g < trees.NumGroups(); ++g) {
        if (!std::isfinite(learner.StepLengthV[g])) {
            return sylvora::Text("group ", g, ": its shrink is not finite");
        }
        for (; t < trees.groupEndV[g]; ++t) {
            const std::string fault =
                FindTreeFault(trees.treeV[t], learner.CfgInfo.fRegCls == "CLS");
            if (fault.empty()) continue;
            return sylvora::Text("group ", g, ", tree ", t - trees.GroupBegin(g), ", ", fault);
        }
    }
    return "";
}

// Names the last thing that the file has, for messages. There must be a group.
std::string NameLast(const PackedTrees& trees) {
    const size_t g = trees.NumGroups() - 1;
    std::string group = sylvora::Text("group ", g);
    if (trees.GroupSize(g) == 0) return group;
    return sylvora::Text(group, ", tree ", trees.GroupSize(g) - 1, ", node ",
                         trees.treeV.back().numNodes - 1);
}

// The settings to make trees with. Each tree has a copy, so names that are too long to be valid are
// dropped: a damaged file could make them as long as it likes.
CheckCfgCLS SettingsOfTrees(const CheckCfgCLS& c) {
    constexpr size_t kLongestName = 64;
    CheckCfgCLS settings = c;
    for (std::string* name : {&settings.lossFunc, &settings.randomMode, &settings.modelType}) {
        if (name->size() > kLongestName) *name = "";
    }
    return settings;
}

// Copies a packed node into a record. Its remaining members keep their defaults.
void FillRecord(const PackedNode& packed, NodeCR& node) {
    node.status = packed.IsLeaf() ? "TERMINAL" : "INTERMEDIATE";
    node.splitFea = packed.splitFea;
    node.splitElemFea = packed.splitElemFea;
    node.lson = packed.lson;
    node.rson = packed.rson;
    node.avgPredict = packed.avgPredict;
}

// A tree of records with the nodes of `packed`, then `numUnfilled` nodes with default values.
std::unique_ptr<TreeCR> MakeRecords(const TreeLearner& learner, CheckCfgCLS& settings,
                                    const PackedTree& packed, size_t numUnfilled) {
    const CheckCfgCLS& c = learner.CfgInfo;
    auto tree = std::make_unique<TreeCR>(settings, nullptr);
    const size_t numNodes = packed.numNodes + numUnfilled;
    tree->NodeV.reserve(numNodes);
    for (size_t k = 0; k < numNodes; ++k) {
        tree->NodeV.push_back(new NodeCR(learner.dimFea, c.ratio, c.numBound, c.maxDepth));
        if (k < packed.numNodes) FillRecord(packed.nodeV[k], *tree->NodeV.back());
    }
    return tree;
}

}  // namespace

// Fills TreeVV from the packed trees. If the file turned out to be damaged inside the last tree,
// that tree gets `numUnfilled` nodes with default values as well.
void TreeLearner::MakeRecords(const PackedTrees& trees, int numUnfilled) {
    CheckCfgCLS settings = SettingsOfTrees(CfgInfo);
    size_t t = 0;
    for (const size_t end : trees.groupEndV) {
        std::vector<TreeCR*>& group = TreeVV.emplace_back();
        group.reserve(end - t);
        for (; t < end; ++t) {
            const bool fLast = t + 1 == trees.treeV.size();
            group.push_back(::MakeRecords(*this, settings, trees.treeV[t],
                                          static_cast<size_t>(fLast ? numUnfilled : 0))
                                .release());
        }
    }
}

int TreeLearner::LoadModelFull(std::string fileM) {
    const CallScope scope(*this);
    if (RefuseAtWork("LoadModelFull") != 0) return -1;
    return LoadFrom(ModelOrigin(fileM), nullptr);
}

// Loads a model and, unless `description` is null, the block behind it; see ModelText.
int TreeLearner::LoadFrom(const ModelOrigin& origin, sylvora::ModelDescription* description) {
    return sylvora::Guarded([&] {
        // Until the end of this function scoring and saving are refused, so that a failure or an
        // exception leaves no half-loaded model in use.
        walkFault = "the model was not loaded in full";
        fLoadFailed = true;
        ModelSource source(origin, description != nullptr);
        if (!source.IsOpen()) return Fail("ERROR: Cannot open model file!\n");
        if (source.IsEmpty()) return Fail("ERROR: empty model file!\n");
        if (sylvora::ParseHead(source, *this) != 0) return -1;
        modelDim = meanDim = dimFea;
        RetireTrees();
        auto trees = std::make_shared<PackedTrees>();
        PackingSink sink(*trees);
        int status = sylvora::ParseGroups(source, *this, sink);
        sink.Finish();
        // After a failure, too, the trees read so far go to TreeVV if memory allows.
        if (!fPacked) {
            if (status == 0) status = sink.CheckRecords();
            if (sink.CanHoldRecords()) MakeRecords(*trees, sink.NumUnfilled());
        }
        if (status != 0) return -1;
        if (fPacked) packedTrees = trees;
        const bool fCut = source.IsCut();
        if (description != nullptr && ReadDescription(source, *this, *description) != 0) return -1;
        // The load has succeeded, and the model may be saved again. A fault only prevents scoring.
        fLoadFailed = false;
        walkFault = FindFault(*this, *trees);
        if (walkFault.empty() && fCut && trees->NumGroups() > 0) {
            walkFault = NameLast(*trees) + ": the file ends in it";
        }
        CompileEnsemble(trees);
        if (CfgInfo.fPrint) sylvora::Print("Load model complete.\n");
        return 0;
    });
}

int sylvora::ModelText::Load(const char* text, size_t size, TreeLearner& learner,
                             ModelDescription* description) {
    const TreeLearner::CallScope scope(learner);
    if (learner.RefuseAtWork("ModelText::Load") != 0) return -1;
    if (text == nullptr && size > 0) return Fail("ERROR: The text of the model is null!\n");
    return learner.LoadFrom(ModelOrigin(text, size), description);
}

int sylvora::ModelText::LoadFile(const std::string& file, TreeLearner& learner,
                                 ModelDescription& description) {
    const TreeLearner::CallScope scope(learner);
    if (learner.RefuseAtWork("ModelText::LoadFile") != 0) return -1;
    return learner.LoadFrom(ModelOrigin(file), &description);
}
