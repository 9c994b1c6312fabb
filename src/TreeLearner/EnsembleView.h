// Read access to a learner's trees, whether they are kept as records in TreeVV or packed
// (TreeLearner::setPackedTrees). Views borrow: they are valid until the trees change. Thread-safe
// as long as nobody changes the trees.
#ifndef SYLVORA_TREELEARNER_ENSEMBLEVIEW_H
#define SYLVORA_TREELEARNER_ENSEMBLEVIEW_H

#include <cstddef>
#include <vector>

#include "../Tree.h"
#include "../Tree/Walk.h"
#include "engine/score/PackedTrees.h"
#include "engine/train/GrownTree.h"

class TreeLearner;

namespace sylvora {

// One tree. Nodes are numbered from 0, the root.
class TreeView {
  public:
    explicit TreeView(const TreeCR& tree) : records(&tree) {}
    explicit TreeView(const engine::PackedTree& tree) : packed(&tree) {}

    size_t NumNodes() const { return packed ? packed->numNodes : records->NodeV.size(); }
    int Depth() const { return packed ? packed->depth : records->depth; }
    engine::PackedNode Node(size_t k) const;
    // The status of a node as in the model file. For a record, whatever text it has.
    const char* Status(size_t k) const;
    // As the functions of TreeCR with these names.
    template <typename Row>
    double Predict(const Row& feaV) const {
        return Walk([&feaV](const auto& at) { return PredictRow(at, feaV); });
    }
    double FeatureAnalPredict(const double* feaV, const ColumnCredit<int64_t>& credit,
                              double label_exp, double stepsize) const {
        return Walk(
            [&](const auto& at) { return CreditRow(at, feaV, credit, label_exp, stepsize); });
    }

  private:
    // Calls walker(at), where at(k) is node k, without copying nodes.
    template <typename Walker>
    double Walk(const Walker& walker) const {
        if (packed != nullptr) {
            const engine::PackedNode* nodes = packed->nodeV.get();
            return walker([nodes](int k) -> const engine::PackedNode& { return nodes[k]; });
        }
        const std::vector<NodeCR*>& nodeV = records->NodeV;
        return walker([&nodeV](int k) -> const NodeCR& { return *nodeV[static_cast<size_t>(k)]; });
    }

    const TreeCR* records = nullptr;  // one of the two is set
    const engine::PackedTree* packed = nullptr;
};

// The groups of an ensemble, in order, and the trees of each. Groups may be empty.
class EnsembleView {
  public:
    explicit EnsembleView(const TreeLearner& learner);

    size_t NumGroups() const { return packed ? packed->NumGroups() : groupV.size(); }
    size_t GroupSize(size_t g) const { return packed ? packed->GroupSize(g) : groupV[g].size(); }
    size_t NumTrees() const;
    TreeView Tree(size_t g, size_t t) const {
        return packed ? TreeView(packed->treeV[packed->GroupBegin(g) + t])
                      : TreeView(*groupV[g][t]);
    }

  private:
    const std::vector<std::vector<TreeCR*>>& groupV;
    const engine::PackedTrees* packed;  // null: the trees are in groupV
};

// A packed copy of a tree, owned by the caller. Throws std::bad_alloc.
engine::PackedTree Pack(const TreeCR& tree);

// The number of rows of each node of a tree that was grown. Throws std::bad_alloc.
std::vector<int> CoversOf(const TreeCR& tree);

// Appends a packed copy of a tree that was grown, and with `fCovers` its covers. Throws
// std::bad_alloc; the trees are then unchanged.
void AppendPacked(const TreeCR& tree, bool fCovers, engine::PackedTrees& trees);
void AppendPacked(const std::vector<engine::GrownNode>& grownV, bool fCovers,
                  engine::PackedTrees& trees);

}  // namespace sylvora

#endif  // SYLVORA_TREELEARNER_ENSEMBLEVIEW_H
