// Rows in numbers: what the tests of a run of trees can tell about a row, and no more.
//
// The rank of a value among a feature's thresholds is the number of them that it is not at most
// equal to. So `value <= threshold r` holds exactly when the rank is at most r, for every value: a
// NaN has the highest rank and goes right at each test, as in the plain walk.
#ifndef SYLVORA_ENGINE_THRESHOLDCODES_H
#define SYLVORA_ENGINE_THRESHOLDCODES_H

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
    // Slots of a tile; at least one.
    int NumSlots() const { return numSlots; }

    // Where a test is found: the position of its feature among those used here, and the rank of its
    // threshold.
    struct Place {
        int feature;
        int rank;
    };
    Place Find(int splitFea, double threshold) const;

    // A test as a word, for rows coded by CodeRow: a row goes left unless word < codeV[word &
    // 0xffff].
    static constexpr uint32_t kAlwaysLeft = 0xffff0000u;
    static uint32_t Word(Place place) {
        return static_cast<uint32_t>(place.rank) << 16 | static_cast<uint32_t>(place.feature);
    }
    // Writes NumFeatures() words, and at least one.
    void CodeRow(const double* row, uint32_t* codeV) const;

    // The same test for the block kernel.
    uint32_t CodeAt(Place place) const {
        const int slot = featureV[static_cast<size_t>(place.feature)].firstSlot;
        return static_cast<uint32_t>((slot + place.rank / kSlotThresholds) * kTileRows);
    }
    static int Test(Place place) { return place.rank % kSlotThresholds + 1; }
    // Codes kTileRows rows, given by pointer; `tile` has room for NumSlots() * kTileRows bytes.
    void CodeTile(const double* const* rowV, const BlockKernel& kernel, int8_t* tile) const;

  private:
    // A feature's thresholds are looked up in a table of buckets of equal width. The bucket of a
    // value never falls when the value rises, so thresholds of lower buckets are below the value
    // and those of higher ones above it; in between, numBisections steps decide.
    struct Feature {
        int splitFea;
        int numThresholds;
        int firstSlot;
        int numBisections;
        size_t firstThreshold;
        size_t firstBucket;
        double low;
        double scale;
        double lastBucket;
    };

    static double Bucket(const Feature& feature, double value);
    void MakeBuckets(Feature& feature);
    template <int kLanes>
    void RankLanes(const Feature& feature, const double* valueV, int16_t* rankV) const;

    struct Threshold {
        int splitFea;
        double value;
    };
    std::vector<Threshold> collectedV;
    std::vector<Feature> featureV;
    std::vector<double> thresholdV;  // rising, feature by feature; each ends with infinities
    std::vector<uint16_t> bucketV;   // thresholds below a bucket
    int numSlots = 1;
};

}  // namespace engine
}  // namespace sylvora

#endif  // SYLVORA_ENGINE_THRESHOLDCODES_H
