// NDCG and pairs within queries; see Ranking.h.
#include "Ranking.h"

#include <algorithm>
#include <map>
#include <utility>

#include "../god/CorrectRounding.h"

namespace sylvora {
namespace {

// From this many rows on, CountPairs is faster than comparing each row with each.
constexpr size_t kManyRows = 64;

// Each pair of rows, in O(n^2). The keys are OrderedKeys of scores. A pair with different labels
// counts 2 in the right order and 1 with equal scores.
PairCount CountFewPairs(const uint64_t* keyV, const double* labelV, size_t count) {
    int64_t twice = 0, all = 0;
    for (size_t i = 1; i < count; ++i) {
        const uint64_t key = keyV[i];
        const double label = labelV[i];
        for (size_t j = 0; j < i; ++j) {
            const int fUp = labelV[j] < label, fDown = label < labelV[j];
            const int order = (keyV[j] < key) - (key < keyV[j]);
            twice += fUp * (1 + order) + fDown * (1 - order);
            all += fUp + fDown;
        }
    }
    return {0.5 * static_cast<double>(twice), static_cast<double>(all)};
}

}  // namespace

RankedQueries::RankedQueries(const double* labels, const int* queries, size_t count,
                             std::vector<size_t> cutoffs)
    : cutoffV(std::move(cutoffs)), beginV(1, 0) {
    size_t largest = 0;
    for (const size_t cutoff : cutoffV) largest = std::max(largest, cutoff);
    std::map<int, std::vector<size_t>> queryM;
    for (size_t i = 0; i < count; ++i) queryM[queries[i]].push_back(i);
    std::map<double, double> gainM;  // by label: exponentials of single numbers are slow
    std::vector<RankedGain> bestV;
    for (const auto& [id, rows] : queryM) {
        bestV.clear();
        for (const size_t row : rows) {
            const auto [at, fNew] = gainM.try_emplace(labels[row], 0.0);
            if (fNew) at->second = Exp2(labels[row]) - 1.0;
            rowV.push_back(row);
            labelV.push_back(labels[row]);
            gainV.push_back(at->second);
            bestV.push_back({OrderedKey(at->second), at->second, bestV.size()});
        }
        beginV.push_back(rowV.size());
        SortByKey(bestV);
        const bool fRelevant = bestV.front().gain > 0.0;
        numRelevant += fRelevant;
        while (discountV.size() < std::min(rows.size(), largest)) {
            discountV.push_back(1.0 / Log2(static_cast<double>(discountV.size()) + 2.0));
        }
        for (const size_t cutoff : cutoffV) {
            idealV.push_back(fRelevant ? DiscountedGain(bestV, cutoff) : 0.0);
        }
    }
}

bool RankedQueries::HasPairs() const {
    for (size_t q = 0; q < NumQueries(); ++q) {
        for (size_t i = beginV[q] + 1; i < beginV[q + 1]; ++i) {
            if (labelV[i] != labelV[i - 1]) return true;
        }
    }
    return false;
}

// The largest key first; equal keys stay in order.
void RankedQueries::SortByKey(std::vector<RankedGain>& rankedV) {
    std::sort(rankedV.begin(), rankedV.end(), [](const RankedGain& a, const RankedGain& b) {
        return a.key != b.key ? a.key > b.key : a.place < b.place;
    });
}

// The discounted gain of the first `cutoff` positions; `rankedV` is sorted by descending key. Each
// of several items with equal keys gets the mean of their gains.
double RankedQueries::DiscountedGain(const std::vector<RankedGain>& rankedV, size_t cutoff) const {
    double sum = 0.0;
    for (size_t begin = 0, end = 0; begin < std::min(cutoff, rankedV.size()); begin = end) {
        double gain = 0.0;
        double discount = 0.0;
        for (; end < rankedV.size() && rankedV[end].key == rankedV[begin].key; ++end) {
            gain += rankedV[end].gain;
            if (end < cutoff) discount += discountV[end];
        }
        sum += gain / static_cast<double>(end - begin) * discount;
    }
    return sum;
}

VecDle RankedQueries::MeanGains(const double* scoreV) const {
    const size_t numCutoffs = cutoffV.size();
    VecDle meanV(numCutoffs, 0.0);
    std::vector<RankedGain> rankedV;
    for (size_t q = 0; numCutoffs > 0 && q < NumQueries(); ++q) {
        const double* const ideal = idealV.data() + q * numCutoffs;
        if (*ideal == 0.0) continue;
        rankedV.clear();
        for (size_t i = beginV[q]; i < beginV[q + 1]; ++i) {
            rankedV.push_back({OrderedKey(scoreV[rowV[i]]), gainV[i], i});
        }
        SortByKey(rankedV);
        for (size_t k = 0; k < numCutoffs; ++k) {
            meanV[k] += DiscountedGain(rankedV, cutoffV[k]) / ideal[k];
        }
    }
    for (double& mean : meanV) mean = Share(mean, static_cast<double>(numRelevant));
    return meanV;
}

double RankedQueries::OrderedPairs(const double* scoreV) const {
    PairCount pairs;
    for (size_t q = 0; q < NumQueries(); ++q) {
        const size_t begin = beginV[q], count = beginV[q + 1] - begin;
        PairCount ofQuery;
        if (count < kManyRows) {
            uint64_t keyV[kManyRows];
            for (size_t i = 0; i < count; ++i) keyV[i] = OrderedKey(scoreV[rowV[begin + i]]);
            ofQuery = CountFewPairs(keyV, labelV.data() + begin, count);
        } else {
            std::vector<ScoredRow> group;
            for (size_t i = begin; i < begin + count; ++i) {
                group.push_back({scoreV[rowV[i]], labelV[i]});
            }
            ofQuery = CountPairs(std::move(group));
        }
        pairs.ordered += ofQuery.ordered;
        pairs.all += ofQuery.all;
    }
    return Share(pairs.ordered, pairs.all);
}

}  // namespace sylvora
