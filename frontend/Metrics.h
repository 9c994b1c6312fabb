// How good the scores of a model are.
//
//   rows                          always
//   RMSE, MAE                     regression
//   accuracy, confusion[L][P]     classification: rows of class L that were predicted as class P,
//                                 where there are any; a class is the integer part of its number
//   NDCG@1, @5, @10               "GBRank": mean over the queries. Gain 2^label - 1, discount
//                                 1 / log2(place + 1) (Jarvelin and Kekalainen 2002, Burges et al.
//                                 2005). Rows with equal scores share the mean of their gains. A
//                                 query that has nothing to find (no gain above 0) has no part in
//                                 the mean.
//   correctly ordered pairs       "GBRank": of all pairs of one query with different labels, the
//                                 share whose scores are ordered like the labels; equal ones count
//                                 half
//   AUC                           where the labels have exactly two values: the same share over all
//                                 rows
//
// A score that is not a number ranks below all others. A mean over nothing is "nan".
#ifndef SYLVORA_FRONTEND_METRICS_H
#define SYLVORA_FRONTEND_METRICS_H

#include "Scoring.h"
#include "TreeLearner.h"

namespace sylvora::frontend {

// Prints the metrics of `model` (its type and classes decide which) on the scored rows to standard
// output, one "name: value" per line.
void PrintMetrics(const TreeLearner& model, const ScoredSet& set);

}  // namespace sylvora::frontend

#endif  // SYLVORA_FRONTEND_METRICS_H
