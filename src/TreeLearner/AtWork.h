// Marks a learner as one that may be calling the user's functions.
#ifndef SYLVORA_TREELEARNER_ATWORK_H
#define SYLVORA_TREELEARNER_ATWORK_H

#include "../TreeLearner.h"

// A scope guard, held by a run and by each step that may call the user's functions. While one
// lives, the learner refuses calls that would free or replace its arrays or trees (RefuseAtWork).
// Guards may nest, and a program may hold them in several threads by calling steps itself: the
// counter is atomic. The first guard clears the flag of an earlier exception.
class TreeLearner::AtWork {
  public:
    explicit AtWork(TreeLearner& treeLearner) : learner(treeLearner) {
        if (learner.numAtWork++ == 0) learner.fUserThrew = false;
    }
    ~AtWork() { --learner.numAtWork; }
    AtWork(const AtWork&) = delete;
    AtWork& operator=(const AtWork&) = delete;

  private:
    TreeLearner& learner;
};

#endif  // SYLVORA_TREELEARNER_ATWORK_H
