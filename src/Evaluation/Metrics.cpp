// Metrics that are means over rows; see Metrics.h.
#include "Metrics.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "../god/CorrectRounding.h"

namespace sylvora {
namespace {

template <typename Value>
double Sum(const ScoredRows& rows, const Value& valueOf) {
    double sum = 0.0;
    for (size_t i = 0; i < rows.count; ++i) sum += valueOf(rows.scoreV[i], rows.labelV[i]);
    return sum;
}

template <typename Value>
double Mean(const ScoredRows& rows, const Value& valueOf) {
    return Sum(rows, valueOf) / static_cast<double>(rows.count);
}

}  // namespace

double Share(double part, double whole) {
    return whole > 0.0 ? part / whole : std::numeric_limits<double>::quiet_NaN();
}

double RootMeanSquareError(const ScoredRows& rows) {
    return std::sqrt(Mean(rows, [](double score, double label) {
        const double difference = score - label;
        return difference * difference;
    }));
}

double MeanAbsoluteError(const ScoredRows& rows) {
    return Mean(rows, [](double score, double label) { return std::fabs(score - label); });
}

double MeanPinballLoss(const ScoredRows& rows, double quantile) {
    return Mean(rows, [quantile](double score, double label) {
        const double excess = label - score;
        return (excess >= 0.0 ? quantile : quantile - 1.0) * excess;
    });
}

// The probability of the smaller label is that of the larger one at the negated score, which loses
// no digits, as 1 - p would.
double MeanLogLoss(const ScoredRows& rows, Link link) {
    constexpr size_t kBlock = 256;
    constexpr double kLeast = 1e-15;
    double valueV[kBlock] = {}, logV[kBlock] = {};
    double sum = 0.0;
    for (size_t begin = 0; begin < rows.count; begin += kBlock) {
        const size_t size = std::min(kBlock, rows.count - begin);
        for (size_t i = 0; i < size; ++i) {
            const double score = rows.scoreV[begin + i];
            valueV[i] = rows.labelV[begin + i] > 0.0 ? score : -score;
        }
        ProbabilitiesOf(link, valueV, size, valueV);
        for (size_t i = 0; i < size; ++i) valueV[i] = std::clamp(valueV[i], kLeast, 1.0 - kLeast);
        LogEach(valueV, logV, size);
        for (size_t i = 0; i < size; ++i) sum -= logV[i];
    }
    return sum / static_cast<double>(rows.count);
}

double ShareOfSigns(const ScoredRows& rows) {
    return Mean(rows, [](double score, double label) {
        const bool fRight = !std::isnan(score) && (score > 0.0) == (label > 0.0);
        return fRight ? 1.0 : 0.0;
    });
}

// Adding 0.0 turns -0 into 0.
double ClassOf(double value) {
    return std::trunc(value) + 0.0;
}

double ShareOfClasses(const ScoredRows& rows) {
    return Mean(rows, [](double score, double label) {
        return ClassOf(score) == ClassOf(label) ? 1.0 : 0.0;
    });
}

}  // namespace sylvora
