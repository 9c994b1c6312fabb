// Shares of correctly ordered pairs of rows with different labels. A pair with equal scores counts
// half, and a NaN score ranks below all numbers. Counts are exact below 2^52 pairs.
#ifndef SYLVORA_EVALUATION_PAIRS_H
#define SYLVORA_EVALUATION_PAIRS_H

#include <cmath>
#include <cstdint>
#include <cstring>
#include <vector>

#include "Metrics.h"

namespace sylvora {

// A strict weak order in which all NaNs are equal and come before every number.
inline bool IsLower(double a, double b) {
    return std::isnan(a) ? !std::isnan(b) : a < b;
}

// A number per score: these have the order of IsLower, and equal scores have equal numbers.
inline uint64_t OrderedKey(double score) {
    constexpr uint64_t kSign = uint64_t{1} << 63;
    if (std::isnan(score)) return 0;
    score += 0.0;  // -0 becomes 0
    uint64_t bits = 0;
    std::memcpy(&bits, &score, sizeof bits);
    return (bits & kSign) != 0 ? ~bits : bits | kSign;
}

struct PairCount {
    double ordered = 0.0;  // pairs with equal scores count half
    double all = 0.0;
};

struct ScoredRow {
    double score;
    double label;
};

// Counts the pairs among the rows, in O(n log n).
PairCount CountPairs(std::vector<ScoredRow> group);

// Whether the labels have exactly two values.
bool HasTwoValues(const double* labelV, size_t count);

// The area under the ROC curve: CountPairs as a share. The labels must have exactly two values,
// none of them NaN. Sorts by digits, which is faster than CountPairs.
double AreaUnderCurve(const ScoredRows& rows);

}  // namespace sylvora

#endif  // SYLVORA_EVALUATION_PAIRS_H
