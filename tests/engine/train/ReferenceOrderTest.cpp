// The first keys come in the order of the reference implementation's sort.
#include "engine/train/ReferenceOrder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <numeric>
#include <random>
#include <vector>

#include "Sort.h"
#include "engine/train/KeySort.h"

namespace sylvora::tests {
namespace {

using namespace sylvora::engine;

// Ranks in random order, ascending or descending, with runs of equal ones.
std::vector<uint32_t> RandomRanks(int count, std::mt19937& random) {
    const auto below = [&random](int limit) {
        return static_cast<uint32_t>(random() % static_cast<unsigned>(limit));
    };
    const int numRanks = 1 + static_cast<int>(below(below(2) == 0 ? 12 : 2 * count + 1));
    const uint32_t frequent = below(numRanks);
    const uint32_t share = below(100);
    std::vector<uint32_t> rankV;
    for (int i = 0; i < count; ++i) {
        rankV.push_back(below(100) < share ? frequent : below(numRanks));
    }
    if (random() % 4 == 0) std::sort(rankV.begin(), rankV.end());
    if (random() % 4 == 0) std::reverse(rankV.begin(), rankV.end());
    return rankV;
}

// As many positions of the reference order as `ours` has.
void ExpectFirstAsReference(const std::vector<uint32_t>& rankV, const std::vector<int>& ours) {
    std::vector<double> valueV(rankV.begin(), rankV.end());
    std::vector<int> orderV(rankV.size());
    std::iota(orderV.begin(), orderV.end(), 0);
    R_tsort_I(valueV.data(), orderV.data(), 1, static_cast<int>(rankV.size()));
    orderV.resize(ours.size());
    ASSERT_EQ(ours, orderV) << rankV.size() << " ranks, the first " << ours.size();
}

TEST(ReferenceOrder, AgreesWithTheIndexSort) {
    std::mt19937 random(1);
    for (int round = 0; round < 4000; ++round) {
        const int count = static_cast<int>(random() % (round % 40 == 0 ? 5000 : 300));
        const std::vector<uint32_t> rankV = RandomRanks(count, random);
        const int numFirst = static_cast<int>(random() % (rankV.size() + 1));
        std::vector<uint64_t> keyV(rankV.size() + kReferenceOrderSlack, random());
        for (int i = 0; i < count; ++i) {
            keyV[static_cast<size_t>(i)] = KeyOf(rankV[static_cast<size_t>(i)], i);
        }
        SortFirst(keyV.data(), count, numFirst);
        std::vector<int> ours;
        for (int i = 0; i < numFirst; ++i) ours.push_back(ItemOf(keyV[static_cast<size_t>(i)]));
        ASSERT_NO_FATAL_FAILURE(ExpectFirstAsReference(rankV, ours));
    }
}

}  // namespace
}  // namespace sylvora::tests
