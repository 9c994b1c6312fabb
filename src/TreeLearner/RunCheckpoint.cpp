// Going on from a checkpoint, and writing it; see RunCheckpoint.h. RunFingerprint.cpp has what a
// checkpoint is compared by.
#include "RunCheckpoint.h"

#include <algorithm>
#include <chrono>
#include <new>
#include <utility>

#include "../CheckIn/Validation.h"
#include "../Output/WholeFile.h"
#include "../god/Report.h"
#include "LossRun.h"
#include "RankRun.h"

using sylvora::Checkpoint;
using sylvora::CheckpointState;
using sylvora::Fail;
using sylvora::Fingerprint;
using sylvora::Text;
using sylvora::Warn;

namespace {

// Seconds since some fixed moment.
double Now() {
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

}  // namespace

TreeLearner::RunCheckpoint::RunCheckpoint(TreeLearner& treeLearner,
                                          const RunEvaluation* runEvaluation)
    : learner(treeLearner),
      evaluation(runEvaluation),
      fWrites(!learner.rankRun || learner.rankRun->IsFirst()),
      pace(Now()) {}

TreeLearner::RunCheckpoint::~RunCheckpoint() {
    if (!fFailed) return;
    const std::string& path = learner.CfgInfo.fileCheckpoint;
    if (numWritten == 0) {
        Warn("Notice: checkpoint ", path, ": was never written!\n");
    } else {
        Warn("Notice: checkpoint ", path, ": the last one was written after ", numWritten, " of ",
             NumSteps(), Steps(), "!\n");
    }
}

int TreeLearner::RunCheckpoint::Start(TreeLearner& learner, const RunEvaluation* evaluation,
                                      int lastRowShares,
                                      std::unique_ptr<RunCheckpoint>& checkpoint) {
    CheckCfgCLS cfg = learner.CfgInfo;
    cfg.fDebug = learner.fDebug;
    if (cfg.fileCheckpoint.empty()) return 0;
    if (sylvora::CheckCheckpoint(cfg) != 0) return -1;
    std::unique_ptr<RunCheckpoint> made(new RunCheckpoint(learner, evaluation));
    if (!learner.packedTrees) return made->Refuse("needs packed trees; call setPackedTrees first");
    Fingerprint inFile;
    if (!made->AllAgree(!made->fWrites || made->Open(inFile) == 0)) return -1;
    made->sharedStart = learner.sharedSeed;
    made->Describe(lastRowShares);
    // What is known before the data are looked at comes first in every fingerprint.
    inFile.resize(std::min(inFile.size(), made->fingerprint.size()));
    const bool fResumes = learner.rankRun ? learner.rankRun->Any(!inFile.empty()) : !inFile.empty();
    if (!made->AllAgree(inFile.empty() || made->CompareHead(inFile) == 0)) return -1;
    made->DescribeData();
    if (fResumes && made->Resume() != 0) return -1;
    checkpoint = std::move(made);
    return 0;
}

// Whether this holds at all ranks. The ranks other than the first one have no file to complain of.
bool TreeLearner::RunCheckpoint::AllAgree(bool fHere) const {
    return learner.rankRun ? learner.rankRun->All(fHere) : fHere;
}

int TreeLearner::RunCheckpoint::RefuseMemory() const {
    return Refuse("failed to allocate memory to read it");
}

// All ranks come to the same refusals, and one message is enough.
int TreeLearner::RunCheckpoint::Refuse(const std::string& why) const {
    if (!fWrites) return -1;
    return Fail("ERROR: checkpoint ", learner.CfgInfo.fileCheckpoint, ": ", why, "!\n");
}

// The file must be this run's alone before it is read: another one would replace it.
int TreeLearner::RunCheckpoint::Open(Fingerprint& inFile) {
    const std::string& path = learner.CfgInfo.fileCheckpoint;
    const std::string reason = sylvora::WhyNotWritable(path);
    if (!reason.empty()) return Refuse("cannot be written: " + reason);
    std::string fault = lock.Take(path);
    if (fault.empty()) fault = sylvora::ReadCheckpointHead(path, inFile);
    return fault.empty() ? 0 : Refuse(fault);
}

// Reads the whole file, of which the head is known to be good so far. Other ranks get its bytes
// from the first one.
int TreeLearner::RunCheckpoint::Resume() {
    const std::string& path = learner.CfgInfo.fileCheckpoint;
    std::string bytes;
    if (!AllAgree(!fWrites || ReadBytes(bytes) == 0)) return -1;
    if (learner.rankRun) learner.rankRun->ShareBytes(bytes);
    if (!AllAgree(TakeBytes(bytes) == 0)) return -1;
    if (fWrites) {
        Warn("Notice: checkpoint ", path, ": the training goes on after ", numResumed, " of ",
             NumSteps(), Steps(), "!\n");
    }
    return 0;
}

// The head of a damaged file may say anything.
int TreeLearner::RunCheckpoint::CompareHead(const Fingerprint& inFile) const {
    if (sylvora::FirstDifference(inFile, fingerprint).name.empty()) return 0;
    std::string bytes;
    if (ReadBytes(bytes) != 0) return -1;
    return sylvora::IsWholeCheckpoint(bytes) ? Compare(inFile)
                                             : Refuse(sylvora::kDamagedCheckpoint);
}

int TreeLearner::RunCheckpoint::ReadBytes(std::string& bytes) const {
    try {
        const std::string fault =
            sylvora::ReadCheckpointBytes(learner.CfgInfo.fileCheckpoint, bytes);
        return fault.empty() ? 0 : Refuse(fault);
    } catch (const std::bad_alloc&) {
        return RefuseMemory();
    }
}

// The first rank has compared the fingerprint; those of the others are the same.
int TreeLearner::RunCheckpoint::TakeBytes(const std::string& bytes) {
    Checkpoint file;
    try {
        const std::string fault = sylvora::ParseCheckpoint(bytes, learner.dimFea, file);
        if (!fault.empty()) return Refuse(fault);
    } catch (const std::bad_alloc&) {
        return RefuseMemory();
    }
    if (Compare(file.fingerprint) != 0 || CheckState(file) != 0 ||
        CheckSharedWord(file.state) != 0) {
        return -1;
    }
    Restore(file);
    return 0;
}

// Whether the parts of a file fit each other and the learner.
int TreeLearner::RunCheckpoint::CheckState(const Checkpoint& file) const {
    const long numDone = file.state.numDone;
    const size_t steps = static_cast<size_t>(numDone);
    const size_t numStart =
        static_cast<size_t>(learner.lossRun ? learner.lossRun->NumStartGroups() : 0);
    const size_t numGroups = IsForest() ? 0 : numStart + steps;
    const size_t numTrees = IsForest() ? steps : numGroups;
    const size_t numRows = IsForest() ? 0 : static_cast<size_t>(learner.sampleSize);
    if (numDone < 1 || file.trees.NumGroups() != numGroups || file.shrinkV.size() != numGroups ||
        file.trees.treeV.size() != numTrees || file.predictV.size() != numRows) {
        return Refuse("its parts do not fit each other; remove it to begin again");
    }
    if (numDone <= NumSteps()) return 0;
    return Refuse(Text("has ", numDone, Steps(), ", and numTree is only ", NumSteps(),
                       "; raise numTree, or name another file"));
}

// The first state word of the slots from 1 on follows from the number of trees. Between 1 and the
// modulus of the generator the word has no effect on what is drawn; see RandomGenerator.cpp.
int TreeLearner::RunCheckpoint::CheckSharedWord(const CheckpointState& state) const {
    constexpr long kModulus = 2147483563;
    const auto hasNoEffect = [](long word) { return word > 0 && word < kModulus; };
    if (state.numDone == 1 || state.sharedStart == sharedStart ||
        (hasNoEffect(state.sharedStart) && hasNoEffect(sharedStart))) {
        return 0;
    }
    return Refuse(
        Text("is of a training with another numTree, on which all trees of a forest"
             " depend if randomSeed is ",
             learner.CfgInfo.tms_seed, "; restore numTree, or name another file"));
}

void TreeLearner::RunCheckpoint::Restore(Checkpoint& file) {
    const CheckpointState& state = file.state;
    long* const word = learner.randGenerators[0];
    // Nobody else draws from this stream while the learner trains.
    static_cast<void>(sylvora::Draws::Skip(word, sylvora::Draws::StateNow(word), state.generator));
    if (state.sharedStart == sharedStart) learner.sharedSeed = state.sharedWord;
    learner.dynShrink = state.dynShrink;
    *learner.packedTrees = std::move(file.trees);
    if (!IsForest()) {
        learner.StepLengthV = std::move(file.shrinkV);
        std::copy(file.predictV.begin(), file.predictV.end(), learner.predictV);
    }
    numResumed = numWritten = static_cast<int>(state.numDone);
    learner.numGrown = learner.progressDone = numResumed;
}

bool TreeLearner::RunCheckpoint::IsDue(int done) const {
    const int every = learner.CfgInfo.checkpointEvery;
    return every > 0 ? done % every == 0 : pace.IsDue(Now());
}

// A forest with a missing tree is not saved: a later run would grow other trees in its place.
void TreeLearner::RunCheckpoint::Take(int done, bool fLast) {
    if (!fWrites || done == numWritten || learner.numGrown != done || !(fLast || IsDue(done)))
        return;
    const double begin = Now();
    long* const word = learner.randGenerators[0];
    const CheckpointState state = {done, sylvora::Draws::StateNow(word), sharedStart,
                                   learner.sharedSeed, learner.dynShrink};
    const size_t numRows = IsForest() ? 0 : static_cast<size_t>(learner.sampleSize);
    const std::string message = sylvora::WriteCheckpoint(
        learner.CfgInfo.fileCheckpoint,
        {fingerprint, state, learner.predictV, numRows, learner.StepLengthV, *learner.packedTrees});
    pace.Note(begin, Now());
    if (message.empty()) numWritten = done;
    if (!std::exchange(fFailed, !message.empty()) && fFailed) Warn(message);
}
