// Sorting of (rank, item) keys; see KeySort.h.
#include "KeySort.h"

#include <algorithm>

#include "RowKernels.h"
#include "base/LargeArray.h"

namespace sylvora {
namespace engine {
namespace {

// Fewer keys than this are sorted by short digits.
constexpr size_t kManyKeys = 768;
constexpr int kShortDigit = 8;  // bits
constexpr int kLongDigit = 11;

// Comparing whole keys keeps the order within a rank, because items ascend on entry.
template <typename Keys>
void SortFew(const RowKernels& kernels, Keys& keyV, Keys& other) {
    const size_t count = keyV.size();
    keyV.resize(count + RowKernels::kSlack);
    other.resize(count);
    kernels.sortFew(keyV.data(), static_cast<int>(count), other.data());
    keyV.swap(other);
}

// A stable pass over the digit of kDigitBits bits at `shift`.
template <int kDigitBits, typename Keys>
void SortByDigit(const Keys& from, Keys& to, uint32_t lowest, int shift) {
    constexpr uint32_t kMask = (1u << kDigitBits) - 1;
    uint32_t beginV[kMask + 1] = {};
    for (const uint64_t key : from) ++beginV[((RankOf(key) - lowest) >> shift) & kMask];
    uint32_t begin = 0;
    // Turns counts into the first target position of each digit.
    for (uint32_t& entry : beginV) {
        const uint32_t count = entry;
        entry = begin;
        begin += count;
    }
    for (const uint64_t key : from) to[beginV[((RankOf(key) - lowest) >> shift) & kMask]++] = key;
}

// Radix sort, lowest digit first. Passes above the highest digit of the range are skipped. The
// result always ends in keyV.
template <int kDigitBits, typename Keys>
void SortByDigits(Keys& keyV, Keys& other) {
    const auto [low, high] = std::minmax_element(keyV.begin(), keyV.end());
    const uint32_t lowest = RankOf(*low);
    const uint32_t range = RankOf(*high) - lowest;
    other.resize(keyV.size());
    for (int shift = 0; shift < 32 && (range >> shift) != 0; shift += kDigitBits) {
        SortByDigit<kDigitBits>(keyV, other, lowest, shift);
        keyV.swap(other);
    }
}

}  // namespace

template <typename Keys>
void SortKeys(Keys& keyV, Keys& other) {
    const RowKernels& kernels = BestRowKernels();
    if (keyV.size() <= static_cast<size_t>(kernels.fewKeys)) {
        SortFew(kernels, keyV, other);
    } else if (keyV.size() < kManyKeys) {
        SortByDigits<kShortDigit>(keyV, other);
    } else {
        SortByDigits<kLongDigit>(keyV, other);
    }
}

template void SortKeys(std::vector<uint64_t>& keyV, std::vector<uint64_t>& other);
template void SortKeys(LargeArray<uint64_t>& keyV, LargeArray<uint64_t>& other);

}  // namespace engine
}  // namespace sylvora
