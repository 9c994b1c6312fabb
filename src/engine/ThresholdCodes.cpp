// Codes of rows; see ThresholdCodes.h.
#include "ThresholdCodes.h"

#include <emmintrin.h>

#include <algorithm>
#include <cmath>
#include <limits>

namespace sylvora {
namespace engine {
namespace {

constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr int kLanes = 8;  // values looked up side by side, so that their loads overlap
constexpr int kBucketsPerThreshold = 4;

// All bits unless value <= threshold. Compilers turn the plain expression into a branch, and which
// way it goes is anybody's guess.
inline int FAbove(double value, double threshold) {
    const __m128d fAbove = _mm_cmpnle_sd(_mm_set_sd(value), _mm_set_sd(threshold));
    return _mm_cvtsi128_si32(_mm_castpd_si128(fAbove));
}

}  // namespace

void ThresholdCodes::Add(int splitFea, double threshold) {
    collectedV.push_back({splitFea, threshold});
}

void ThresholdCodes::Finish() {
    const auto isBefore = [](const Threshold& a, const Threshold& b) {
        return a.splitFea != b.splitFea ? a.splitFea < b.splitFea : a.value < b.value;
    };
    std::sort(collectedV.begin(), collectedV.end(), isBefore);
    int numUsed = 0;
    for (auto begin = collectedV.begin(); begin != collectedV.end();) {
        const int splitFea = begin->splitFea;
        Feature feature = {splitFea, 0, numUsed, 0, thresholdV.size(), bucketV.size(), 0, 0, 0};
        for (; begin != collectedV.end() && begin->splitFea == splitFea; ++begin) {
            if (feature.numThresholds > 0 && thresholdV.back() == begin->value) continue;
            thresholdV.push_back(begin->value);
            ++feature.numThresholds;
        }
        MakeBuckets(feature);
        // A bisection may look that far behind the last threshold.
        thresholdV.insert(thresholdV.end(), (size_t{1} << feature.numBisections) - 1, kInfinity);
        numUsed += (feature.numThresholds + kBandThresholds - 1) / kBandThresholds;
        featureV.push_back(feature);
    }
    numBands = std::max(numUsed, 1);
    collectedV = {};
}

// As a double, so that no value is out of range. A NaN belongs to the last bucket.
double ThresholdCodes::Bucket(const Feature& feature, double value) {
    const double bucket = (value - feature.low) * feature.scale;
    const double atMost = bucket < feature.lastBucket ? bucket : feature.lastBucket;
    return atMost > 0.0 ? atMost : 0.0;
}

void ThresholdCodes::MakeBuckets(Feature& feature) {
    const double* begin = thresholdV.data() + feature.firstThreshold;
    const double* end = begin + feature.numThresholds;
    const double* low = std::find_if(begin, end, [](double t) { return std::isfinite(t); });
    const double* high = end;
    while (high != low && !std::isfinite(high[-1])) --high;
    if (high - low > 1) {
        const double last = kBucketsPerThreshold * static_cast<double>(feature.numThresholds) - 1;
        const double scale = last / (high[-1] - *low);
        // Thresholds that are too far apart or too close for this share one bucket.
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

// Bisection with as many steps for every value of a feature: `rank` thresholds are known to be
// below the value, and fewer than 2 * step of those behind them.
template <int kLanes>
inline void ThresholdCodes::RankLanes(const Feature& feature, const double* valueV,
                                      int16_t* rankV) const {
    const double* threshold = thresholdV.data() + feature.firstThreshold;
    const uint16_t* bucket = bucketV.data() + feature.firstBucket;
    int rank[kLanes];
    for (int i = 0; i < kLanes; ++i) rank[i] = bucket[static_cast<int>(Bucket(feature, valueV[i]))];
    for (int step = (1 << feature.numBisections) / 2; step > 0; step /= 2) {
        for (int i = 0; i < kLanes; ++i) {
            rank[i] += step & FAbove(valueV[i], threshold[rank[i] + step - 1]);
        }
    }
    // A NaN is above the infinities at the end too.
    for (int i = 0; i < kLanes; ++i) {
        rankV[i] = static_cast<int16_t>(std::min(rank[i], feature.numThresholds));
    }
}

// A threshold is above those before it and no other.
ThresholdCodes::Place ThresholdCodes::Find(int splitFea, double threshold) const {
    const auto feature =
        std::lower_bound(featureV.begin(), featureV.end(), splitFea,
                         [](const Feature& f, int wanted) { return f.splitFea < wanted; });
    int16_t rank;
    RankLanes<1>(*feature, &threshold, &rank);
    return {static_cast<int>(feature - featureV.begin()), rank};
}

void ThresholdCodes::CodeRow(const double* row, uint8_t* codeV) const {
    codeV[0] = 0;
    for (const Feature& feature : featureV) {
        int16_t rank;
        RankLanes<1>(feature, row + feature.splitFea, &rank);
        for (int first = 0; first < feature.numThresholds; first += kBandThresholds) {
            *codeV++ = static_cast<uint8_t>(std::clamp(rank - first, 0, kBandThresholds));
        }
    }
}

void ThresholdCodes::CodeTile(const double* const* rowV, const BlockKernel& kernel,
                              int8_t* tile) const {
    if (featureV.empty()) std::fill_n(tile, kTileRows, int8_t{-128});
    alignas(kTileRows) int16_t rankV[kTileRows];
    for (const Feature& feature : featureV) {
        for (int first = 0; first < kTileRows; first += kLanes) {
            double valueV[kLanes];
            for (int i = 0; i < kLanes; ++i) valueV[i] = rowV[first + i][feature.splitFea];
            RankLanes<kLanes>(feature, valueV, rankV + first);
        }
        for (int rank = 0; rank < feature.numThresholds; rank += kBandThresholds) {
            kernel.fillBand(rankV, rank, tile);
            tile += kTileRows;
        }
    }
}

}  // namespace engine
}  // namespace sylvora
