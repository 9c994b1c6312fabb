// Choosing metrics by name and checking that a set has what they need; see NamedMetrics.h.
#include "NamedMetrics.h"

#include <algorithm>
#include <string_view>
#include <utility>

#include "../god/NumberParsing.h"

namespace sylvora {
namespace {

bool IsHinge(const std::string& lossFunc) {
    return lossFunc == "HingeSquare" || lossFunc == "Hinge";
}

}  // namespace

NamedMetric NamedMetric::Parse(const std::string& text) {
    struct Entry {
        const char* name;
        Kind kind;
    };
    static const Entry kEntries[] = {{"rmse", kRmse},       {"mae", kMae}, {"pinball", kPinball},
                                     {"logloss", kLogLoss}, {"auc", kAuc}, {"accuracy", kAccuracy},
                                     {"pairs", kPairs}};
    for (const Entry& entry : kEntries) {
        if (text == entry.name) return {text, entry.kind, 0};
    }
    constexpr std::string_view kNdcgStart = "ndcg@";
    const std::string_view number =
        std::string_view(text).substr(std::min(kNdcgStart.size(), text.size()));
    int cutoff = 0;
    // More digits might not fit into an int.
    const bool fNdcg = text.rfind(kNdcgStart, 0) == 0 && !number.empty() && number.size() <= 9 &&
                       std::all_of(number.begin(), number.end(), IsDigit) &&
                       ParseNumber(number, cutoff) && cutoff > 0;
    if (!fNdcg) return {text, kUnknown, 0};
    return {text, kNdcg, static_cast<size_t>(cutoff)};
}

std::vector<std::string> DefaultMetrics(const MetricContext& context) {
    const std::string& loss = context.lossFunc;
    if (context.modelType == "GBRank") return {"ndcg@10", "pairs"};
    if (context.fClasses) return {"accuracy"};
    if (LinkOf(loss) != Link::kNone) return {"logloss", "auc", "accuracy"};
    if (IsHinge(loss)) return {"auc", "accuracy"};
    if (loss == "Quantile") return {"pinball", "mae"};
    if (loss == "USER") return {"rmse"};
    return {"rmse", "mae"};
}

// For Quantile the error of its own loss decides: the squared error is least at the mean.
std::string DefaultStopMetric(const MetricContext& context) {
    const std::string& loss = context.lossFunc;
    if (context.modelType == "GBRank") return "ndcg@10";
    if (LinkOf(loss) != Link::kNone) return "logloss";
    if (IsHinge(loss)) return "auc";
    return loss == "Quantile" ? "pinball" : "rmse";
}

MeasuredSet::MeasuredSet(VecDle labels, VecInt queries, const MetricContext& metricContext)
    : labelV(std::move(labels)), queryV(std::move(queries)), context(metricContext) {}

std::string MeasuredSet::WhyNotTwoClasses() const {
    const auto hasOnly = [this](double other) {
        return std::all_of(labelV.begin(), labelV.end(),
                           [other](double label) { return label == 1.0 || label == other; });
    };
    return hasOnly(0.0) || hasOnly(-1.0) ? "" : "needs labels 0 and 1, or -1 and 1";
}

std::string MeasuredSet::WhyNot(const NamedMetric& metric) const {
    const std::string& loss = context.lossFunc;
    const bool fLink = !context.fClasses && LinkOf(loss) != Link::kNone;
    switch (metric.kind) {
        case NamedMetric::kUnknown:
            return "does not exist";
        case NamedMetric::kLogLoss:
            return fLink ? WhyNotTwoClasses() : "needs a loss that has probabilities";
        case NamedMetric::kAccuracy:
            if (context.fClasses) return "";
            return fLink || IsHinge(loss) || loss == "USER"
                       ? WhyNotTwoClasses()
                       : "needs a classification or a loss of two classes";
        case NamedMetric::kAuc:
            return HasTwoValues(labelV.data(), labelV.size())
                       ? ""
                       : "needs labels of exactly two values";
        case NamedMetric::kNdcg:
        case NamedMetric::kPairs: {
            if (queryV.empty()) return "needs a query id for each row";
            const RankedQueries queries(labelV.data(), queryV.data(), labelV.size(), {});
            if (metric.kind == NamedMetric::kPairs) {
                return queries.HasPairs() ? "" : "needs a query with two different labels";
            }
            const double largest = *std::max_element(labelV.begin(), labelV.end());
            if (largest > 1023.0) return "needs labels up to 1023: the gain is 2^label - 1";
            return queries.NumRelevant() > 0 ? "" : "needs a query with a label above 0";
        }
        case NamedMetric::kRmse:
        case NamedMetric::kMae:
        case NamedMetric::kPinball:
            break;
    }
    return "";
}

void MeasuredSet::Prepare(const std::vector<NamedMetric>& metricV) {
    bool fRanking = false;
    for (const NamedMetric& metric : metricV) {
        fRanking |= metric.kind == NamedMetric::kNdcg || metric.kind == NamedMetric::kPairs;
        if (metric.kind == NamedMetric::kNdcg) cutoffV.push_back(metric.cutoff);
    }
    if (!fRanking) return;
    ranking =
        std::make_unique<const RankedQueries>(labelV.data(), queryV.data(), labelV.size(), cutoffV);
}

double MeasuredSet::Measure(const NamedMetric& metric, const double* scoreV) const {
    const ScoredRows rows = {scoreV, labelV.data(), labelV.size()};
    switch (metric.kind) {
        case NamedMetric::kMae:
            return MeanAbsoluteError(rows);
        case NamedMetric::kPinball:
            return MeanPinballLoss(rows, context.quantile);
        case NamedMetric::kLogLoss:
            return MeanLogLoss(rows, LinkOf(context.lossFunc));
        case NamedMetric::kAuc:
            return AreaUnderCurve(rows);
        case NamedMetric::kAccuracy:
            return context.fClasses ? ShareOfClasses(rows) : ShareOfSigns(rows);
        case NamedMetric::kNdcg: {
            const auto at = std::find(cutoffV.begin(), cutoffV.end(), metric.cutoff);
            return ranking->MeanGains(scoreV)[static_cast<size_t>(at - cutoffV.begin())];
        }
        case NamedMetric::kPairs:
            return ranking->OrderedPairs(scoreV);
        case NamedMetric::kRmse:
        case NamedMetric::kUnknown:
            break;
    }
    return RootMeanSquareError(rows);
}

}  // namespace sylvora
