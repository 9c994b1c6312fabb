// The engine's split search of single nodes against the reference search. The nodes have near-ties:
// candidates of different columns whose scores differ by about the rounding error of the sums. A
// term missing from an error bound shows up here, but not on nodes whose candidates are far apart
// or equal.
//
// SYLVORA_DIFFERENTIAL in the environment multiplies the number of nodes.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numeric>
#include <random>
#include <vector>

#include "Node/SplitScan.h"
#include "TrainingRun.h"
#include "engine/train/histogram/BinnedColumns.h"
#include "engine/train/histogram/HistogramFiller.h"
#include "engine/train/histogram/SplitSearch.h"
#include "engine/train/histogram/TieBreak.h"

namespace {

using namespace sylvora;
using namespace sylvora::engine;

struct NearTies {
    std::vector<std::vector<double>> valueVV;  // by row
    std::vector<double> gradV;
    std::vector<int> weightV;  // empty: all 1

    explicit NearTies(unsigned seed) : random(seed) {
        const int numRows = 2 + Below(Below(4) == 0 ? 1500 : 60);
        FillGradients(numRows);
        if (Below(4) == 0) {
            for (int i = 0; i < numRows; ++i) weightV.push_back(1 + Below(5));
        }
        valueVV.resize(gradV.size());
        const int numColumns = 2 + Below(4);
        for (int column = 0; column < numColumns; ++column) AppendColumn();
    }

    int Below(int n) { return static_cast<int>(random() % static_cast<unsigned>(n)); }
    double Normal() { return std::normal_distribution<double>()(random); }

  private:
    // Gradients in one or two clusters with noise of any size; with a fixed step sums are (nearly)
    // exact.
    void FillGradients(int numRows) {
        const double high = Below(3) == 0 ? 1e4 : 1.0;
        const double low = Below(3) == 0 ? 0.0 : -1.0;
        const double noise = std::pow(10.0, -Below(17));
        const double step = Below(2) == 0 ? std::ldexp(1.0, -20 - Below(33)) : 0.0;
        for (int i = 0; i < numRows; ++i) {
            double gradient = (Below(2) == 0 ? low : high) + noise * Normal();
            if (step > 0.0) gradient = std::round(gradient / step) * step;
            gradV.push_back(gradient);
        }
        const int kind = Below(3);
        // Over long runs of one sign, partial sums grow large before they cancel.
        if (kind == 0) std::sort(gradV.begin(), gradV.end());
        // The total is exact, so that only the columns' partial sums have rounding errors.
        for (size_t i = 1; i < gradV.size() && kind == 1; i += 2) gradV[i] = -gradV[i - 1];
    }

    // A column in the order of the gradients or the reverse, with some neighbours swapped and some
    // ties; sometimes unrelated to them.
    void AppendColumn() {
        std::vector<int> orderV(gradV.size());
        std::iota(orderV.begin(), orderV.end(), 0);
        std::shuffle(orderV.begin(), orderV.end(), random);
        const bool fByCluster = Below(2) == 0;
        if (Below(6) != 0) {
            std::stable_sort(orderV.begin(), orderV.end(), [&](int a, int b) {
                const double x = gradV[static_cast<size_t>(a)];
                const double y = gradV[static_cast<size_t>(b)];
                return fByCluster ? std::round(x) < std::round(y) : x < y;
            });
        }
        for (int swaps = Below(4); swaps > 0; --swaps) {
            const size_t at = static_cast<size_t>(Below(static_cast<int>(orderV.size()) - 1));
            std::swap(orderV[at], orderV[at + 1]);
        }
        if (Below(2) == 0) std::reverse(orderV.begin(), orderV.end());
        const int perValue = Below(3) == 0 ? 1 + Below(4) : 1;
        for (size_t place = 0; place < orderV.size(); ++place) {
            valueVV[static_cast<size_t>(orderV[place])].push_back(
                static_cast<double>(static_cast<int>(place) / perValue));
        }
    }

    std::mt19937 random;
};

// Searches with histograms of up to `mostBins` bins, or by sorting: all columns, or the wide ones.
struct Way {
    int mostBins, fewKeys;
    bool fHistogram, fNarrowOnly;
};

struct Node {
    explicit Node(const NearTies& ties) : gradV(ties.gradV), weightV(ties.weightV) {
        for (const std::vector<double>& values : ties.valueVV) rowV.push_back(values.data());
        indexV.resize(rowV.size());
        std::iota(indexV.begin(), indexV.end(), 0);
        columnV.resize(ties.valueVV[0].size());
        std::iota(columnV.begin(), columnV.end(), 0);
        for (const double gradient : gradV) gradAll += gradient;
    }

    CandidateSplit PlainBest() const {
        std::vector<int> weights = weightV;
        if (weights.empty()) weights.assign(gradV.size(), 1);
        const RegressionNode node = {gradV.data(), weights.data(), gradAll,
                                     std::accumulate(weights.begin(), weights.end(), 0)};
        SortedColumn column(static_cast<int>(gradV.size()));
        CandidateSplit best;
        for (const int id : columnV) {
            CandidateSplit at;
            at.slot = at.column = id;
            column.Load(rowV.data(), indexV.data(), id);
            ScanColumn(column, node, at, best);
        }
        return best;
    }

    struct Found {
        SearchResult<Candidate> result;
        double below = 0.0;  // the highest value left of the best split
    };

    Found Search(const Way& way, WorkerPool& pool) const {
        Tuning tuning;
        tuning.mostBins = way.mostBins;
        tuning.fewKeys = way.fewKeys;
        tuning.chunkRows = 4;
        const int count = static_cast<int>(gradV.size());
        const int* weights = weightV.empty() ? nullptr : weightV.data();
        const BinnedColumns data({rowV.data(), count, static_cast<int>(columnV.size())}, tuning,
                                 pool);
        const FixedPoint fixed = FixedPoint::Fit(gradV.data(), weights, count, pool);
        EXPECT_TRUE(fixed.fUsable);
        const RowSet rows = {indexV.data(), count, gradV.data(), weights};
        Histogram histogram;
        histogram.cellV.resize(data.NumCells(0));
        HistogramFiller(data).Add(rows, fixed, columnV, histogram);
        Cell total;
        for (size_t i = 0; i < gradV.size(); ++i) {
            total += fixed.ToCell(gradV[i], weights != nullptr ? weights[i] : 1);
        }
        SplitSearch::BufferPool buffers(fixed);
        SplitSearch search(data, fixed, tuning, pool, buffers);
        const SearchResult<Candidate> result =
            search.Search({rows, way.fHistogram ? &histogram : nullptr, columnV.data(),
                           static_cast<int>(columnV.size()), total, gradAll, pool.NumWorkers() - 1,
                           way.fNarrowOnly});
        if (!result.tiedV.empty()) CheckTie(data, result.tiedV);
        return {result, result.Found() ? HighestOf(data, result.winner) : 0.0};
    }

    // The reference implementation's choice must be among the candidates, and be chosen.
    void CheckTie(const BinnedColumns& data, const std::vector<Candidate>& tiedV) const {
        const int* weights = weightV.empty() ? nullptr : weightV.data();
        const int count = static_cast<int>(gradV.size());
        GrownNode node;
        node.gradAll = gradAll;
        node.wgtAll = weightV.empty() ? count : std::accumulate(weightV.begin(), weightV.end(), 0);
        const RowSlice rows = {indexV.data(), gradV.data(), weights, count};
        const Candidate chosen = TieBreak(data).Choose(node, rows, tiedV);
        const CandidateSplit plain = PlainBest();
        const double below = HighestOf(data, chosen);
        EXPECT_EQ(chosen.column, plain.column);
        EXPECT_TRUE(below < plain.threshold && plain.threshold <= below + 1.0);
    }

    // The highest value left of the best split.
    double HighestOf(const BinnedColumns& data, const Candidate& winner) const {
        double highest = -HUGE_VAL;
        for (size_t row = 0; row < rowV.size(); ++row) {
            if (data.Rank(winner.column, static_cast<int>(row)) > winner.lastRank) continue;
            highest = std::max(highest, rowV[row][winner.column]);
        }
        return highest;
    }

    const std::vector<double>& gradV;
    const std::vector<int>& weightV;
    std::vector<const double*> rowV;
    std::vector<int> indexV, columnV;
    double gradAll = 0.0;
};

TEST(NodeSearchDifferential, NearTiesAgreeWithTheReference) {
    const unsigned numNodes = hostile::Scaled(6000);
    int numFound = 0;
    WorkerPool alone, shared;
    ASSERT_EQ(shared.Start(3), 0);
    for (unsigned seed = 1; seed <= numNodes; ++seed) {
        const NearTies ties(seed);
        const Node node(ties);
        const CandidateSplit plain = node.PlainBest();
        for (const Way& way : {Way{2048, 0, false, false}, Way{2048, 0, true, true},
                               Way{2048, 256, true, false}, Way{8, 0, true, false}}) {
            const auto [result, below] = node.Search(way, seed % 4 == 0 ? shared : alone);
            numFound += result.Found();
            const bool fAgree = result.Found()
                                    ? result.winner.column == plain.column &&
                                          below < plain.threshold && plain.threshold <= below + 1.0
                                    : (plain.column < 0 && result.undecidedV.empty()) ||
                                          std::count(result.undecidedV.begin(),
                                                     result.undecidedV.end(), plain.slot) > 0;
            ASSERT_TRUE(fAgree) << "node " << seed << ", " << node.gradV.size() << " rows, bins "
                                << way.mostBins << ", histogram " << way.fHistogram
                                << ", narrow only " << way.fNarrowOnly;
        }
    }
    // A search that left every node to the reference would pass the above, so it must decide some.
    EXPECT_GT(numFound, static_cast<int>(numNodes / 2));
}

}  // namespace
