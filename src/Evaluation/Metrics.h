// Metrics of scores. The sums run over the rows in order. The mean of nothing is NaN, and so is
// every mean over a score that is NaN, except for shares, where a NaN is wrong or ranks below all
// numbers. The functions only read their arguments and are safe to call from any thread.
#ifndef SYLVORA_EVALUATION_METRICS_H
#define SYLVORA_EVALUATION_METRICS_H

#include <cstddef>

#include "../Links.h"

namespace sylvora {

// A score and a label per row. Borrowed.
struct ScoredRows {
    const double* scoreV;
    const double* labelV;
    size_t count;
};

// part / whole, or NaN if `whole` is not above 0.
double Share(double part, double whole);

double RootMeanSquareError(const ScoredRows& rows);
double MeanAbsoluteError(const ScoredRows& rows);

// The mean of quantile * d where the label exceeds the score by d >= 0, and of (quantile - 1) * d
// elsewhere.
double MeanPinballLoss(const ScoredRows& rows, double quantile);

// The mean of -ln of the probability that the link gives to the label of the row: the positive one
// if it is above 0. Probabilities are moved into [1e-15, 1 - 1e-15] before.
double MeanLogLoss(const ScoredRows& rows, Link link);

// The share of rows whose score is above 0 exactly if the label is.
double ShareOfSigns(const ScoredRows& rows);

// A class is the integer part of a label or score; -0 is 0.
double ClassOf(double value);

// The share of rows whose score and label have the same class.
double ShareOfClasses(const ScoredRows& rows);

}  // namespace sylvora

#endif  // SYLVORA_EVALUATION_METRICS_H
