// The compiled ensemble of a learner, and a check that it still matches the trees.
#ifndef SYLVORA_TREELEARNER_SCORINGFORM_H
#define SYLVORA_TREELEARNER_SCORINGFORM_H

#include <memory>
#include <string>
#include <vector>

#include "../TreeLearner.h"
#include "engine/score/CompiledEnsemble.h"

// TreeVV and StepLengthV are public and may change at any time, so each use of the compiled
// ensemble is preceded by IsOf, which compares them with what was compiled. Changes inside a node
// go unnoticed. Immutable once made, so thread-safe.
struct TreeLearner::ScoringForm {
    // Compiles the learner's ensemble. `trees` is a packed copy of its trees, or null if there is
    // none. Returns null if the trees must be walked one by one: the reference implementation was
    // asked for, the ensemble cannot be compiled, or memory is short.
    static std::shared_ptr<const ScoringForm> Make(
        const TreeLearner& learner, std::shared_ptr<const sylvora::engine::PackedTrees> trees);

    // Whether the learner still has the ensemble that was compiled. Allocates nothing.
    bool IsOf(const TreeLearner& learner) const;

    std::unique_ptr<const sylvora::engine::CompiledEnsemble> ensemble;

  private:
    bool HasTreesOf(const TreeLearner& learner) const;

    // What was compiled, as it was then. Trees are compared by address only, never dereferenced.
    int numClass = 0;
    int dimFea = 0;
    VecFt shrinkV;
    std::vector<size_t> groupSizeV;
    bool fSingles = true;  // every group has one tree
    std::vector<const TreeCR*> treeV;
    std::shared_ptr<const sylvora::engine::PackedTrees>
        packedTrees;  // as in the learner; may be null
};

#endif  // SYLVORA_TREELEARNER_SCORINGFORM_H
