// Metrics of named data sets, recorded round by round while a training runs.
#ifndef SYLVORA_EVALUATION_H
#define SYLVORA_EVALUATION_H

#include <cstdint>
#include <string>
#include <vector>

#include "DataBlock.h"
#include "Libdef.h"

namespace sylvora {

// A set to evaluate, of at least one row and as many columns as the training data. The block and
// the arrays are borrowed and must stay valid and unchanged until the training ends. Missing values
// are read as DataBlock says.
struct EvaluationSet {
    std::string name;  // not empty, and different from those of the other sets
    DataBlock block;
    const double* labels = nullptr;  // one per row, finite; the label map applies to them
    const int* queries = nullptr;    // one per row, in any order; null: no "ndcg@K" and "pairs"
};

// The values of one metric on one set. Metrics, by name:
//
//   "rmse", "mae"          root of the mean squared, and mean absolute, difference to the label
//   "pinball"              mean pinball loss at CfgInfo.quantile
//   "logloss"              mean log loss; needs a loss with probabilities (Links.h), and labels 0
//                          and 1, or -1 and 1. Probabilities are moved into [1e-15, 1 - 1e-15].
//   "auc"                  share of correctly ordered pairs of rows with different labels; needs
//                          labels of exactly two values
//   "accuracy"             classification: share of rows whose vote is their class. Two-class
//                          losses and "USER": share of rows whose score is above 0 if and only if
//                          the label is; labels as for "logloss".
//   "ndcg@K"               mean over queries of the normalised discounted gain at position K
//   "pairs"                share of correctly ordered pairs within queries
//
// Larger is better for the last four. Pairs with equal scores count half; NDCG gives rows with
// equal scores the mean of their gains and leaves out queries without a label above 0.
struct MetricRecord {
    std::string set;
    std::string metric;
    // By round, from the first on; after early stopping, also of the rounds that were cut off. Of a
    // forest, a single tree or a classification one value, at the end.
    std::vector<double> valueV;
};

// A metric of the program's own: sets *value for the scores of a set after a round. The arrays have
// numRows entries and belong to the library; labels are those after the label map. Called by the
// thread that trains. Any result but 0, or an exception, ends the training, which fails.
typedef int (*MetricFuncType)(void* context, const char* set, std::int64_t numRows,
                              const double* labelV, const double* scoreV, double* value);

struct UserMetric {
    std::string name;  // not empty, and different from those of all other metrics
    MetricFuncType function = nullptr;
    void* context = nullptr;  // borrowed
    bool fLargerIsBetter = false;
};

// What was measured in the training under way or, after it, in the last one, up to its end or
// failure. Of a set, first the metrics above, with one that only earlyStop needs as the last of
// them, then the program's own.
struct EvaluationRecord {
    std::vector<MetricRecord> metricV;  // by set and, within a set, by metric, as they were given
    int bestRound = 0;       // rounds of the model, counted from 1, that was best; 0: not asked for
    double bestValue = 0.0;  // the metric of that round
    bool fStoppedEarly = false;  // the training ended before numTree rounds for lack of progress
    std::string stopSet, stopMetric;  // what decided about earlyStop; empty: not asked for
};

}  // namespace sylvora

#endif  // SYLVORA_EVALUATION_H
