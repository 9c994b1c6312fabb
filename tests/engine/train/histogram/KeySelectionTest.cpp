// The kernels that select rows of candidate bins: all must give the baseline's rows and keys.
#include "engine/train/histogram/KeySelection.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <numeric>
#include <random>
#include <vector>

namespace sylvora::engine {
namespace {

constexpr int kRows = 5000;  // of the data
constexpr int kRanks = 4000;

// A block of rows of random data, and random candidates among their codes and ranks.
struct RandomBlock {
    explicit RandomBlock(unsigned seed) : random(seed) {
        step = Below(4);
        // All, about half, few, or none.
        const int shares[] = {100, 50, 3, 0};
        const int codeShare = shares[seed % 4];
        const int rankShare = shares[seed / 4 % 4];
        for (int code = 0; code < 256; ++code) {
            if (Below(100) < codeShare) candidates.Add(code, code);
        }
        for (int i = 0; i <= kRanks >> step; ++i) fRankV.push_back(Below(100) < rankShare);
        for (int i = 0; i < CandidateMarks::kSlack; ++i) fRankV.push_back(1);
        for (int row = 0; row < kRows; ++row) codeV.push_back(static_cast<uint8_t>(Below(256)));
        ChooseRows(seed / 16);
    }

    int Below(int past) { return static_cast<int>(random() % static_cast<unsigned>(past)); }

    // Lengths around the edges of registers and blocks; runs (the last may end with the data), a
    // run with a gap, or scattered rows.
    void ChooseRows(unsigned seed) {
        const int lengths[] = {0,   1,   7,   8,   9,   15,  16,
                               17,  31,  32,  33,  63,  64,  65,
                               127, 128, 129, 500, 511, 512, 1 + Below(512)};
        const int length = lengths[seed % std::size(lengths)];
        const int kind = Below(4);
        rowV.resize(static_cast<size_t>(length));
        std::iota(rowV.begin(), rowV.end(), kind == 0 ? kRows - length : Below(kRows - length));
        for (int& row : rowV) {
            if (kind == 2) row = Below(kRows);
        }
        if (kind == 3 && length > 2) rowV[static_cast<size_t>(length / 2)] = Below(kRows);
    }

    std::mt19937 random;
    CandidateCodes candidates;
    int step;
    std::vector<uint8_t> fRankV;
    std::vector<uint8_t> codeV;
    std::vector<int> rowV;
};

// The rows, codes and keys that a kernel selects. The arrays have exactly their promised sizes, so
// that the sanitizers see accesses beyond them.
std::vector<uint64_t> Select(const KeySelection& kernel, const RandomBlock& block) {
    SelectedRows selected;
    kernel.selectRows(block.candidates, block.codeV.data(), block.rowV.data(),
                      static_cast<int>(block.rowV.size()), selected);
    const size_t num = static_cast<size_t>(selected.num);
    std::vector<uint64_t> allV(selected.rowV, selected.rowV + num);
    allV.insert(allV.end(), selected.code8V, selected.code8V + num);
    std::vector<uint32_t> rankV(num);
    for (size_t i = 0; i < num; ++i) {
        rankV[i] = static_cast<uint32_t>(selected.rowV[i]) * 7919u % (kRanks + 1);
    }
    std::vector<uint64_t> keyV(num + KeySelection::kKeySlack);
    keyV.resize(static_cast<size_t>(
        kernel.selectKeys({block.fRankV.data(), block.step}, selected, rankV.data(), keyV.data())));
    allV.insert(allV.end(), keyV.begin(), keyV.end());
    return allV;
}

// What the baseline must select, row by row.
std::vector<uint64_t> Expected(const RandomBlock& block) {
    std::vector<uint64_t> rowV, codeV, keyV;
    for (const int row : block.rowV) {
        const uint8_t code = block.codeV[static_cast<size_t>(row)];
        if (block.candidates.fCandidateV[code] == 0) continue;
        rowV.push_back(static_cast<uint64_t>(row));
        codeV.push_back(code);
        const uint64_t rank = static_cast<uint32_t>(row) * 7919u % (kRanks + 1);
        if (block.fRankV[rank >> block.step] != 0) {
            keyV.push_back(rank << 32 | static_cast<uint32_t>(row));
        }
    }
    rowV.insert(rowV.end(), codeV.begin(), codeV.end());
    rowV.insert(rowV.end(), keyV.begin(), keyV.end());
    return rowV;
}

TEST(KeySelection, KernelsGiveTheRowsAndKeysOfEachBlock) {
    for (const char* name : {"baseline", "avx2", "avx512"}) {
        const KeySelection* kernel = kKeySelections.Find(name);
        if (kernel == nullptr) continue;  // this processor cannot run it
        for (unsigned seed = 0; seed < 16 * 21 * 6; ++seed) {
            const RandomBlock block(seed);
            ASSERT_EQ(Select(*kernel, block), Expected(block)) << name << ", seed " << seed;
        }
    }
    EXPECT_EQ(kKeySelections.Find("none"), nullptr);
}

}  // namespace
}  // namespace sylvora::engine
