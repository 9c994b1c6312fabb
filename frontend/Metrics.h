// Metrics of a model's scores, as the command prints them.
//
//   rows                          always
//   RMSE, MAE                     regression
//   accuracy, confusion[L][P]     classification. confusion[L][P] is the number of rows of class L
//                                 that are predicted as class P; zero counts are not printed. A
//                                 class is the integer part of a label or score.
//   NDCG@1, @5, @10               "GBRank": mean over the queries. Gain 2^label - 1, discount
//                                 1 / log2(position + 1), positions from 1 (Jarvelin and Kekalainen
//                                 2002, Burges et al. 2005). Each of several rows with equal scores
//                                 gets the mean of their gains. Queries without a gain above 0 are
//                                 left out of the mean.
//   correctly ordered pairs       "GBRank": of all pairs of rows of one query with different labels
//                                 the share whose scores have the order of the labels. A pair with
//                                 equal scores counts one half.
//   AUC                           if the labels have exactly two values: the share of correctly
//                                 ordered pairs among all rows
//
// A NaN score ranks below all numbers. The mean of nothing is "nan".
#ifndef SYLVORA_FRONTEND_METRICS_H
#define SYLVORA_FRONTEND_METRICS_H

#include "Scoring.h"
#include "TreeLearner.h"

namespace sylvora::frontend {

// Prints the metrics of the scored rows to standard output, one "name: value" per line. The type of
// `model` and its number of classes decide which metrics.
void PrintMetrics(const TreeLearner& model, const ScoredSet& set);

}  // namespace sylvora::frontend

#endif  // SYLVORA_FRONTEND_METRICS_H
