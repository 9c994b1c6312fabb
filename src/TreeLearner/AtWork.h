// Marks a learner that may be calling the user's functions.
#ifndef SYLVORA_TREELEARNER_ATWORK_H
#define SYLVORA_TREELEARNER_ATWORK_H

#include "../TreeLearner.h"

// Held by a run and by each of its steps that may call the user's functions. While a learner is at
// work, what would take its arrays or trees away is refused. Steps that are called by hand may be
// at work in several threads.
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
