// Computes and prints the metrics. Pairs are counted in O(n log n).
#include "Metrics.h"

#include <algorithm>
#include <cmath>
#include <functional>
#include <iterator>
#include <limits>
#include <map>
#include <numeric>
#include <set>
#include <utility>
#include <vector>

#include "god/CorrectRounding.h"
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

double Share(double part, double whole) {
    return whole > 0.0 ? part / whole : std::numeric_limits<double>::quiet_NaN();
}

// A strict weak order in which all NaNs are equal and come before every number.
bool IsLower(double a, double b) {
    return std::isnan(a) ? !std::isnan(b) : a < b;
}

struct ScoredRow {
    double score;
    double label;
};
typedef std::vector<ScoredRow> Group;

// Counts per rank. Adding an item and the prefix sum take logarithmic time (P. Fenwick, 1994: the
// binary indexed tree).
class RankCounts {
  public:
    explicit RankCounts(size_t numRanks) : sumV(numRanks + 1, 0.0) {}

    void Add(size_t rank) {
        for (size_t i = rank + 1; i < sumV.size(); i += i & (~i + 1)) sumV[i] += 1.0;
    }
    // The number of items with a rank below `rank`.
    double Below(size_t rank) const {
        double sum = 0.0;
        for (size_t i = rank; i > 0; i -= i & (~i + 1)) sum += sumV[i];
        return sum;
    }

  private:
    VecDle sumV;
};

struct PairCount {
    double ordered = 0.0;  // pairs with equal scores count half
    double all = 0.0;
};

// Counts the pairs of rows with different labels. Loop invariant: at each run of equal labels,
// `counts` holds the score ranks of exactly the rows with smaller labels.
PairCount CountPairs(Group group) {
    const auto byScore = [](const ScoredRow& a, const ScoredRow& b) {
        return IsLower(a.score, b.score);
    };
    Group ranked = group;
    std::sort(ranked.begin(), ranked.end(), byScore);
    const auto rankOf = [&ranked](Group::iterator position) {
        return static_cast<size_t>(position - ranked.begin());
    };
    std::sort(group.begin(), group.end(),
              [](const ScoredRow& a, const ScoredRow& b) { return a.label < b.label; });
    RankCounts counts(group.size());
    PairCount pairs;
    for (auto begin = group.begin(), end = begin; begin != group.end(); begin = end) {
        const double numSmaller = static_cast<double>(begin - group.begin());
        for (; end != group.end() && end->label == begin->label; ++end) {
            const auto equal = std::equal_range(ranked.begin(), ranked.end(), *end, byScore);
            const double below = counts.Below(rankOf(equal.first));
            pairs.ordered += 0.5 * (below + counts.Below(rankOf(equal.second)));
            pairs.all += numSmaller;
        }
        for (auto row = begin; row != end; ++row) {
            counts.Add(rankOf(std::lower_bound(ranked.begin(), ranked.end(), *row, byScore)));
        }
    }
    return pairs;
}

constexpr size_t kCutoffs[] = {1, 5, 10};
constexpr size_t kLargestCutoff = 10;

// The discount of a position, counted from 0; it must be below kLargestCutoff.
double DiscountOf(size_t position) {
    static const std::vector<double> discountV = [] {
        std::vector<double> valueV;
        for (size_t i = 0; i < kLargestCutoff; ++i) {
            valueV.push_back(1.0 / Log2(static_cast<double>(i) + 2.0));
        }
        return valueV;
    }();
    return discountV[position];
}

struct RankedGain {
    double key;
    double gain;
};

// The discounted gain of the first `cutoff` positions; `rankedV` is sorted by descending key. Each
// of several items with equal keys gets the mean of their gains.
double DiscountedGain(const std::vector<RankedGain>& rankedV, size_t cutoff) {
    double sum = 0.0;
    for (size_t begin = 0, end = 0; begin < std::min(cutoff, rankedV.size()); begin = end) {
        double gain = 0.0;
        double discount = 0.0;
        for (; end < rankedV.size() && !IsLower(rankedV[end].key, rankedV[begin].key); ++end) {
            gain += rankedV[end].gain;
            if (end < cutoff) discount += DiscountOf(end);
        }
        sum += gain / static_cast<double>(end - begin) * discount;
    }
    return sum;
}

void SortByKey(std::vector<RankedGain>& rankedV) {
    std::stable_sort(rankedV.begin(), rankedV.end(), [](const RankedGain& a, const RankedGain& b) {
        return IsLower(b.key, a.key);
    });
}

// The NDCG of one query at each cutoff; empty if no row has a gain above 0.
VecDle NormalizedGain(const Group& group) {
    std::vector<RankedGain> byScoreV, idealV;
    for (const ScoredRow& row : group) {
        const double gain = Exp2(row.label) - 1.0;
        byScoreV.push_back({row.score, gain});
        idealV.push_back({gain, gain});
    }
    SortByKey(byScoreV);
    SortByKey(idealV);
    VecDle shareV;
    if (!(idealV.front().gain > 0.0)) return shareV;
    for (const size_t cutoff : kCutoffs) {
        shareV.push_back(DiscountedGain(byScoreV, cutoff) / DiscountedGain(idealV, cutoff));
    }
    return shareV;
}

std::map<int, Group> GroupByQuery(const ScoredSet& set) {
    std::map<int, Group> groupM;
    for (size_t i = 0; i < set.scoreV.size(); ++i) {
        groupM[set.queryIdV[i]].push_back({set.scoreV[i], set.labelV[i]});
    }
    return groupM;
}

void PrintRanking(const ScoredSet& set) {
    if (set.queryIdV.empty()) {
        Warn("NOTICE: not every row has a query id (qid:...), so there are no ranking metrics\n");
        return;
    }
    VecDle sumV(std::size(kCutoffs), 0.0);
    int numQueries = 0;
    PairCount pairs;
    const std::map<int, Group> groupM = GroupByQuery(set);
    for (const auto& [id, group] : groupM) {
        const PairCount ofQuery = CountPairs(group);
        pairs.ordered += ofQuery.ordered;
        pairs.all += ofQuery.all;
        const VecDle shareV = NormalizedGain(group);
        if (shareV.empty()) continue;
        ++numQueries;
        std::transform(shareV.begin(), shareV.end(), sumV.begin(), sumV.begin(), std::plus<>());
    }
    Print("queries: ", groupM.size(), "\n");
    Print("queries without a relevant row: ", static_cast<int>(groupM.size()) - numQueries, "\n");
    for (size_t i = 0; i < std::size(kCutoffs); ++i) {
        PrintMetric(Text("NDCG@", kCutoffs[i]), Share(sumV[i], numQueries));
    }
    PrintMetric("correctly ordered pairs", Share(pairs.ordered, pairs.all));
}

void PrintRegression(const ScoredSet& set) {
    double squares = 0.0;
    double absolutes = 0.0;
    for (size_t i = 0; i < set.scoreV.size(); ++i) {
        const double difference = set.scoreV[i] - set.labelV[i];
        squares += difference * difference;
        absolutes += std::fabs(difference);
    }
    const double numRows = static_cast<double>(set.scoreV.size());
    PrintMetric("RMSE", std::sqrt(squares / numRows));
    PrintMetric("MAE", absolutes / numRows);
}

// Adding 0.0 turns -0 into 0; this is deliberate, so that both are printed as one class.
double ClassOf(double value) {
    return std::trunc(value) + 0.0;
}

void PrintClassification(const ScoredSet& set) {
    std::map<std::pair<double, double>, int> confusionM;
    int numCorrect = 0;
    for (size_t i = 0; i < set.scoreV.size(); ++i) {
        const double label = ClassOf(set.labelV[i]);
        const double predicted = ClassOf(set.scoreV[i]);
        if (std::isnan(predicted)) continue;
        ++confusionM[{label, predicted}];
        if (label == predicted) ++numCorrect;
    }
    PrintMetric("accuracy", numCorrect / static_cast<double>(set.scoreV.size()));
    for (const auto& [classes, count] : confusionM) {
        Print("confusion[", classes.first, "][", classes.second, "]: ", count, "\n");
    }
}

void PrintAreaUnderCurve(const ScoredSet& set) {
    if (std::set<double>(set.labelV.begin(), set.labelV.end()).size() != 2) return;
    Group all;
    for (size_t i = 0; i < set.scoreV.size(); ++i) all.push_back({set.scoreV[i], set.labelV[i]});
    const PairCount pairs = CountPairs(std::move(all));
    PrintMetric("AUC", Share(pairs.ordered, pairs.all));
}

}  // namespace

void PrintMetrics(const TreeLearner& model, const ScoredSet& set) {
    Print("rows: ", set.scoreV.size(), "\n");
    if (set.scoreV.empty()) return;
    if (model.CfgInfo.modelType == "GBRank") {
        PrintRanking(set);
    } else if (model.numClass > 0) {
        PrintClassification(set);
    } else {
        PrintRegression(set);
    }
    PrintAreaUnderCurve(set);
}

}  // namespace sylvora::frontend
