// The number of bins for a node's histogram; see BinChoice.h.
#include "BinChoice.h"

#include <algorithm>
#include <cmath>

namespace sylvora {
namespace engine {
namespace {

// Twice the bins take twice the time to add up and to scan, and leave about half of the rows to
// look at. A row takes a few times as long as a bin. Between the two limits lies more than the
// factor of four by which a doubling changes the rows per bin, so choices do not alternate.
constexpr double kManyRowsPerBin = 0.4;
constexpr double kFewRowsPerBin = 0.08;

}  // namespace

size_t BinChoice::ClassOf(int count) {
    return 31 - static_cast<size_t>(__builtin_clz(static_cast<unsigned>(std::max(count, 1))));
}

int BinChoice::ShiftFor(int count) const {
    const double doubled = 1 << classV[ClassOf(count)].numDoubled;
    const double wanted = 3.0 * doubled * std::sqrt(static_cast<double>(count));
    int shift = 0;
    while ((numMost >> (shift + 1)) >= wanted) ++shift;
    return shift;
}

void BinChoice::Note(int count, const SearchWork& work) {
    SizeClass& noted = classV[ClassOf(count)];
    noted.numBins.fetch_add(work.numBins, std::memory_order_relaxed);
    noted.numRows.fetch_add(work.numRows, std::memory_order_relaxed);
}

void BinChoice::Adapt() {
    for (SizeClass& noted : classV) {
        const double numBins = static_cast<double>(noted.numBins.exchange(0));
        const double numRows = static_cast<double>(noted.numRows.exchange(0));
        if (numRows > kManyRowsPerBin * numBins) {
            noted.numDoubled = std::min(noted.numDoubled + 1, kMostDoubled);
        } else if (numRows < kFewRowsPerBin * numBins) {
            noted.numDoubled = std::max(noted.numDoubled - 1, 0);
        }
    }
}

}  // namespace engine
}  // namespace sylvora
