// Metrics of named data sets, recorded round by round while a training runs.
#ifndef SYLVORA_EVALUATION_H
#define SYLVORA_EVALUATION_H

#include <string>
#include <vector>

#include "DataBlock.h"
#include "Libdef.h"

namespace sylvora {

// A set to evaluate. The block is borrowed and must stay valid until the training ends; labels,
// weights and queries are copied.
struct EvaluationSet {
    std::string name;
    DataBlock block;
    const double* labels = nullptr;  // one per row
    const int* queries = nullptr;    // one per row: needed by NDCG and pairs; otherwise null
};

// The values of one metric on one set. Metrics, by name:
//
//   "rmse", "mae"          root of the mean squared, and mean absolute, difference to the label
//   "pinball"              mean pinball loss at CfgInfo.quantile
//   "logloss"              mean log loss of the probabilities of the loss; labels 0 and 1, or -1
//                          and 1
//   "auc"                  share of correctly ordered pairs of rows with different labels
//   "accuracy"             share of rows whose score, or vote, names their class
//   "ndcg@K"               mean over queries of the normalised discounted gain at position K
//   "pairs"                share of correctly ordered pairs within queries
//
// Larger is better for the last four. The definitions of ties are those of the command's metrics.
struct MetricRecord {
    std::string set;
    std::string metric;
    std::vector<double> valueV;  // by round, from the first on
};

// What was measured in the last training.
struct EvaluationRecord {
    std::vector<MetricRecord> metricV;  // by set and, within a set, by metric, as they were given
    int bestRound = 0;       // rounds of the model, counted from 1, that was best; 0: not asked for
    double bestValue = 0.0;  // the metric of that round
    bool fStoppedEarly = false;  // the training ended before numTree rounds for lack of progress
};

}  // namespace sylvora

#endif  // SYLVORA_EVALUATION_H
