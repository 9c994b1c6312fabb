// The checkpoint of a run: goes on from it, and writes it.
#ifndef SYLVORA_TREELEARNER_RUNCHECKPOINT_H
#define SYLVORA_TREELEARNER_RUNCHECKPOINT_H

#include <memory>
#include <string>

#include "../Checkpoint/Checkpoint.h"
#include "../TreeLearner.h"

// Lives as long as one call of Boosting. Borrows the learner and its evaluation. For the thread
// that trains.
//
// State is counted in steps: rounds of boosting, or trees of a forest. Not saved is what follows
// from the trees: the scores and the metrics of the sets to evaluate.
class TreeLearner::RunCheckpoint {
  public:
    // Checks the settings. If the file exists, brings the learner, which is at the beginning of its
    // first round, into the state that the file has. `lastRowShares` says how often a round
    // updates the last row; the model depends on it. `checkpoint` stays null if none is wanted.
    // Returns 0, or -1 after a message; the file is then as it was.
    [[nodiscard]] static int Start(TreeLearner& learner, const RunEvaluation* evaluation,
                                   int lastRowShares, std::unique_ptr<RunCheckpoint>& checkpoint);

    // Steps that the file had; 0: the run begins anew.
    int NumResumed() const { return numResumed; }
    // After step `done`: writes the file if it is due or, with `fLast`, unless it has this state
    // already. A failure is reported once, and the run goes on.
    void Take(int done, bool fLast);

  private:
    RunCheckpoint(TreeLearner& treeLearner, const RunEvaluation* runEvaluation)
        : learner(treeLearner), evaluation(runEvaluation) {}
    int CheckFile() const;
    sylvora::Fingerprint Describe(int lastRowShares) const;
    void DescribeSettings(sylvora::Fingerprint& fingerprint) const;
    void DescribeProgram(sylvora::Fingerprint& fingerprint) const;
    void DescribeData(sylvora::Fingerprint& fingerprint) const;
    int Resume();
    int CheckState(const sylvora::Checkpoint& file) const;
    int CheckSharedWord(const sylvora::CheckpointState& state) const;
    void Restore(sylvora::Checkpoint& file);
    int Refuse(const std::string& why) const;
    bool IsForest() const { return learner.modelType == "RandomForest"; }
    int NumSteps() const { return IsForest() ? learner.sizeGroup : learner.numTree; }

    TreeLearner& learner;
    const RunEvaluation* const evaluation;  // null: nothing is evaluated
    sylvora::Fingerprint fingerprint;
    long sharedStart = 0;  // the state word of the slots from 1 on, at the beginning
    int numResumed = 0;
    int numWritten = 0;  // steps that the file has
    bool fReported = false;
};

#endif  // SYLVORA_TREELEARNER_RUNCHECKPOINT_H
