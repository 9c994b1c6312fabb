// Parsing a model; see ModelParser.h.
//
// Every value is preset to something that no model has before it is read: after a damaged token the
// presets fail the checks (see ModelSource).
#include "ModelParser.h"

#include <algorithm>
#include <string>

#include "../god/NumberParsing.h"
#include "../god/Report.h"
#include "../god/Truncation.h"
#include "Arrays.h"

namespace sylvora {
namespace {

const char kWrongFormat[] = "ERROR: Wrong model format!\n";

// How many elements to reserve when `numRead` of the `count` that the file claims have been read. A
// damaged or hostile file can claim any count, so memory grows with what has really been read.
size_t Ahead(size_t numRead, int count) {
    constexpr size_t kAhead = 1024;
    return std::min(static_cast<size_t>(count), 2 * numRead + kAhead);
}

// The first two lines. A model with classes is a classification.
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

// The column means. If the file has fewer than it has columns, the missing ones are 0; if far fewer
// (see Ahead), featureMean stays null, so that a damaged count takes no memory.
int ReadMeans(ModelSource& source, TreeLearner& learner) {
    VecDle meanV;
    const size_t dim = static_cast<size_t>(learner.dimFea);
    while (meanV.size() < dim && source.IsGood()) source >> meanV.emplace_back();
    FreeArray(learner.featureMean);
    if (Ahead(meanV.size(), learner.dimFea) < dim) return 0;
    if (AllocateArray(learner.featureMean, learner.dimFea, "allocating featureMean") != 0) {
        return -1;
    }
    std::copy(meanV.begin(), meanV.end(), learner.featureMean);
    return 0;
}

// The fields of one node as in the file. Reused for all nodes, so that the strings keep their
// memory.
struct NodeLine {
    std::string status, predict;
    int nodeId, splitFea, lson, rson;
    double splitElemFea;
};

// Reads one node and checks each field by itself. Whether nodes form a tree is checked later, in
// ModelReader.cpp.
int ReadNode(ModelSource& source, const TreeLearner& learner, NodeLine& line,
             engine::PackedNode& node) {
    line.status.clear();
    line.predict.clear();
    line.nodeId = line.splitFea = line.lson = line.rson = -1;
    line.splitElemFea = -1.0;
    source >> line.nodeId >> line.status >> line.splitFea >> line.splitElemFea >> line.lson >>
        line.rson >> line.predict;
    if (line.status != "INTERMEDIATE" && line.status != "TERMINAL") {
        return Fail(
            "ERROR: Node status must be INTERMEDIATE or TERMINAL, unrecognized node status: ",
            line.status, "\n");
    }
    if (line.splitFea < -1 || line.splitFea > learner.dimFea - 1) {
        return Fail("ERROR: Wrong node split feature: ", line.splitFea, "\n!");
    }
    if (!ParseNumber(line.predict, node.avgPredict)) {
        return Fail("ERROR: Failed to read avgPredict: \"", line.predict,
                    "\" when loading model!\n");
    }
    if (learner.CfgInfo.fRegCls == "CLS" && Truncate<int>(node.avgPredict) >= learner.numClass) {
        return Fail("ERROR: Class label is large than class number when loading model!\n");
    }
    node.fLeaf = line.status == "TERMINAL";
    node.splitFea = line.splitFea;
    node.splitElemFea = line.splitElemFea;
    node.lson = line.lson;
    node.rson = line.rson;
    return 0;
}

// Reads the groups and hands their trees to the sink. Its buffers are reused from tree to tree.
class GroupReader {
  public:
    GroupReader(ModelSource& modelSource, TreeLearner& target, ModelSink& modelSink)
        : source(modelSource), learner(target), sink(modelSink) {}

    // Invariant: shrinkV[0..g) is read; the entries reserved ahead are 0 until then.
    int Read() {
        const size_t numGroups = static_cast<size_t>(learner.numTree);
        VecFt& shrinkV = learner.StepLengthV;
        shrinkV.clear();
        for (size_t g = 0; g < numGroups; ++g) {
            if (g == shrinkV.size()) shrinkV.resize(Ahead(g, learner.numTree));
            if (ReadGroup(shrinkV[g]) != 0) return -1;
        }
        return 0;
    }

  private:
    int ReadGroup(float& shrink) {
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
        shrink = static_cast<float>(loadStep);
        if (sink.BeginGroup() != 0) return -1;
        for (int i = 0; i < num; ++i) {
            if (ReadTree() != 0) return -1;
        }
        return 0;
    }

    // A tree that fails half way is handed on, too, with the number of nodes that were reserved.
    int ReadTree() {
        int loadDepth = 0;
        int nNode = -1;
        nodeV.clear();
        source >> loadDepth >> nNode;
        const int status = nNode < 0 ? Fail(kWrongFormat) : ReadNodes(static_cast<size_t>(nNode));
        const size_t numClaimed =
            nNode < 0 ? 0 : std::max(nodeV.size(), Ahead(nodeV.size(), nNode));
        const int taken = sink.TakeTree(nodeV, status == 0 ? nodeV.size() : numClaimed);
        return status != 0 ? status : taken;
    }

    // The sink is asked before memory is reserved, so that it can refuse.
    int ReadNodes(size_t numNodes) {
        while (nodeV.size() < numNodes) {
            engine::PackedNode node;
            if (ReadNode(source, learner, line, node) != 0) return -1;
            if (nodeV.size() == nodeV.capacity()) {
                const size_t numAhead = Ahead(nodeV.size(), static_cast<int>(numNodes));
                if (sink.ReserveNodes(numAhead) != 0) return -1;
                nodeV.reserve(numAhead);
            }
            nodeV.push_back(node);
        }
        return 0;
    }

    ModelSource& source;
    TreeLearner& learner;
    ModelSink& sink;
    std::vector<engine::PackedNode> nodeV;  // of the tree that is being read
    NodeLine line;
};

}  // namespace

int ParseHead(ModelSource& source, TreeLearner& learner) {
    return ReadHeader(source, learner) == 0 ? ReadMeans(source, learner) : -1;
}

int ParseGroups(ModelSource& source, TreeLearner& learner, ModelSink& sink) {
    return GroupReader(source, learner, sink).Read();
}

}  // namespace sylvora
