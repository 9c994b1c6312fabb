// Metrics of ranking: rows are compared within queries.
#ifndef SYLVORA_EVALUATION_RANKING_H
#define SYLVORA_EVALUATION_RANKING_H

#include <cstddef>
#include <cstdint>
#include <vector>

#include "../Libdef.h"
#include "Pairs.h"

namespace sylvora {

// The labels of rows by query, prepared for many evaluations of their scores. NDCG: gain
// 2^label - 1, discount 1 / log2(position + 1), positions from 1 (Jarvelin and Kekalainen 2002,
// Burges et al. 2005). Each of several rows with equal scores gets the mean of their gains.
//
// Immutable, so thread-safe.
class RankedQueries {
  public:
    // Copies labels and queries. Rows of a query need not be together. The cutoffs are those of
    // MeanGains, each at least 1.
    RankedQueries(const double* labels, const int* queries, size_t count,
                  std::vector<size_t> cutoffs);

    size_t NumQueries() const { return beginV.size() - 1; }
    // Queries with a row whose gain is above 0; only these have an NDCG.
    size_t NumRelevant() const { return numRelevant; }
    // Whether a query has two rows with different labels.
    bool HasPairs() const;

    // The NDCG at each cutoff: the mean over the relevant queries in ascending order of their ids;
    // NaN if there are none.
    VecDle MeanGains(const double* scoreV) const;
    // The share of correctly ordered pairs within queries; NaN if there are no pairs.
    double OrderedPairs(const double* scoreV) const;

  private:
    struct RankedGain {
        uint64_t key;  // OrderedKey of what is sorted by
        double gain;
        size_t place;
    };

    static void SortByKey(std::vector<RankedGain>& rankedV);
    double DiscountedGain(const std::vector<RankedGain>& rankedV, size_t cutoff) const;

    std::vector<size_t> cutoffV;
    VecDle discountV;  // by position, from 0, below the largest cutoff
    // By query, in ascending order of ids: where its rows begin in the arrays below; one more entry
    // ends the last query.
    std::vector<size_t> beginV;
    std::vector<size_t> rowV;  // ascending within a query
    VecDle labelV, gainV;
    VecDle idealV;  // by query, then cutoff: the largest discounted gain; 0 if not relevant
    size_t numRelevant = 0;
};

}  // namespace sylvora

#endif  // SYLVORA_EVALUATION_RANKING_H
