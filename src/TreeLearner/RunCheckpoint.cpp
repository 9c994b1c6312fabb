// Going on from a checkpoint, and writing it; see RunCheckpoint.h. RunFingerprint.cpp has what a
// checkpoint is compared by.
#include "RunCheckpoint.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include "../CheckIn/Validation.h"
#include "../Output/WholeFile.h"
#include "../god/Report.h"
#include "LossRun.h"

using sylvora::Checkpoint;
using sylvora::CheckpointState;
using sylvora::Fail;
using sylvora::Text;
using sylvora::Warn;

int TreeLearner::RunCheckpoint::Start(TreeLearner& learner, const RunEvaluation* evaluation,
                                      int lastRowShares,
                                      std::unique_ptr<RunCheckpoint>& checkpoint) {
    CheckCfgCLS cfg = learner.CfgInfo;
    cfg.fDebug = learner.fDebug;
    if (cfg.fileCheckpoint.empty()) return 0;
    if (sylvora::CheckCheckpoint(cfg) != 0) return -1;
    std::unique_ptr<RunCheckpoint> made(new RunCheckpoint(learner, evaluation));
    if (!learner.packedTrees) return made->Refuse("needs packed trees; call setPackedTrees first");
    if (made->CheckFile() != 0) return -1;
    made->sharedStart = learner.sharedSeed;
    made->fingerprint = made->Describe(lastRowShares);
    struct stat file = {};
    const bool fExists = ::stat(cfg.fileCheckpoint.c_str(), &file) == 0;
    if (fExists && made->Resume() != 0) return -1;
    checkpoint = std::move(made);
    return 0;
}

int TreeLearner::RunCheckpoint::Refuse(const std::string& why) const {
    return Fail("ERROR: checkpoint ", learner.CfgInfo.fileCheckpoint, ": ", why, "!\n");
}

int TreeLearner::RunCheckpoint::CheckFile() const {
    const std::string& path = learner.CfgInfo.fileCheckpoint;
    struct stat file = {};
    if (::stat(path.c_str(), &file) != 0 && errno != ENOENT) return Refuse(std::strerror(errno));
    if (::stat(path.c_str(), &file) == 0 && !S_ISREG(file.st_mode)) {
        return Refuse("is no regular file; name another one");
    }
    const std::string reason = sylvora::WhyNotWritable(path);
    return reason.empty() ? 0 : Refuse("cannot be written: " + reason);
}

int TreeLearner::RunCheckpoint::Resume() {
    const std::string& path = learner.CfgInfo.fileCheckpoint;
    Checkpoint file;
    const std::string fault = sylvora::ReadCheckpoint(path, learner.dimFea, file);
    if (!fault.empty()) return Refuse(fault);
    const std::string difference = sylvora::DifferenceOf(file.fingerprint, fingerprint);
    if (!difference.empty()) {
        return Refuse(difference + "; restore the data and settings, or name another file");
    }
    if (CheckState(file) != 0 || CheckSharedWord(file.state) != 0) return -1;
    Restore(file);
    Warn("Notice: checkpoint ", path, ": the training goes on after ", numResumed, " of ",
         NumSteps(), IsForest() ? " trees\n" : " rounds\n");
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
    return Refuse(Text("has ", numDone, IsForest() ? " trees" : " rounds", ", and numTree is only ",
                       NumSteps(), "; raise numTree, or name another file"));
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
    return Refuse(Text("with randomSeed ", learner.CfgInfo.tms_seed,
                       " the trees depend on numTree; set it as it was, or name another file"));
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

// A forest with a missing tree is not saved: a later run would grow other trees in its place.
void TreeLearner::RunCheckpoint::Take(int done, bool fLast) {
    const bool fDue = fLast || done % learner.CfgInfo.checkpointEvery == 0;
    if (!fDue || done == numWritten || learner.numGrown != done) return;
    long* const word = learner.randGenerators[0];
    const CheckpointState state = {done, sylvora::Draws::StateNow(word), sharedStart,
                                   learner.sharedSeed, learner.dynShrink};
    const size_t numRows = IsForest() ? 0 : static_cast<size_t>(learner.sampleSize);
    const std::string message = sylvora::WriteCheckpoint(
        learner.CfgInfo.fileCheckpoint,
        {fingerprint, state, learner.predictV, numRows, learner.StepLengthV, *learner.packedTrees});
    if (message.empty()) {
        numWritten = done;
    } else if (!std::exchange(fReported, true)) {
        Warn(message);
    }
}
