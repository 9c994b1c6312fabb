// The bins that columns are coded in.
#include "engine/train/histogram/BinnedColumns.h"

#include <gtest/gtest.h>

#include <vector>

#include "engine/train/histogram/Histogram.h"

namespace sylvora::tests {
namespace {

using namespace sylvora::engine;

// A value that many rows share, such as a missing one: no search ever has to look inside its bin.
// The other rows have values of their own, above it, below it or both.
TEST(ColumnBins, HoldAValueOfManyRowsAlone) {
    constexpr int kRows = 4000;
    for (const double shared : {-2147483648.0, 700.0, 1e6}) {
        std::vector<double> valueV;
        std::vector<const double*> rowV;
        for (int i = 0; i < kRows; ++i) valueV.push_back(i % 3 == 0 ? shared : i + 0.5);
        for (const double& value : valueV) rowV.push_back(&value);
        WorkerPool pool;
        const BinnedColumns data({rowV.data(), kRows, 1}, Tuning(), pool);
        const Column& column = data.At(0);
        ASSERT_FALSE(column.fExact);
        const uint32_t rank = data.Rank(0, 0);
        Histogram histogram;
        for (histogram.shift = 0; histogram.shift < 2; ++histogram.shift) {
            int bin = 0;
            while (histogram.FirstRank(column, bin + 1) <= rank) ++bin;
            EXPECT_EQ(histogram.FirstRank(column, bin), rank) << shared;
            EXPECT_EQ(histogram.FirstRank(column, bin + 1), rank + 1) << shared;
        }
    }
}

}  // namespace
}  // namespace sylvora::tests
