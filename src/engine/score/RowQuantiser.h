// Quantises rows to threshold ranks.
//
// A feature's distinct thresholds t[0] < t[1] < ... are those of a run of trees. The rank of a
// value is the number of thresholds for which `value <= t` is false. So `value <= t[r]` holds
// exactly when rank <= r, for every value. A NaN has the highest rank and goes right at each test,
// as in the reference implementation.
//
// A band is up to kBandThresholds consecutive thresholds of one feature; a feature's bands are
// numbered consecutively, features ascending. A rank becomes one code per band: how many of the
// band's thresholds have an index below the rank (see BlockKernel.h).
#ifndef SYLVORA_ENGINE_SCORE_ROWQUANTISER_H
#define SYLVORA_ENGINE_SCORE_ROWQUANTISER_H

#include <cstddef>
#include <cstdint>
#include <vector>

#include "BlockKernel.h"

namespace sylvora {
namespace engine {

// Thread-safe once Finish() has returned: all methods after it are const.
class RowQuantiser {
  public:
    // Thresholds per feature: ranks are int16_t, and the kernels' arithmetic must not overflow.
    static constexpr int kMaxThresholds = 32000;

    // Call Add for each threshold, in any order, repeated or not: no NaN, and at most
    // kMaxThresholds per feature. Then call Finish once, before any other method.
    void Add(int splitFea, double threshold);
    void Finish();

    int NumFeatures() const { return static_cast<int>(featureV.size()); }
    // Codes per row; at least 1.
    int NumBands() const { return numBands; }

    // A threshold: the index of its feature among the features used here, ascending, and its rank,
    // that is its index among the feature's distinct thresholds.
    struct ThresholdRank {
        int feature;
        int rank;
    };
    // The threshold must have been added.
    ThresholdRank Find(int splitFea, double threshold) const;

    // A test as the kernels take it: the band, the offset of the band's codes in a tile, and the
    // constant that the code must be below for the row to go left.
    int Band(ThresholdRank at) const {
        return featureV[static_cast<size_t>(at.feature)].firstBand + at.rank / kBandThresholds;
    }
    uint32_t CodeAt(ThresholdRank at) const { return static_cast<uint32_t>(Band(at) * kTileRows); }
    static int Test(ThresholdRank at) { return at.rank % kBandThresholds + 1; }

    // Writes the codes of one row, a byte per band. The buffer has kMaxRowBytes, because bands are
    // written kLookupLanes at a time and the last write may exceed NumBands().
    static constexpr int kLookupLanes = 8;
    static constexpr int kMaxRowBytes = kMaxBands + kLookupLanes;
    void QuantiseRow(const double* row, int8_t* codeV) const;
    // Writes the codes of kTileRows rows, given by pointer, to `tile`, which has NumBands() *
    // kTileRows bytes: band b of row r is tile[b * kTileRows + r].
    void QuantiseTile(const double* const* rowV, const BlockKernel& kernel, int8_t* tile) const;

  private:
    // A value is ranked in two steps: a table of buckets of equal width, then a bisection. The
    // bucket is a monotonic function of the value, rounding included. So thresholds in lower
    // buckets are below the value, those in higher ones above it, and the bisection searches just
    // the value's bucket.
    struct Feature {
        int splitFea;
        int numThresholds;
        int firstBand;
        int numBisections;   // steps; fewer than 2^numBisections thresholds share a bucket
        int firstThreshold;  // in thresholdV
        int firstBucket;     // in bucketV
        double low;          // bucket = (value - low) * scale, truncated, in [0, lastBucket]
        double scale;
        double lastBucket;
    };

    static double Bucket(const Feature& feature, double value);
    void MakeBuckets(Feature& feature);
    void PlanRows();
    void PadThresholds();
    template <int kLanes>
    void RankLanes(const Feature& feature, const double* valueV, int16_t* rankV) const;
    void RankRow(const double* row, int* rankV) const;

    struct Threshold {
        int splitFea;
        double value;
    };
    // Features that are looked up together for one row, one per lane, with the same number of
    // steps.
    struct RowStep {
        int featureV[kLookupLanes];  // filled up with the last one
        int numBisections;
    };

    std::vector<Threshold> collectedV;  // from Add; empty after Finish
    std::vector<Feature> featureV;      // ascending by splitFea
    std::vector<RowStep> rowStepV;
    std::vector<double> thresholdV;  // ascending, feature by feature, each padded with infinities
    std::vector<uint16_t> bucketV;   // by bucket: the feature's thresholds in lower buckets
    int numBands = 1;
};

}  // namespace engine
}  // namespace sylvora

#endif  // SYLVORA_ENGINE_SCORE_ROWQUANTISER_H
