// Samples the columns on which a node may split.
#include <algorithm>
#include <cstdlib>
#include <numeric>
#include <utility>
#include <vector>

#include "../Node.h"
#include "../god/RandomGenerator.h"
#include "../god/Report.h"
#include "../god/UserCall.h"

using sylvora::Fail;

int NodeCR::SamplingFeature(SamplingFeatureType nodeSampleFeaType, int* selV, long* seed) {
    ReleaseCandidates();
    // At least one slot: numSelFea may be 0 or less, and malloc(0) may return null.
    const size_t numSlots = static_cast<size_t>(std::max(numSelFea, 1));
    selFeaV = static_cast<int*>(std::malloc(numSlots * sizeof(int)));
    selFeaValue = static_cast<double*>(std::calloc(numSlots, sizeof(double)));
    if (selFeaV == nullptr || selFeaValue == nullptr) {
        return Fail("ERROR: Failed to allocate memory when allocating selFeaV!\n");
    }
    std::fill_n(selFeaV, numSlots, -1);
    fSamplerThrew = false;
    const int sampled =
        nodeSampleFeaType != nullptr
            ? sylvora::CallUser("feature sampler", fSamplerThrew,
                                [&] {
                                    return nodeSampleFeaType(dimFeature, selFeaV, selFeaValue,
                                                             numSelFea, depth, fSpecifySplitValue);
                                })
            : SamplingFeatureWithoutReplacement(dimFeature, selFeaV, selFeaValue, numSelFea, depth,
                                                fSpecifySplitValue, seed);
    if (fSamplerThrew) return -1;
    if (sampled != 0) return Fail("ERROR: Failed when sampling feature!\n");
    // Check what the user's sampler returned; the search uses the columns as indices unchecked.
    int* const end = selFeaV + numSlots;
    const auto isOutside = [this](int id) { return id < -1 || id >= dimFeature; };
    const int* outside = std::find_if(selFeaV, end, isOutside);
    if (outside != end) {
        return Fail("ERROR: Failed when sampling feature! Column ", *outside, " is not in [0, ",
                    dimFeature - 1, "]\n");
    }
    // An empty slot ends the list. Clear all slots after it too: the workers scan different ranges
    // of slots, and those after the range with the empty slot must not scan theirs.
    std::fill(std::find(selFeaV, end, -1), end, -1);
    std::copy_n(selFeaV, std::max(numSelFea, 0), selV);
    return 0;
}

int NodeCR::SamplingFeatureWithoutReplacement(int dimF, int*& selF, double*& /*selFeaValue*/,
                                              int countSel, int /*curdepth*/, bool& fspecify,
                                              long* seed) {
    fspecify = false;
    return sylvora::Guarded([&] {
        // Invariant: pool[0, n) holds the columns that have not been drawn yet. A drawn column
        // changes places with the last of them. The order of the pool decides which columns later
        // draws select, so models depend on it.
        std::vector<int> pool(static_cast<size_t>(std::max(dimF, 0)));
        std::iota(pool.begin(), pool.end(), 0);
        sylvora::Draws draws(seed);
        // Beyond 2^20 columns, the rounding in NumSampledColumns can give one more than dimF.
        const int numDrawn = std::min(countSel, dimF);
        for (int i = 0; i < numDrawn; ++i) {
            const int n = dimF - i;
            int& drawn = pool[static_cast<size_t>(draws.Index(n))];
            selF[i] = drawn;
            std::swap(drawn, pool[static_cast<size_t>(n - 1)]);
        }
        return 0;
    });
}
