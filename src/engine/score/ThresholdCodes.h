// Rows in numbers: what the tests of a run of trees can tell about a row, and no more.
//
// The rank of a value among a feature's thresholds is the number of them that it is not at most
// equal to. So `value <= threshold r` holds exactly when the rank is at most r, for every value: a
// NaN has the highest rank and goes right at each test, as in the plain walk.
#ifndef SYLVORA_ENGINE_SCORE_THRESHOLDCODES_H
#define SYLVORA_ENGINE_SCORE_THRESHOLDCODES_H

#include <cstddef>
#include <cstdint>
#include <vector>

#include "BlockKernel.h"

namespace sylvora {
namespace engine {

class ThresholdCodes {
  public:
    // A rank fits into 15 bits, with room for the kernel's arithmetic.
    static constexpr int kMaxThresholds = 32000;

    // Collecting: each feature's thresholds, which are no NaNs, at most kMaxThresholds of it; then
    // Finish, once.
    void Add(int splitFea, double threshold);
    void Finish();

    int NumFeatures() const { return static_cast<int>(featureV.size()); }
    // Bands of a tile; at least one.
    int NumBands() const { return numBands; }

    // Where a test is found: the position of its feature among those used here, and the rank of its
    // threshold.
    struct Place {
        int feature;
        int rank;
    };
    Place Find(int splitFea, double threshold) const;

    // A test for the kernels: a band, where its bytes stand in a tile, and what they must be below.
    int Band(Place place) const {
        return featureV[static_cast<size_t>(place.feature)].firstBand +
               place.rank / kBandThresholds;
    }
    uint32_t CodeAt(Place place) const { return static_cast<uint32_t>(Band(place) * kTileRows); }
    static int Test(Place place) { return place.rank % kBandThresholds + 1; }

    // Codes a row: a byte for each band. Bands are written kTogether at a time, so that there must
    // be room for some more.
    static constexpr int kTogether = 8;
    static constexpr int kMostRowBytes = kMaxBands + kTogether;
    void CodeRow(const double* row, int8_t* codeV) const;
    // Codes kTileRows rows, given by pointer; `tile` has room for NumBands() * kTileRows bytes.
    void CodeTile(const double* const* rowV, const BlockKernel& kernel, int8_t* tile) const;

  private:
    // A feature's thresholds are looked up in a table of buckets of equal width. The bucket of a
    // value never falls when the value rises, so thresholds of lower buckets are below the value
    // and those of higher ones above it; in between, numBisections steps decide.
    struct Feature {
        int splitFea;
        int numThresholds;
        int firstBand;
        int numBisections;
        int firstThreshold;
        int firstBucket;
        double low;
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
    // Features that a row is looked up for side by side, with as many steps for all of them.
    struct RowStep {
        int featureV[kTogether];  // the last one repeated where there are no more
        int numBisections;
    };

    std::vector<Threshold> collectedV;
    std::vector<Feature> featureV;
    std::vector<RowStep> rowStepV;
    std::vector<double> thresholdV;  // rising, feature by feature; each ends with infinities
    std::vector<uint16_t> bucketV;   // thresholds below a bucket
    int numBands = 1;
};

}  // namespace engine
}  // namespace sylvora

#endif  // SYLVORA_ENGINE_SCORE_THRESHOLDCODES_H
