// Comparing a model file with the ensemble in memory; see ModelCheck.h.
#include "ModelCheck.h"

#include <cerrno>
#include <cstddef>
#include <cstring>
#include <vector>

#include "../god/Report.h"
#include "EnsembleView.h"
#include "ModelParser.h"
#include "RoundedNumber.h"

namespace sylvora {
namespace {

// Compares trees as they are parsed. Borrows the learner's ensemble, and the shrinks of `read`,
// which the parser fills.
class ComparingSink : public ModelSink {
  public:
    ComparingSink(const TreeLearner& learner, const TreeLearner& read, int numDigits)
        : trees(learner),
          shrinkV(learner.StepLengthV),
          readV(read.StepLengthV),
          digits(numDigits) {}

    // Checks that the group before is complete, then moves on to the next one.
    int BeginGroup() override {
        if (fOpen && tree != trees.GroupSize(group)) return Differ("has another number of trees");
        if (fOpen) ++group;
        fOpen = true;
        tree = 0;
        if (group >= trees.NumGroups()) return Differ("is one too many");
        const float wanted = static_cast<float>(RoundToDigits(shrinkV[group], digits));
        return readV[group] == wanted ? 0 : Differ("has another shrink");
    }

    int ReserveNodes(size_t) override { return 0; }
    int TakeTree(const std::vector<engine::PackedNode>& nodeV, size_t) override {
        if (tree >= trees.GroupSize(group)) return Differ("has another number of trees");
        const TreeView wanted = trees.Tree(group, tree);
        if (nodeV.size() != wanted.NumNodes()) return Differ("has another number of nodes");
        for (size_t k = 0; k < nodeV.size(); ++k) {
            if (!IsSame(nodeV[k], wanted.Node(k))) return Differ(Text("node ", k, " is another"));
        }
        ++tree;
        return 0;
    }

    // Call it after the last tree: whether the file has all trees and groups.
    int Finish() {
        const size_t numGroups = fOpen ? group + 1 : 0;
        const bool fAll = !fOpen || tree == trees.GroupSize(group);
        return fAll && numGroups == trees.NumGroups() ? 0 : Differ("is the last");
    }

  private:
    // Equality is exact: the value read must be the one that the rounded text stands for.
    bool IsSame(const engine::PackedNode& read, const engine::PackedNode& wanted) const {
        return read.fLeaf == wanted.fLeaf && read.splitFea == wanted.splitFea &&
               read.lson == wanted.lson && read.rson == wanted.rson &&
               read.splitElemFea == RoundToDigits(wanted.splitElemFea, digits) &&
               read.avgPredict == RoundToDigits(wanted.avgPredict, digits);
    }
    // Reports a difference at the current group and tree. Returns -1.
    int Differ(const std::string& how) const {
        return Fail("ERROR: read back, group ", group, ", tree ", tree, " of the model: ", how,
                    "\n");
    }

    const EnsembleView trees;
    const VecFt& shrinkV;
    const VecFt& readV;
    const int digits;
    bool fOpen = false;  // a group has begun
    size_t group = 0;
    size_t tree = 0;  // the next one of the group
};

// Compares what comes before the trees: counts, parameters, means. Returns 0, or -1 after a
// message.
int CompareHead(const TreeLearner& learner, const TreeLearner& read, int digits) {
    const auto differ = [](const char* what) {
        return Fail("ERROR: read back, ", what, " of the model is another\n");
    };
    if (read.numClass != learner.numClass || read.dimFea != learner.dimFea) {
        return differ("the number of classes or columns");
    }
    const CheckCfgCLS& a = learner.CfgInfo;
    const CheckCfgCLS& b = read.CfgInfo;
    const auto isSame = [digits](double wanted, double is) {
        return RoundToDigits(wanted, digits) == is;
    };
    if (!isSame(a.valSmpRt, b.valSmpRt) || !isSame(a.ratio, b.ratio) ||
        !isSame(a.valTau, b.valTau) || a.maxLeaf != b.maxLeaf || a.maxDepth != b.maxDepth ||
        a.numBound != b.numBound || a.lossFunc != b.lossFunc || a.randomMode != b.randomMode ||
        a.modelType != b.modelType) {
        return differ("a parameter");
    }
    const bool fMeans = learner.featureMean != nullptr && read.featureMean != nullptr;
    if (!fMeans && learner.dimFea > 0) return differ("a column mean");
    for (int j = 0; j < learner.dimFea; ++j) {
        if (!isSame(learner.featureMean[j], read.featureMean[j])) return differ("a column mean");
    }
    return 0;
}

}  // namespace

int CheckModelFile(const std::string& file, const TreeLearner& learner, int digits) {
    ModelSource source{ModelOrigin(file)};
    if (!source.IsOpen() || source.IsEmpty()) {
        return Fail("ERROR: ", file, " cannot be read back: ", std::strerror(errno), "\n");
    }
    TreeLearner read;  // only its head and shrinks are filled; the trees go to the sink
    ComparingSink sink(learner, read, digits);
    if (ParseHead(source, read) != 0 || CompareHead(learner, read, digits) != 0) return -1;
    return ParseGroups(source, read, sink) == 0 ? sink.Finish() : -1;
}

}  // namespace sylvora
