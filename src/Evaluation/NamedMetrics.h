// The metrics of a training, by the names that Evaluation.h lists.
#ifndef SYLVORA_EVALUATION_NAMEDMETRICS_H
#define SYLVORA_EVALUATION_NAMEDMETRICS_H

#include <memory>
#include <string>
#include <vector>

#include "../Libdef.h"
#include "Ranking.h"

namespace sylvora {

// What the metrics depend on beside scores and labels.
struct MetricContext {
    std::string modelType;
    std::string lossFunc;
    bool fClasses = false;  // a classification: scores are classes
    double quantile = 0.5;
};

struct NamedMetric {
    enum Kind { kUnknown, kRmse, kMae, kPinball, kLogLoss, kAuc, kAccuracy, kNdcg, kPairs };

    // kUnknown if there is no metric of this name.
    static NamedMetric Parse(const std::string& text);

    bool IsLargerBetter() const { return kind >= kAuc; }

    std::string name;
    Kind kind = kUnknown;
    size_t cutoff = 0;  // of kNdcg, at least 1
};

// The metrics that suit a training, and the one that early stopping reads.
std::vector<std::string> DefaultMetrics(const MetricContext& context);
std::string DefaultStopMetric(const MetricContext& context);

// The labels of a set, prepared for measuring scores again and again. Immutable once prepared, so
// thread-safe.
class MeasuredSet {
  public:
    // `queries` is empty, or has an id per row. There is at least one row.
    MeasuredSet(VecDle labels, VecInt queries, const MetricContext& metricContext);

    // Says why a metric is not defined for the set, as the end of a sentence that begins with the
    // metric; empty if it is.
    std::string WhyNot(const NamedMetric& metric) const;
    // Must be called, with all metrics, before Measure.
    void Prepare(const std::vector<NamedMetric>& metricV);
    double Measure(const NamedMetric& metric, const double* scoreV) const;

    size_t NumRows() const { return labelV.size(); }
    const VecDle& Labels() const { return labelV; }
    const VecInt& Queries() const { return queryV; }

  private:
    std::string WhyNotTwoClasses() const;

    VecDle labelV;
    VecInt queryV;
    const MetricContext context;
    std::vector<size_t> cutoffV;                   // of the NDCGs to measure
    std::unique_ptr<const RankedQueries> ranking;  // null if no metric needs it
};

}  // namespace sylvora

#endif  // SYLVORA_EVALUATION_NAMEDMETRICS_H
