// What a histogram says about the cuts of a column, against all cuts taken one by one.
#include "engine/train/histogram/BinScan.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <iterator>
#include <map>
#include <tuple>
#include <vector>

#include "../RandomColumns.h"

namespace sylvora::tests {
namespace {

using namespace sylvora::engine;

// Score, slot, column, last rank, sums on the left.
typedef std::tuple<double, int, int, uint32_t, int64_t, uint64_t> Split;

// Random rows of a matrix. Gradients are reals, small integers, or of one size per weight; the
// signs of the last are random or change here and there along a column, which makes bounds tight.
class RandomNode {
  public:
    RandomNode(RandomColumns& columns, const BinnedColumns& coded, WorkerPool& pool)
        : data(coded), rowV(columns.Shuffled(columns.NumRows())) {
        const unsigned kind = columns.Below(4);
        const unsigned mostWeight = 1 + 3 * columns.Below(2);
        std::vector<double> gradV;
        std::vector<int> weightV;
        for (int row = 0; row < columns.NumRows(); ++row) {
            weightV.push_back(1 + static_cast<int>(columns.Below(mostWeight)));
            const double weight = weightV.back();
            const double real = columns.Below(2000001) / 1e6 - 1;
            const double block = std::floor(columns.Value(row, RandomColumns::kReals) / 3e8);
            const double gradients[] = {real, std::round(2 * real), std::copysign(weight, real),
                                        std::fmod(block, 2) == 0 ? weight : -weight};
            gradV.push_back(gradients[kind]);
        }
        fixed = FixedPoint::Fit(gradV.data(), weightV.data(), columns.NumRows(), pool);
        cellV.resize(gradV.size());
        fixed.ToCells(gradV.data(), weightV.data(), columns.NumRows(), cellV.data());
        rowV.resize(1 + columns.Below(static_cast<unsigned>(columns.NumRows())));
        for (const int row : rowV) total.cell += cellV[static_cast<size_t>(row)];
        total = {total.cell, fixed.Sum(total.cell), fixed.Weight(total.cell)};
    }

    // Compares all that a histogram says about a column with the node's rows.
    void Check(int column, int shift) {
        const Column& coded = data.At(column);
        histogram.shift = shift;
        histogram.cellV.assign(data.NumCells(shift), Cell());
        struct Group {
            int bin = 0;
            Cell all, positive;  // rows of a value; those of them with positive gradients
        };
        std::map<double, Group> groups;
        for (const int row : rowV) {
            const Cell& cell = cellV[static_cast<size_t>(row)];
            Group& group = groups[data.Value(row, column)];
            while (histogram.FirstRank(coded, group.bin + 1) <= data.Rank(column, row)) ++group.bin;
            group.all += cell;
            if (cell.q > 0) group.positive += cell;
            histogram.Of(coded)[group.bin] += cell;
        }
        scan.Scan(column, histogram, total, summary);
        std::vector<Split> splitV;         // between bins
        std::map<int, double> bestInside;  // by bin
        double best = -1;
        Cell left;
        for (auto at = groups.begin(), next = std::next(at);; at = next++) {
            const int bin = at->second.bin;
            for (Cell sum : {at->second.positive, at->second.all}) {
                sum += left;
                EXPECT_GE(summary.maxAbsSum, std::fabs(fixed.Sum(sum)));
                EXPECT_GE(summary.maxAbsSum, std::fabs(total.sum - fixed.Sum(sum)));
            }
            left += at->second.all;
            if (next == groups.end()) break;
            const double score = SplitScore(total, fixed.Sum(left), fixed.Weight(left));
            const size_t run = static_cast<size_t>(bin) / ColumnSummary::kRunBins;
            const size_t nextRun = static_cast<size_t>(next->second.bin) / ColumnSummary::kRunBins;
            if (!coded.fExact && run == nextRun) EXPECT_GE(summary.runBoundV.at(run), score);
            if (next->second.bin == bin) {
                bestInside[bin] = std::max(bestInside[bin], score);
                EXPECT_GE(summary.bound, score);
            } else if (IsSeparable(at->first, next->first)) {
                splitV.emplace_back(score, 3, column, histogram.FirstRank(coded, bin + 1) - 1,
                                    left.q, left.packed);
                best = std::max(best, score);
            }
        }
        EXPECT_EQ(summary.best, best);
        for (const double minScore : {-1.0, best, best * 0.99})
            CheckCandidates(column, splitV, minScore);
        for (const auto& inside : bestInside) CheckCandidateBins(column, bestInside, inside.second);
    }

  private:
    void CheckCandidates(int column, std::vector<Split> splitV, double minScore) const {
        std::vector<Candidate> candidateV;
        scan.AppendCandidates({3, column}, histogram, total, summary, minScore, candidateV);
        std::vector<Split> foundV;
        for (const auto& [score, slot, id, lastRank, left, error] : candidateV) {
            foundV.emplace_back(score, slot, id, lastRank, left.q, left.packed);
        }
        const auto isLow = [minScore](const Split& split) { return std::get<0>(split) < minScore; };
        splitV.erase(std::remove_if(splitV.begin(), splitV.end(), isLow), splitV.end());
        EXPECT_EQ(foundV, splitV);
    }

    void CheckCandidateBins(int column, const std::map<int, double>& bestInside,
                            double minScore) const {
        std::vector<int> binV;
        scan.AppendCandidateBins(column, histogram, total, summary, minScore, binV);
        for (const auto& [bin, best] : bestInside) {
            EXPECT_TRUE(best < minScore || std::count(binV.begin(), binV.end(), bin) == 1) << bin;
        }
    }

    const BinnedColumns& data;
    std::vector<int> rowV;
    FixedPoint fixed;
    std::vector<Cell> cellV;  // by row of the data
    NodeTotals total = {};
    const BinScan scan{data, fixed};
    Histogram histogram;
    ColumnSummary summary;
};

TEST(BinScan, FindsAllCandidates) {
    WorkerPool pool;
    for (unsigned seed = 1; seed <= 200 && !testing::Test::HasFailure(); ++seed) {
        RandomColumns columns(1 + static_cast<int>(seed * seed % 700), seed);
        Tuning tuning;
        if (seed % 2 != 0) tuning.mostBins = 1 + static_cast<int>(columns.Below(300));
        const int numRows = columns.NumRows();
        const BinnedColumns data({columns.Rows(), numRows, RandomColumns::kColumns}, tuning, pool);
        RandomNode node(columns, data, pool);
        for (int column = 0; column < data.NumColumns(); ++column) {
            SCOPED_TRACE(testing::Message() << "seed " << seed << ", column " << column);
            const int numShifts = static_cast<int>(data.At(column).firstCellV.size());
            for (int shift = 0; shift < numShifts; ++shift) node.Check(column, shift);
        }
    }
}

}  // namespace
}  // namespace sylvora::tests
