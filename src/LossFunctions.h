// The formulas of the loss "LogLoss", for objectives of one's own: an objective that calls
// LogLossGradient, with fHessian and the start value LogLossStart (see TrainingOptions.h), trains
// the same trees as the loss itself, bit for bit.
//
// Thread safety: the functions only read their inputs; disjoint outputs may be filled in parallel.
#ifndef SYLVORA_LOSSFUNCTIONS_H
#define SYLVORA_LOSSFUNCTIONS_H

#include "Libdef.h"

namespace sylvora {

// With y = 1 for a label above 0 and y = 0 for any other, and p = 1 / (1 + exp(-score)), sets the
// negative gradients of the log loss, g = y - p, and its second derivatives, |g| (1 - |g|). All
// arrays have numRows entries; hessianV may be null. The exponential is correctly rounded, so the
// results are the same on every processor. Scores may be of any size; NaN gives NaN.
SYLVORA_API void LogLossGradient(const double* labelV, const double* scoreV, int numRows,
                                 double* gradientV, double* hessianV);

// The log-odds log(W1 / W0), where W1 and W0 are the sums of the weights of the rows with a label
// above 0 and of all others. `weightV` may be null: all weights are then 1. Infinite, or NaN, if a
// sum is 0.
SYLVORA_API double LogLossStart(const double* labelV, const int* weightV, int numRows);

}  // namespace sylvora

#endif  // SYLVORA_LOSSFUNCTIONS_H
