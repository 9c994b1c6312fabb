// The scoring form; see ScoringForm.h.
#include "ScoringForm.h"

#include <algorithm>
#include <cstring>
#include <new>

#include "../engine/KernelChoice.h"
#include "../engine/Switch.h"

using sylvora::engine::CompiledEnsemble;
using sylvora::engine::EnsembleSource;

namespace {

EnsembleSource Describe(const TreeLearner& learner) {
    EnsembleSource source;
    source.numClass = learner.CfgInfo.fRegCls == "CLS" ? learner.numClass : 0;
    source.dimFea = learner.dimFea;
    for (size_t g = 0; g < learner.TreeVV.size(); ++g) {
        source.groupV.push_back({learner.TreeVV[g].size(), learner.StepLengthV[g]});
        for (const TreeCR* tree : learner.TreeVV[g]) {
            source.firstNodeV.push_back(source.nodeV.size());
            for (const NodeCR* node : tree->NodeV) {
                const bool fLeaf = node->status == "TERMINAL";
                source.nodeV.push_back({fLeaf ? -1 : node->splitFea, node->lson, node->rson,
                                        node->splitElemFea, node->avgPredict});
            }
        }
    }
    return source;
}

}  // namespace

std::shared_ptr<const TreeLearner::ScoringForm> TreeLearner::ScoringForm::Make(
    const TreeLearner& learner) {
    const bool fClassification = learner.CfgInfo.fRegCls == "CLS";
    if (sylvora::engine::UsePlainForm() || !learner.walkFault.empty()) return nullptr;
    if (learner.TreeVV.size() != learner.StepLengthV.size() || learner.dimFea <= 0) return nullptr;
    if (fClassification && learner.numClass <= 0) return nullptr;
    try {
        auto form = std::make_shared<ScoringForm>();
        form->ensemble =
            CompiledEnsemble::Compile(Describe(learner), sylvora::engine::ChooseKernel());
        if (form->ensemble == nullptr) return nullptr;
        form->numClass = learner.numClass;
        form->dimFea = learner.dimFea;
        form->shrinkV = learner.StepLengthV;
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

// Before every row, and costly enough beside it that a boosted ensemble's groups have a loop of
// their own.
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
        shrinkV.size() != learner.StepLengthV.size() ||
        std::memcmp(shrinkV.data(), learner.StepLengthV.data(),
                    shrinkV.size() * sizeof shrinkV[0]) != 0) {
        return false;
    }
    return HasTreesOf(learner);
}

void TreeLearner::CompileEnsemble() {
    // Groups that were filled one by one lie scattered; copied, they lie side by side.
    std::vector<std::vector<TreeCR*>> packed(TreeVV);
    TreeVV.swap(packed);
    scoringForm = ScoringForm::Make(*this);
}
