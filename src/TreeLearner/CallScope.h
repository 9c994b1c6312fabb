// The random stream and the message sink of a learner, during one of its calls.
#ifndef SYLVORA_TREELEARNER_CALLSCOPE_H
#define SYLVORA_TREELEARNER_CALLSCOPE_H

#include <optional>

#include "../TreeLearner.h"
#include "../god/CallContext.h"

// A scope guard. Every public call that draws or writes a message begins with one, before anything
// that can fail: draws and messages of this thread, and of threads that the call starts, then use
// the learner's stream and sink. A learner without them uses the process-wide ones, even inside a
// user's function that another learner calls.
class TreeLearner::CallScope {
  public:
    // Mostly just two tests that fail: OnlineTesting opens a scope for every row.
    explicit CallScope(const TreeLearner& learner) {
        const sylvora::TrainingOptions& options = learner.trainingOptions;
        if (options.stream != nullptr || options.sink != nullptr) {
            context = {options.stream, options.sink, options.sinkContext, &learner.sinkMutex};
            scope.emplace(&context);
        } else if (sylvora::CurrentContext() != nullptr) {
            scope.emplace(nullptr);
        }
    }
    CallScope(const CallScope&) = delete;
    CallScope& operator=(const CallScope&) = delete;

  private:
    sylvora::CallContext context;
    std::optional<sylvora::ContextScope> scope;
};

#endif  // SYLVORA_TREELEARNER_CALLSCOPE_H
