// The checkpoint of a run: goes on from it, and writes it.
#ifndef SYLVORA_TREELEARNER_RUNCHECKPOINT_H
#define SYLVORA_TREELEARNER_RUNCHECKPOINT_H

#include <memory>
#include <string>

#include "../Checkpoint/Checkpoint.h"
#include "../Checkpoint/WritingPace.h"
#include "../Output/UseLock.h"
#include "../TreeLearner.h"

// Lives as long as one call of Boosting. Borrows the learner and its evaluation. For the thread
// that trains.
//
// State is counted in steps: rounds of boosting, or trees of a forest. Not saved is what follows
// from the trees: the scores and the metrics of the sets to evaluate.
class TreeLearner::RunCheckpoint {
  public:
    // Checks the settings, and takes the file for this run alone. If it exists, brings the learner,
    // which is at the beginning of its first round, into the state that the file has.
    // `lastRowShares` says how often a round updates the last row; the model depends on it.
    // `checkpoint` stays null if none is wanted. Returns 0, or -1 after a message; the file is then
    // as it was.
    [[nodiscard]] static int Start(TreeLearner& learner, const RunEvaluation* evaluation,
                                   int lastRowShares, std::unique_ptr<RunCheckpoint>& checkpoint);

    // Says which step the file has, if the last writing failed.
    ~RunCheckpoint();
    RunCheckpoint(const RunCheckpoint&) = delete;
    RunCheckpoint& operator=(const RunCheckpoint&) = delete;

    // What the trees depend on beside the data and the size of the run.
    static sylvora::Fingerprint SettingsOf(const TreeLearner& learner);

    // Steps that the file had; 0: the run begins anew.
    int NumResumed() const { return numResumed; }
    // After step `done`: writes the file if it is due or, with `fLast`, unless it has this state
    // already. The bytes do not depend on the moment. Of failures in a row the first is reported,
    // and the run goes on.
    void Take(int done, bool fLast);

  private:
    RunCheckpoint(TreeLearner& treeLearner, const RunEvaluation* runEvaluation);
    int Open(sylvora::Fingerprint& inFile);
    void Describe(int lastRowShares);
    void DescribeData();
    int CompareHead(const sylvora::Fingerprint& inFile) const;
    int Compare(const sylvora::Fingerprint& inFile) const;
    bool AllAgree(bool fHere) const;
    int Resume();
    int ReadBytes(std::string& bytes) const;
    int TakeBytes(const std::string& bytes);
    int RefuseMemory() const;
    int CheckState(const sylvora::Checkpoint& file) const;
    int CheckSharedWord(const sylvora::CheckpointState& state) const;
    void Restore(sylvora::Checkpoint& file);
    int Refuse(const std::string& why) const;
    bool IsForest() const { return learner.modelType == "RandomForest"; }
    const char* Steps() const { return IsForest() ? " trees" : " rounds"; }
    bool IsDue(int done) const;
    int NumSteps() const { return IsForest() ? learner.sizeGroup : learner.numTree; }

    TreeLearner& learner;
    const RunEvaluation* const evaluation;  // null: nothing is evaluated
    const bool fWrites;                     // false at all ranks but the first
    sylvora::Fingerprint fingerprint;
    long sharedStart = 0;  // the state word of the slots from 1 on, at the beginning
    int numResumed = 0;
    int numWritten = 0;    // steps that the file has
    bool fFailed = false;  // the last writing failed
    sylvora::WritingPace pace;
    sylvora::UseLock lock;
};

#endif  // SYLVORA_TREELEARNER_RUNCHECKPOINT_H
