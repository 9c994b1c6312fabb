// The checks of a run that setVerification turns on. Boosting calls them between its phases.
#ifndef SYLVORA_TREELEARNER_VERIFICATION_H
#define SYLVORA_TREELEARNER_VERIFICATION_H

#include <string>

#include "../TreeLearner.h"

// Borrows the learner and only reads it. All functions return 0, or -1 after a line that says what
// is wrong, where, and what to change.
struct TreeLearner::Verification {
    const TreeLearner& learner;

    // Before the first round: whether a model file can hold the shrink and the column means.
    [[nodiscard]] int CheckStart() const;
    // After the tree of a round has been grown. Rounds count from 1. Does nothing for a forest,
    // whose trees CheckSlot checks one by one.
    [[nodiscard]] int CheckRound(int idxTree) const;
    // After the predictions of a round were updated.
    [[nodiscard]] int CheckPredictions(int idxTree) const;
    // After the tree of a forest's slot was grown or failed to grow. Slots count from 0.
    [[nodiscard]] int CheckSlot(int slot) const;

  private:
    // `place` begins the message: "round 3", "tree 7".
    int CheckNewTree(const std::string& place) const;
    int RefuseEmptyTree(const std::string& place) const;
    int RefuseValue(const std::string& place) const;
    static int RefuseGrowth(const std::string& place);
};

#endif  // SYLVORA_TREELEARNER_VERIFICATION_H
