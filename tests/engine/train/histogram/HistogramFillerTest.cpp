// Histograms against sums of the rows one by one, and the search for the codes that are counted in
// a column with a frequent bin.
#include "engine/train/histogram/HistogramFiller.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <numeric>
#include <random>
#include <vector>

#include "../RandomColumns.h"
#include "engine/train/histogram/OtherCodes.h"

namespace sylvora::tests {
namespace {

using namespace sylvora::engine;

TEST(OtherCodes, AreThoseOfThePlainLoop) {
    std::vector<FindOtherCodes*> formV = {FindOtherCodesBaseline};
    if (CanRun(InstructionSet::kAvx512)) formV.push_back(FindOtherCodesAvx512);
    std::mt19937 generator(1);
    const auto random = [&generator] { return static_cast<unsigned>(generator()); };
    for (int count = 0; count < 400; ++count) {
        const unsigned mostOthers = 1 + random() % 40;
        const int shift = static_cast<int>(random() % 5);
        const uint16_t frequent = static_cast<uint16_t>((random() & 0xffff) >> shift);
        // Neighbours of the frequent code are the hardest to tell from it.
        std::vector<uint16_t> codeV(static_cast<size_t>(count));
        for (uint16_t& code : codeV) {
            const unsigned low = random() & ((1u << shift) - 1);
            const unsigned bin =
                random() % 40 < mostOthers ? frequent + random() % 3 - 1 : frequent;
            code = static_cast<uint16_t>((bin << shift) + low);
        }
        std::vector<std::pair<int, int>> plainV;
        for (int i = 0; i < count; ++i) {
            const int bin = codeV[static_cast<size_t>(i)] >> shift;
            if (bin != frequent) plainV.emplace_back(i, bin);
        }
        for (FindOtherCodes* form : formV) {
            std::vector<OtherCode> otherV(static_cast<size_t>(count) + kOtherSlack);
            const int num = form(codeV.data(), count, shift, frequent, otherV.data());
            std::vector<std::pair<int, int>> foundV;
            for (int i = 0; i < num; ++i) {
                const OtherCode& other = otherV[static_cast<size_t>(i)];
                foundV.emplace_back(other.place, other.bin);
            }
            EXPECT_EQ(foundV, plainV) << count << " codes, shift " << shift;
        }
    }
}

TEST(HistogramFiller, CountsEachRowOnce) {
    WorkerPool pool;
    bool fFrequent = false;  // whether any column had a frequent bin
    for (unsigned seed = 1; seed <= 60 && !testing::Test::HasFailure(); ++seed) {
        RandomColumns columns(200 + static_cast<int>(seed * seed % 700), seed);
        Tuning tuning;
        if (seed % 3 != 0) tuning.mostBins = 1 + static_cast<int>(columns.Below(100));
        const int numRows = columns.NumRows();
        const BinnedColumns data({columns.Rows(), numRows, RandomColumns::kColumns}, tuning, pool);
        std::vector<double> gradV;
        for (int row = 0; row < numRows; ++row) gradV.push_back(columns.Below(2001) / 1e3 - 1);
        const FixedPoint fixed = FixedPoint::Fit(gradV.data(), nullptr, numRows, pool);
        std::vector<int> rowV = columns.Shuffled(numRows);
        rowV.resize(columns.Below(static_cast<unsigned>(numRows)) + 1);
        if (seed % 2 != 0) std::sort(rowV.begin(), rowV.end());
        const RowSet rows = {rowV.data(), static_cast<int>(rowV.size()), gradV.data(), nullptr};
        std::vector<int> columnV = columns.Shuffled(data.NumColumns());
        columnV.resize(1 + columns.Below(RandomColumns::kColumns));
        HistogramFiller filler(data);
        for (int shift = 0; (data.MostBins() >> shift) > 0; ++shift) {
            Histogram histogram;
            histogram.shift = shift;
            histogram.cellV.resize(data.NumCells(shift));
            std::vector<Cell> plainV(histogram.cellV.size());
            filler.Add(rows, fixed, columnV, histogram);
            for (const int id : columnV) {
                const Column& column = data.At(id);
                if (column.IsConstant()) continue;
                fFrequent = fFrequent || column.frequentBin >= 0;
                for (const int row : rowV) {
                    int bin = 0;
                    while (histogram.FirstRank(column, bin + 1) <= data.Rank(id, row)) ++bin;
                    plainV[histogram.FirstCell(column) + static_cast<size_t>(bin)] +=
                        rows.CellOf(row, fixed);
                }
            }
            for (size_t i = 0; i < plainV.size(); ++i) {
                EXPECT_EQ(histogram.cellV[i].q, plainV[i].q) << "seed " << seed << ", cell " << i;
                EXPECT_EQ(histogram.cellV[i].packed, plainV[i].packed) << "seed " << seed;
            }
        }
    }
    EXPECT_TRUE(fFrequent);
}

}  // namespace
}  // namespace sylvora::tests
