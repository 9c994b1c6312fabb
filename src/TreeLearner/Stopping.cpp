// Asking the progress function whether a run goes on.
#include "../TreeLearner.h"
#include "../god/Report.h"
#include "../god/UserCall.h"
#include "AtWork.h"
#include "RankRun.h"

// Calls the progress function again with the numbers of its last call. Returns 0 to go on, anything
// else to stop.
int TreeLearner::AskUser() {
    if (progressFunction == nullptr) return 0;
    const AtWork work(*this);
    return sylvora::CallUser("progress function", fUserThrew, [&] {
        return progressFunction(progressContext, progressDone, progressTotal);
    });
}

// Reports progress, in rounds or, in a forest, in trees. Returns whether the run must end without a
// model, because the progress function asked for it or threw an exception. Sets fKept if the run
// must end with one.
bool TreeLearner::IsStopped(int done, int total) {
    progressDone = done;
    progressTotal = total;
    int status = AskUser();
    if (rankRun) {
        const bool fStop = rankRun->Any(status != 0 && status != kStopAndKeep);
        const bool fKeep = rankRun->Any(status == kStopAndKeep);
        status = fStop ? -1 : fKeep ? kStopAndKeep : 0;
    }
    fKept = status == kStopAndKeep;
    if (status == 0 || fKept) return false;
    fStopped = true;
    if (fUserThrew) return true;
    sylvora::Warn("Notice: Training was stopped after ", done, " of ", total,
                  ", no model is written!\n");
    return true;
}
