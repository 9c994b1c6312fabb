// The losses of a residual r = label - prediction: absolute, Huber and quantile (pinball) loss.
// Pure functions of arrays; safe to call from any thread on distinct outputs.
//
//   loss       negative gradient                       value of a node
//   absolute   sign(r)                                 median of r
//   quantile   q if r > 0, q - 1 if r < 0, else 0      q-quantile of r
//   Huber      r within [-delta, delta], cut off       m + mean of r - m, cut off likewise, where m
//                                                      is the median of r
//
// Friedman, "Greedy function approximation: a gradient boosting machine" (2001), with a delta that
// is given instead of estimated; Koenker and Bassett, "Regression quantiles" (1978).
#ifndef SYLVORA_LOSSFUNCTIONS_RESIDUALS_H
#define SYLVORA_LOSSFUNCTIONS_RESIDUALS_H

#include <vector>

namespace sylvora {

double AbsoluteGradient(double label, double prediction);
double QuantileGradient(double label, double prediction, double quantile);
double HuberGradient(double label, double prediction, double delta);

// Rows of a node, in order; borrowed. Weights are above 0; null: all are 1, so that their sum is an
// exact double.
struct WeightedValues {
    const double* valueV;
    const int* weightV;
    int count;
};

// Buffers of QuantileOf, kept from call to call.
struct QuantileBuffers {
    struct Entry {
        double value;
        int weight;
    };
    std::vector<double> valueV;
    std::vector<Entry> entryV;
};

// The quantile `q`, in (0, 1): with W(v) the weight of the values up to v, and W that of all, the
// smallest v with W(v) > q W or, if W(v) = q W for some v, the mean of that v and the next larger
// value. (Definition 2 of Hyndman and Fan, "Sample quantiles in statistical packages" (1996); for q
// = 0.5 the median.) 0 without values; NaN if a value is not finite.
double QuantileOf(const WeightedValues& values, double q, QuantileBuffers& buffers);

// The value of a node for the Huber loss. The sum of the mean adds in the order of the values.
double HuberCentre(const WeightedValues& values, double delta, QuantileBuffers& buffers);

}  // namespace sylvora

#endif  // SYLVORA_LOSSFUNCTIONS_RESIDUALS_H
