// What Boosting checks of a run while it goes on, where this is wanted; see setVerification.
#ifndef SYLVORA_TREELEARNER_VERIFICATION_H
#define SYLVORA_TREELEARNER_VERIFICATION_H

#include <string>

#include "../TreeLearner.h"

// All return 0, or -1 after a line that says what is wrong, where, and what to change.
struct TreeLearner::Verification {
    const TreeLearner& learner;

    // Before the first round: whether a model file can hold the shrink and the columns' means.
    [[nodiscard]] int CheckStart() const;
    // After the tree of a round, which counts from 1. The trees of a forest are checked one by one.
    [[nodiscard]] int CheckRound(int idxTree) const;
    // After the predictions of a round were updated.
    [[nodiscard]] int CheckPredictions(int idxTree) const;
    // After the tree of a forest's slot should have been grown.
    [[nodiscard]] int CheckSlot(int slot) const;

  private:
    int CheckNewTree(const std::string& place) const;
    int RefuseEmptyTree(const std::string& place) const;
    int RefuseValue(const std::string& place) const;
    static int RefuseGrowth(const std::string& place);
};

#endif  // SYLVORA_TREELEARNER_VERIFICATION_H
