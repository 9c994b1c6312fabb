// Sorts the rows of a column; see ValueOrder.h.
#include "ValueOrder.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "KeySort.h"

namespace sylvora {
namespace engine {
namespace {

constexpr uint64_t kSign = uint64_t{1} << 63;
constexpr uint64_t kHighHalf = 0xffffffff00000000u;

// Maps doubles to integers in the same order. Adding 0.0 turns -0.0 into 0.0.
uint64_t OrderedKey(double value) {
    const double positiveZero = value + 0.0;
    uint64_t bits;
    std::memcpy(&bits, &positiveZero, sizeof bits);
    return (bits >> 63) != 0 ? ~bits : bits | kSign;
}

}  // namespace

// After the sort, keyV is rebuilt from both halves, in sorted order.
bool ValueOrder::Load(const Matrix& matrix, int column) {
    const size_t count = static_cast<size_t>(matrix.NumRows());
    itemV.resize(count);
    lowV.resize(count);
    bool fNan = false;
    matrix.ForColumn(column, [&](int row, double value) {
        const size_t at = static_cast<size_t>(row);
        const uint64_t key = OrderedKey(value);
        fNan |= std::isnan(value);
        itemV[at] = (key & kHighHalf) | at;
        lowV[at] = static_cast<uint32_t>(key);
    });
    if (fNan) return false;
    SortKeys(itemV, keyV);
    SortLowHalves();
    keyV.resize(count);
    for (size_t i = 0; i < count; ++i) keyV[i] = (itemV[i] & kHighHalf) | lowV[Row(i)];
    return true;
}

// Undoes OrderedKey.
double ValueOrder::Value(size_t i) const {
    const uint64_t key = keyV[i];
    const uint64_t bits = (key & kSign) != 0 ? key & ~kSign : ~key;
    double value;
    std::memcpy(&value, &bits, sizeof value);
    return value;
}

// Sorts the runs of equal high halves. The sort is stable, so rows of equal value stay ascending.
// Runs are mostly of one value and in order already.
void ValueOrder::SortLowHalves() {
    const auto isLower = [this](uint64_t a, uint64_t b) {
        return lowV[static_cast<uint32_t>(a)] < lowV[static_cast<uint32_t>(b)];
    };
    for (size_t begin = 0; begin < itemV.size();) {
        size_t end = begin + 1;
        while (end < itemV.size() && (itemV[end] >> 32) == (itemV[begin] >> 32)) ++end;
        const auto first = itemV.begin() + static_cast<std::ptrdiff_t>(begin);
        const auto last = itemV.begin() + static_cast<std::ptrdiff_t>(end);
        if (!std::is_sorted(first, last, isLower)) std::stable_sort(first, last, isLower);
        begin = end;
    }
}

}  // namespace engine
}  // namespace sylvora
