// Kernels over marked rows: all instruction sets that run here agree with the baseline.
#include "engine/train/RowKernels.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <numeric>
#include <random>
#include <vector>

namespace sylvora::tests {
namespace {

using namespace sylvora::engine;

std::vector<uint8_t> RandomMarks(int count, double share, std::mt19937& engine) {
    std::vector<uint8_t> markV(static_cast<size_t>(count));
    std::bernoulli_distribution isMarked(share);
    for (uint8_t& mark : markV) mark = isMarked(engine);
    return markV;
}

// What a kernel writes: the counted entries, without the slack.
std::vector<int> Listed(const RowKernels& kernels, const std::vector<uint8_t>& markV,
                        uint8_t wanted) {
    std::vector<int> positionV(markV.size() + RowKernels::kSlack);
    const int count = static_cast<int>(markV.size());
    positionV.resize(
        static_cast<size_t>(kernels.list(markV.data(), wanted, 1000, count, positionV.data())));
    return positionV;
}

std::vector<int> SplitInTwo(const RowKernels& kernels, const std::vector<uint8_t>& markV) {
    const size_t count = markV.size();
    std::vector<int> rowV(count);
    std::iota(rowV.begin(), rowV.end(), 5);
    std::vector<int> leftV(count + RowKernels::kSlack), rightV(count + RowKernels::kSlack);
    const int numLeft = kernels.split(rowV.data(), markV.data(), static_cast<int>(count),
                                      leftV.data(), rightV.data());
    leftV.resize(static_cast<size_t>(numLeft));
    leftV.push_back(-1);
    leftV.insert(leftV.end(), rightV.begin(),
                 rightV.begin() + static_cast<std::ptrdiff_t>(count) - numLeft);
    return leftV;
}

TEST(RowKernels, SortFewKeys) {
    std::mt19937_64 engine(1);
    for (const char* name : kInstructionSetNames) {
        const RowKernels* kernels = kRowKernels.Find(name);
        if (kernels == nullptr) continue;
        for (int count = 0; count <= kernels->fewKeys; ++count) {
            std::vector<uint64_t> keyV(static_cast<size_t>(count));
            for (uint64_t& key : keyV) key = engine() >> (count % 3 * 20);
            std::vector<uint64_t> expectedV = keyV;
            std::sort(expectedV.begin(), expectedV.end());
            keyV.resize(keyV.size() + RowKernels::kSlack);
            std::vector<uint64_t> sortedV(expectedV.size());
            kernels->sortFew(keyV.data(), count, sortedV.data());
            EXPECT_EQ(sortedV, expectedV) << name << ", " << count << " keys";
        }
    }
}

TEST(RowKernels, MarkKeysAtLeastABound) {
    std::mt19937_64 engine(1);
    std::vector<uint64_t> keyV(64);
    for (int round = 0; round < 100; ++round) {
        for (uint64_t& key : keyV) key = engine() >> (1 + round % 60);
        const uint64_t least = keyV[engine() % 64] + engine() % 2;
        for (const char* name : kInstructionSetNames) {
            const RowKernels* kernels = kRowKernels.Find(name);
            if (kernels == nullptr) continue;
            const uint64_t marks = kernels->markAtLeast(keyV.data(), least);
            for (size_t i = 0; i < 64; ++i) ASSERT_EQ(marks >> i & 1, keyV[i] >= least) << name;
        }
    }
}

TEST(RowKernels, AgreeWithTheBaseline) {
    std::mt19937 engine(1);
    for (const char* name : kInstructionSetNames) {
        const RowKernels* kernels = kRowKernels.Find(name);
        if (kernels == nullptr) continue;
        for (int count = 0; count < 600; count += count < 70 ? 1 : 37) {
            for (const double share : {0.0, 0.1, 0.5, 1.0}) {
                // Vectors of their own size, so that AddressSanitizer sees reads past the marks.
                const std::vector<uint8_t> markV = RandomMarks(count, share, engine);
                for (const uint8_t wanted : {uint8_t{0}, uint8_t{1}}) {
                    EXPECT_EQ(Listed(*kernels, markV, wanted),
                              Listed(kRowKernelsBaseline, markV, wanted))
                        << name << ", " << count << " rows";
                }
                EXPECT_EQ(SplitInTwo(*kernels, markV), SplitInTwo(kRowKernelsBaseline, markV))
                    << name << ", " << count << " rows";
            }
        }
    }
}

}  // namespace
}  // namespace sylvora::tests
