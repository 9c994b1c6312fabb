// A training of the C interface. Training.cpp sets it up, TrainingRun.cpp runs it.
#ifndef SYLVORA_SYLVORA_C_TRAINING_H
#define SYLVORA_SYLVORA_C_TRAINING_H

#include <deque>
#include <memory>
#include <string>

#include "../TreeLearner.h"
#include "Call.h"
#include "Handles.h"

namespace sylvora::c {

// A set to evaluate, with its own copies.
struct NamedSet {
    std::string name;
    sylvora::c::Block block;
    VecDle labelV;
    VecInt queryV;
};

// Reports a training that cannot be changed or run any more; returns -1.
int RefuseAfterRun();

}  // namespace sylvora::c

struct sylvora_training {
    CheckCfgCLS cfg;
    std::shared_ptr<sylvora::c::GatheredData> gathered;  // of the data; null: no ranks
    std::shared_ptr<const sylvora::DataSet> data;
    std::string missing;
    VecDle labelV;
    VecInt queryV;
    VecInt weightV;
    std::deque<sylvora::c::NamedSet> setV;  // never moves its elements, which the learner borrows
    sylvora::TrainingOptions options;
    sylvora_objective objective = nullptr;
    void* objectiveContext = nullptr;
    sylvora_progress progress = nullptr;
    void* progressContext = nullptr;
    sylvora_message message = nullptr;
    void* messageContext = nullptr;
    bool fRun = false;  // it has begun to train
    sylvora::EvaluationRecord record;
    TreeLearner* running = nullptr;  // while it trains; not owned
    bool fInProgress = false;        // its progress function is being called

    // What was recorded so far.
    const sylvora::EvaluationRecord& Record() const {
        return running != nullptr ? running->getEvaluation() : record;
    }

    // Checks the parameters; `checked` receives them in the form that a learner needs.
    int Prepare(CheckCfgCLS& checked) const;
    int Train(TreeLearner& learner, sylvora::c::Call& call);
    void Describe(const CheckCfgCLS& checked, sylvora::ModelDescription& description) const;
    int AskProgress(int done, int total);
    int Snapshot(sylvora_model& model) const;
};

#endif  // SYLVORA_SYLVORA_C_TRAINING_H
