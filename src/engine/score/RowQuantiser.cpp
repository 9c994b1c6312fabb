// Quantising rows; see RowQuantiser.h.
#include "RowQuantiser.h"

#include <emmintrin.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <numeric>
#include <utility>

namespace sylvora {
namespace engine {
namespace {

constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr int kBucketsPerThreshold = 4;

// Returns 0 if value <= threshold, else -1 (also for NaN). Compilers turn the plain expression into
// an unpredictable branch.
inline int AboveMask(double value, double threshold) {
    const __m128d fAbove = _mm_cmpnle_sd(_mm_set_sd(value), _mm_set_sd(threshold));
    return _mm_cvtsi128_si32(_mm_castpd_si128(fAbove));
}

// kLanes bisections in lockstep, so that their loads overlap.
//
// Invariant: value i is above the first rank[i] thresholds, which ascend, and above fewer than 2 *
// step of those that follow. At the end, rank[i] is exact. Reads at most 2^numSteps - 1 thresholds
// from the initial rank[i] on. A NaN is above everything, padding included; callers clamp its rank.
template <int kLanes>
inline void Bisect(const double* const* thresholdVV, const double* valueV, int numSteps,
                   int* rank) {
    for (int step = (1 << numSteps) / 2; step > 0; step /= 2) {
        for (int i = 0; i < kLanes; ++i) {
            rank[i] += step & AboveMask(valueV[i], thresholdVV[i][rank[i] + step - 1]);
        }
    }
}

// Stores the codes of a feature's bands, eight at a time: for band b, rank - b * kBandThresholds,
// clamped to [0, kBandThresholds]. Excess bytes belong to the next feature, which is stored later,
// or lie behind the last band.
inline void StoreBands(int rank, int numThresholds, int8_t* codeV) {
    constexpr int kBands = RowQuantiser::kLookupLanes;
    static_assert(kBands == 8);
    const __m128i most = _mm_set1_epi16(kBandThresholds);
    const __m128i zero = _mm_set1_epi8(CountByte(0));
    const __m128i first = _mm_mullo_epi16(_mm_set_epi16(7, 6, 5, 4, 3, 2, 1, 0), most);
    __m128i above = _mm_subs_epu16(_mm_set1_epi16(static_cast<int16_t>(rank)), first);
    for (int k = 0; k < numThresholds; k += kBands * kBandThresholds, codeV += kBands) {
        const __m128i counts = _mm_min_epi16(above, most);
        const __m128i bytes = _mm_add_epi8(_mm_packus_epi16(counts, counts), zero);
        _mm_storel_epi64(reinterpret_cast<__m128i*>(codeV), bytes);
        above = _mm_subs_epu16(above, _mm_set1_epi16(kBands * kBandThresholds));
    }
}

}  // namespace

void RowQuantiser::Add(int splitFea, double threshold) {
    collectedV.push_back({splitFea, threshold});
}

// Sorts the thresholds by feature and value and drops repeated ones, then lays out features, bands
// and buckets in this order.
void RowQuantiser::Finish() {
    const auto isBefore = [](const Threshold& a, const Threshold& b) {
        return a.splitFea != b.splitFea ? a.splitFea < b.splitFea : a.value < b.value;
    };
    std::sort(collectedV.begin(), collectedV.end(), isBefore);
    int numUsed = 0;
    for (auto begin = collectedV.begin(); begin != collectedV.end();) {
        const int splitFea = begin->splitFea;
        Feature feature = {splitFea,
                           0,
                           numUsed,
                           0,
                           static_cast<int>(thresholdV.size()),
                           static_cast<int>(bucketV.size()),
                           0,
                           0,
                           0};
        for (; begin != collectedV.end() && begin->splitFea == splitFea; ++begin) {
            if (feature.numThresholds > 0 && thresholdV.back() == begin->value) continue;
            thresholdV.push_back(begin->value);
            ++feature.numThresholds;
        }
        MakeBuckets(feature);
        numUsed += (feature.numThresholds + kBandThresholds - 1) / kBandThresholds;
        featureV.push_back(feature);
    }
    numBands = std::max(numUsed, 1);
    collectedV = {};
    PlanRows();
    PadThresholds();
}

// Groups features with similar numbers of steps. Extra steps are harmless: they compare with higher
// thresholds or with the padding.
void RowQuantiser::PlanRows() {
    std::vector<int> orderV(featureV.size());
    std::iota(orderV.begin(), orderV.end(), 0);
    const auto numSteps = [this](int f) { return featureV[static_cast<size_t>(f)].numBisections; };
    std::stable_sort(orderV.begin(), orderV.end(),
                     [&](int a, int b) { return numSteps(a) < numSteps(b); });
    for (size_t first = 0; first < orderV.size(); first += kLookupLanes) {
        RowStep step = {};
        for (size_t i = 0; i < kLookupLanes; ++i) {
            step.featureV[i] = orderV[std::min(first + i, orderV.size() - 1)];
        }
        step.numBisections = numSteps(step.featureV[kLookupLanes - 1]);
        rowStepV.push_back(step);
    }
}

// Pads each feature's thresholds with infinities, as many as a bisection may read past the end.
void RowQuantiser::PadThresholds() {
    std::vector<int> numStepsV(featureV.size());
    for (const RowStep& step : rowStepV) {
        for (const int f : step.featureV) numStepsV[static_cast<size_t>(f)] = step.numBisections;
    }
    std::vector<double> paddedV;
    const int* numSteps = numStepsV.data();
    for (Feature& feature : featureV) {
        const double* const begin = thresholdV.data() + feature.firstThreshold;
        feature.firstThreshold = static_cast<int>(paddedV.size());
        paddedV.insert(paddedV.end(), begin, begin + feature.numThresholds);
        paddedV.insert(paddedV.end(), (size_t{1} << *numSteps++) - 1, kInfinity);
    }
    thresholdV = std::move(paddedV);
}

// Clamps in double, where no value is out of range. A NaN gets the last bucket: it fails the first
// comparison.
double RowQuantiser::Bucket(const Feature& feature, double value) {
    const double bucket = (value - feature.low) * feature.scale;
    const double atMost = bucket < feature.lastBucket ? bucket : feature.lastBucket;
    return atMost > 0.0 ? atMost : 0.0;
}

// Appends the feature's buckets to bucketV. Must be called before PadThresholds: the feature's
// thresholds are the last of thresholdV.
void RowQuantiser::MakeBuckets(Feature& feature) {
    const double* begin = thresholdV.data() + feature.firstThreshold;
    const double* end = begin + feature.numThresholds;
    const double* low = std::find_if(begin, end, [](double t) { return std::isfinite(t); });
    const double* high = end;
    while (high != low && !std::isfinite(high[-1])) --high;
    if (high - low > 1) {
        const double last = kBucketsPerThreshold * static_cast<double>(feature.numThresholds) - 1;
        const double scale = last / (high[-1] - *low);
        // If the range is too wide or too narrow for a finite positive scale, there is one bucket.
        if (scale > 0.0 && std::isfinite(scale)) {
            feature.low = *low;
            feature.scale = scale;
            feature.lastBucket = last;
        }
    }
    const size_t numBuckets = static_cast<size_t>(feature.lastBucket) + 1;
    std::vector<int> countV(numBuckets, 0);
    for (const double* t = begin; t != end; ++t) ++countV[static_cast<size_t>(Bucket(feature, *t))];
    int numBelow = 0;
    for (const int count : countV) {
        bucketV.push_back(static_cast<uint16_t>(numBelow));
        numBelow += count;
        while (count >> feature.numBisections != 0) ++feature.numBisections;
    }
}

// The ranks of kLanes values of one feature.
template <int kLanes>
inline void RowQuantiser::RankLanes(const Feature& feature, const double* valueV,
                                    int16_t* rankV) const {
    const double* thresholdVV[kLanes];
    const uint16_t* bucket = bucketV.data() + feature.firstBucket;
    int rank[kLanes];
    for (int i = 0; i < kLanes; ++i) {
        thresholdVV[i] = thresholdV.data() + feature.firstThreshold;
        rank[i] = bucket[static_cast<int>(Bucket(feature, valueV[i]))];
    }
    Bisect<kLanes>(thresholdVV, valueV, feature.numBisections, rank);
    // A NaN is also above the infinite padding.
    for (int i = 0; i < kLanes; ++i) {
        rankV[i] = static_cast<int16_t>(std::min(rank[i], feature.numThresholds));
    }
}

// The rank of a threshold as a value is its index: it is above the thresholds before it and no
// other.
RowQuantiser::ThresholdRank RowQuantiser::Find(int splitFea, double threshold) const {
    const auto feature =
        std::lower_bound(featureV.begin(), featureV.end(), splitFea,
                         [](const Feature& f, int wanted) { return f.splitFea < wanted; });
    int16_t rank;
    RankLanes<1>(*feature, &threshold, &rank);
    return {static_cast<int>(feature - featureV.begin()), rank};
}

// The ranks of one row, by feature index. That of a NaN may exceed the number of thresholds.
void RowQuantiser::RankRow(const double* row, int* rankV) const {
    for (const RowStep& step : rowStepV) {
        const double* thresholdVV[kLookupLanes];
        double valueV[kLookupLanes];
        int rank[kLookupLanes];
        for (int i = 0; i < kLookupLanes; ++i) {
            const Feature& feature = featureV[static_cast<size_t>(step.featureV[i])];
            thresholdVV[i] = thresholdV.data() + feature.firstThreshold;
            valueV[i] = row[feature.splitFea];
            rank[i] = bucketV[static_cast<size_t>(feature.firstBucket) +
                              static_cast<size_t>(Bucket(feature, valueV[i]))];
        }
        Bisect<kLookupLanes>(thresholdVV, valueV, step.numBisections, rank);
        for (int i = 0; i < kLookupLanes; ++i) rankV[step.featureV[i]] = rank[i];
    }
}

void RowQuantiser::QuantiseRow(const double* row, int8_t* codeV) const {
    int rankV[kMaxBands];  // there are no more features than bands
    RankRow(row, rankV);
    std::fill_n(codeV, kLookupLanes, CountByte(0));  // in case there are no features
    const int* rank = rankV;
    for (const Feature& feature : featureV) {
        // A NaN is also above the infinite padding.
        StoreBands(std::min(*rank++, feature.numThresholds), feature.numThresholds,
                   codeV + feature.firstBand);
    }
}

// One feature at a time for all rows, so that its thresholds stay in the cache. `tile` advances by
// one band.
void RowQuantiser::QuantiseTile(const double* const* rowV, const BlockKernel& kernel,
                                int8_t* tile) const {
    if (featureV.empty()) std::fill_n(tile, kTileRows, CountByte(0));
    alignas(kTileRows) int16_t rankV[kTileRows];
    for (const Feature& feature : featureV) {
        for (int first = 0; first < kTileRows; first += kLookupLanes) {
            double valueV[kLookupLanes];
            for (int i = 0; i < kLookupLanes; ++i) valueV[i] = rowV[first + i][feature.splitFea];
            RankLanes<kLookupLanes>(feature, valueV, rankV + first);
        }
        for (int rank = 0; rank < feature.numThresholds; rank += kBandThresholds) {
            kernel.fillBand(rankV, rank, tile);
            tile += kTileRows;
        }
    }
}

}  // namespace engine
}  // namespace sylvora
