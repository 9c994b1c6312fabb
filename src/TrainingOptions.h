// What a program may give a learner beside the parameters: functions, streams and sets to evaluate.
#ifndef SYLVORA_TRAININGOPTIONS_H
#define SYLVORA_TRAININGOPTIONS_H

#include <string>
#include <vector>

#include "Evaluation.h"
#include "Libdef.h"
#include "RandomStream.h"

namespace sylvora {
class Ranks;

// All pointers are borrowed and must stay valid until the learner's last call that uses them.
struct TrainingOptions {
    // The stream that trainings draw from; null: gseed and the process-wide table. While a call of
    // the learner runs, &gseed stands for the state word of its stream, as in randGenerators[0].
    RandomStream* stream = nullptr;
    // Receives the messages of the learner's calls, the destructor's included; null: the standard
    // streams.
    MessageSinkType sink = nullptr;
    void* sinkContext = nullptr;

    // The objective of loss "USER", called once per round; null: the learner's lossfunc is called
    // instead. With fHessian it fills second derivatives, too, and the value of a node becomes the
    // sum of its gradients over the sum of its second derivatives, or 0 if that is below 1e-150.
    ObjectiveType objective = nullptr;
    void* objectiveContext = nullptr;
    bool fHessian = false;
    // With fStart, loss "USER" starts from startValue instead of 0: a first group of one leaf.
    bool fStart = false;
    double startValue = 0.0;

    // Sets to evaluate after every round, and the metrics to record for each, by name (see
    // Evaluation.h); none: those that suit the loss. The development set of the learner is
    // evaluated as the first one, "dev", if it exists and earlyStop or evalEvery is set.
    std::vector<EvaluationSet> setV;
    std::vector<std::string> metricV;
    // The set and the metric that decide about the parameter earlyStop. Empty: the set given last,
    // or "dev" if there is no other; the metric that suits the loss.
    std::string stopSet;
    std::string stopMetric;

    // Whether packed trees (setPackedTrees) keep the number of rows of each node, for
    // ModelText::Covers: 4 bytes a node and 40 a tree.
    bool fCovers = false;

    // Metrics of the program's own, which are recorded for each set beside those of metricV, and
    // which stopMetric may name.
    std::vector<UserMetric> userMetricV;

    // Null, or the ranks of a training, of which this learner is one: Boosting is then a collective
    // call, and needs DataBorrow of a set in which the columns of other ranks are constant. Labels,
    // settings, sets to evaluate and seed must be the same at all ranks. Rank 0 writes the files.
    // A rank whose Boosting returns -1 must be made known to the others, or they wait for it.
    Ranks* ranks = nullptr;
};

}  // namespace sylvora

#endif  // SYLVORA_TRAININGOPTIONS_H
