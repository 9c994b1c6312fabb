// Cutting a model, and saving one that is still in training; see ModelParts.h.
#include "ModelParts.h"

#include <utility>
#include <vector>

#include "../TreeLearner.h"
#include "../god/Report.h"
#include "CallScope.h"
#include "ScoringForm.h"
#include "engine/score/PackedTrees.h"

namespace sylvora {
namespace {

// While one lives, trees that no group has yet, those of a forest in training, are a group.
class ClosedGroup {
  public:
    ClosedGroup(engine::PackedTrees& packedTrees, VecFt& stepLengthV, double shrink)
        : trees(packedTrees), shrinkV(stepLengthV), fClosed(trees.HasOpenGroup()) {
        if (!fClosed) return;
        trees.groupEndV.reserve(trees.groupEndV.size() + 1);
        shrinkV.push_back(static_cast<float>(shrink));
        trees.EndGroup();
    }
    ~ClosedGroup() {
        if (!fClosed) return;
        trees.groupEndV.pop_back();
        shrinkV.pop_back();
    }
    ClosedGroup(const ClosedGroup&) = delete;
    ClosedGroup& operator=(const ClosedGroup&) = delete;

  private:
    engine::PackedTrees& trees;
    VecFt& shrinkV;
    const bool fClosed;
};

// While one lives, messages of a learner go to its caller's sink instead of its training's.
class WithoutContext {
  public:
    explicit WithoutContext(TrainingOptions& trainingOptions) : options(trainingOptions) {
        std::swap(stream, options.stream);
        std::swap(sink, options.sink);
    }
    ~WithoutContext() {
        std::swap(stream, options.stream);
        std::swap(sink, options.sink);
    }
    WithoutContext(const WithoutContext&) = delete;
    WithoutContext& operator=(const WithoutContext&) = delete;

  private:
    TrainingOptions& options;
    RandomStream* stream = nullptr;
    MessageSinkType sink = nullptr;
};

// The depth of the last node. The reader made sure that children come after their parent.
int DepthOfLast(const engine::PackedTree& tree) {
    std::vector<int> depthV(tree.numNodes);
    for (size_t k = 0; k < tree.numNodes; ++k) {
        const engine::PackedNode& node = tree.nodeV[k];
        if (node.IsLeaf()) continue;
        depthV[static_cast<size_t>(node.lson)] = depthV[k] + 1;
        depthV[static_cast<size_t>(node.rson)] = depthV[k] + 1;
    }
    return depthV.empty() ? 0 : depthV.back();
}

}  // namespace

void ModelParts::DeriveDepths(TreeLearner& learner) {
    if (learner.packedTrees == nullptr) return;
    for (engine::PackedTree& tree : learner.packedTrees->treeV) tree.depth = DepthOfLast(tree);
}

int ModelParts::Cut(TreeLearner& learner, long long numGroups) {
    const TreeLearner::CallScope scope(learner);
    if (learner.RefuseAtWork("Cut") != 0) return -1;
    if (learner.packedTrees == nullptr) return Fail("ERROR: The model has no packed trees!\n");
    if (numGroups < 1 || numGroups > learner.getGroupNum()) {
        return Fail("ERROR: The model cannot be cut to ", numGroups, " groups, it has ",
                    learner.getGroupNum(), "!\n");
    }
    learner.StepLengthV.resize(static_cast<size_t>(numGroups));
    learner.ClearGroup();
    learner.packedTrees->KeepGroups(static_cast<size_t>(numGroups));
    learner.scoringForm.reset();
    learner.CompileEnsemble();
    return 0;
}

int ModelParts::SaveSoFar(TreeLearner& learner, ModelDescription& description, std::string& text) {
    const WithoutContext caller(learner.trainingOptions);
    return Guarded([&] {
        if (learner.packedTrees == nullptr || learner.packedTrees->treeV.empty()) {
            return Fail("ERROR: The training has no trees yet!\n");
        }
        const ClosedGroup group(*learner.packedTrees, learner.StepLengthV,
                                learner.valShrink * learner.dynShrink);
        if (ModelText::Covers(learner, description.coverV) != 0) return -1;
        return ModelText::Save(learner, 17, &description, text);
    });
}

}  // namespace sylvora
