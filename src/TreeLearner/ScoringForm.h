// The ensemble as it is scored with, and how to tell that it is still the one in TreeVV.
#ifndef SYLVORA_TREELEARNER_SCORINGFORM_H
#define SYLVORA_TREELEARNER_SCORINGFORM_H

#include <memory>
#include <string>
#include <vector>

#include "../TreeLearner.h"
#include "engine/score/CompiledEnsemble.h"

// TreeVV and StepLengthV are anybody's to change, so each use of the compiled form is preceded by a
// look at whether they hold what was compiled. Nodes are not looked at.
struct TreeLearner::ScoringForm {
    // Null where the trees are to be walked one by one. `trees` is a packed copy of the learner's
    // trees, or null.
    static std::shared_ptr<const ScoringForm> Make(
        const TreeLearner& learner, std::shared_ptr<const sylvora::engine::PackedTrees> trees);

    bool IsOf(const TreeLearner& learner) const;

    std::unique_ptr<const sylvora::engine::CompiledEnsemble> ensemble;

  private:
    bool HasTreesOf(const TreeLearner& learner) const;

    int numClass = 0;
    int dimFea = 0;
    VecFt shrinkV;
    std::vector<size_t> groupSizeV;
    bool fSingles = true;  // every group has one tree
    std::vector<const TreeCR*> treeV;
    std::shared_ptr<const sylvora::engine::PackedTrees> packedTrees;  // the learner's
};

#endif  // SYLVORA_TREELEARNER_SCORINGFORM_H
