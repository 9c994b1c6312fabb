// Prints the metrics.
#include "Metrics.h"

#include <cmath>
#include <map>
#include <utility>
#include <vector>

#include "Evaluation/Metrics.h"
#include "Evaluation/Pairs.h"
#include "Evaluation/Ranking.h"
#include "god/Report.h"

namespace sylvora::frontend {
namespace {

void PrintMetric(const std::string& name, double value) {
    if (std::isnan(value)) {
        Print(name, ": nan\n");
    } else {
        Print(name, ": ", value, "\n");
    }
}

void PrintRanking(const ScoredSet& set) {
    if (set.queryIdV.empty()) {
        Warn("NOTICE: not every row has a query id (qid:...), so there are no ranking metrics\n");
        return;
    }
    const std::vector<size_t> cutoffV = {1, 5, 10};
    const RankedQueries queries(set.labelV.data(), set.queryIdV.data(), set.scoreV.size(), cutoffV);
    Print("queries: ", queries.NumQueries(), "\n");
    Print("queries without a relevant row: ", queries.NumQueries() - queries.NumRelevant(), "\n");
    const VecDle meanV = queries.MeanGains(set.scoreV.data());
    for (size_t i = 0; i < cutoffV.size(); ++i) {
        PrintMetric(Text("NDCG@", cutoffV[i]), meanV[i]);
    }
    PrintMetric("correctly ordered pairs", queries.OrderedPairs(set.scoreV.data()));
}

void PrintRegression(const ScoredRows& rows) {
    PrintMetric("RMSE", RootMeanSquareError(rows));
    PrintMetric("MAE", MeanAbsoluteError(rows));
}

void PrintClassification(const ScoredRows& rows) {
    std::map<std::pair<double, double>, int> confusionM;
    for (size_t i = 0; i < rows.count; ++i) {
        const double predicted = ClassOf(rows.scoreV[i]);
        if (!std::isnan(predicted)) ++confusionM[{ClassOf(rows.labelV[i]), predicted}];
    }
    PrintMetric("accuracy", ShareOfClasses(rows));
    for (const auto& [classes, count] : confusionM) {
        Print("confusion[", classes.first, "][", classes.second, "]: ", count, "\n");
    }
}

}  // namespace

void PrintMetrics(const TreeLearner& model, const ScoredSet& set) {
    Print("rows: ", set.scoreV.size(), "\n");
    if (set.scoreV.empty()) return;
    const ScoredRows rows = {set.scoreV.data(), set.labelV.data(), set.scoreV.size()};
    if (model.CfgInfo.modelType == "GBRank") {
        PrintRanking(set);
    } else if (model.numClass > 0) {
        PrintClassification(rows);
    } else {
        PrintRegression(rows);
    }
    if (HasTwoValues(rows.labelV, rows.count)) PrintMetric("AUC", AreaUnderCurve(rows));
}

}  // namespace sylvora::frontend
