// Compiling the ensemble for scoring; see ScoringForm.h.
#include "ScoringForm.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <utility>

#include "EnsembleView.h"
#include "base/Switch.h"
#include "engine/score/KernelChoice.h"

using sylvora::engine::CompiledEnsemble;
using sylvora::engine::EnsembleSource;
using sylvora::engine::PackedTrees;

namespace {

// A packed copy of the learner's records.
std::shared_ptr<const PackedTrees> PackAll(const TreeLearner& learner) {
    auto trees = std::make_shared<PackedTrees>();
    for (const auto& group : learner.TreeVV) {
        for (const TreeCR* tree : group) trees->treeV.push_back(sylvora::Pack(*tree));
        trees->EndGroup();
    }
    return trees;
}

}  // namespace

std::shared_ptr<const TreeLearner::ScoringForm> TreeLearner::ScoringForm::Make(
    const TreeLearner& learner, std::shared_ptr<const PackedTrees> trees) {
    const bool fClassification = learner.CfgInfo.fRegCls == "CLS";
    if (sylvora::UseReferenceImplementation() || !learner.walkFault.empty()) return nullptr;
    if (learner.dimFea <= 0) return nullptr;
    if (fClassification && learner.numClass <= 0) return nullptr;
    try {
        auto form = std::make_shared<ScoringForm>();
        if (!trees) trees = learner.packedTrees ? learner.packedTrees : PackAll(learner);
        const EnsembleSource source = {std::move(trees), learner.StepLengthV,
                                       fClassification ? learner.numClass : 0, learner.dimFea};
        form->ensemble = CompiledEnsemble::Compile(source, sylvora::engine::ChooseKernel());
        if (form->ensemble == nullptr) return nullptr;
        form->numClass = learner.numClass;
        form->dimFea = learner.dimFea;
        form->shrinkV = learner.StepLengthV;
        form->packedTrees = learner.packedTrees;
        for (const auto& group : learner.TreeVV) {
            form->groupSizeV.push_back(group.size());
            form->fSingles &= group.size() == 1;
            form->treeV.insert(form->treeV.end(), group.begin(), group.end());
        }
        return form;
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

// Called before every row. Its cost shows next to that of scoring the row, so ensembles with one
// tree per group, as boosting makes them, have a loop of their own.
bool TreeLearner::ScoringForm::HasTreesOf(const TreeLearner& learner) const {
    const TreeCR* const* tree = treeV.data();
    if (fSingles) {
        for (const std::vector<TreeCR*>& group : learner.TreeVV) {
            if (group.size() != 1 || group.front() != *tree++) return false;
        }
        return true;
    }
    for (size_t g = 0; g < groupSizeV.size(); ++g) {
        const std::vector<TreeCR*>& group = learner.TreeVV[g];
        if (group.size() != groupSizeV[g]) return false;
        for (const TreeCR* const here : group) {
            if (here != *tree++) return false;
        }
    }
    return true;
}

bool TreeLearner::ScoringForm::IsOf(const TreeLearner& learner) const {
    const bool fClassification = learner.CfgInfo.fRegCls == "CLS";
    if (fClassification != (ensemble->numClass > 0) || numClass != learner.numClass ||
        dimFea != learner.dimFea || groupSizeV.size() != learner.TreeVV.size() ||
        packedTrees != learner.packedTrees || shrinkV.size() != learner.StepLengthV.size() ||
        std::memcmp(shrinkV.data(), learner.StepLengthV.data(),
                    shrinkV.size() * sizeof shrinkV[0]) != 0) {
        return false;
    }
    return HasTreesOf(learner);
}

// Replaces the scoring form. `trees` is a packed copy of the ensemble, or null.
void TreeLearner::CompileEnsemble(std::shared_ptr<const PackedTrees> trees) {
    // Copying the groups places them next to each other in memory, which makes HasTreesOf faster:
    // groups that were filled one by one are scattered.
    std::vector<std::vector<TreeCR*>> together(TreeVV);
    TreeVV.swap(together);
    scoringForm = ScoringForm::Make(*this, std::move(trees));
}
