// How near two cuts may score before the reference search is asked: on nodes with one cut in each
// of two columns, whose scores differ by a little less or a little more than twice the error bound
// E' of docs/engine-training.md, written down here once more.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numeric>
#include <vector>

#include "engine/train/histogram/HistogramFiller.h"
#include "engine/train/histogram/SplitSearch.h"
#include "engine/train/lists/Criterion.h"

namespace sylvora::tests {
namespace {

using namespace sylvora::engine;

constexpr double kRoundoff = 0x1p-53;

// An even number of rows with gradients 1 and -1, but for one of 1 - gap, which the second best cut
// has on its side in place of a 1.
struct Node {
    Node(int numRows, double gap, int betterColumn) : better(betterColumn) {
        const size_t half = static_cast<size_t>(numRows / 2);
        gradV.assign(2 * half, -1.0);
        std::fill_n(gradV.begin(), half, 1.0);
        gradV[half] = 1.0 - gap;
        sum = std::accumulate(gradV.begin(), gradV.end(), 0.0);
        valueVV.assign(2 * half, std::vector<double>(2, 1.0));
        for (size_t i = 0; i < half; ++i) {
            valueVV[i][static_cast<size_t>(better)] = 0.0;
            valueVV[i + 1][static_cast<size_t>(1 - better)] = 0.0;
        }
        for (const std::vector<double>& values : valueVV) rowV.push_back(values.data());
        indexV.resize(gradV.size());
        std::iota(indexV.begin(), indexV.end(), 0);
    }

    int Num() const { return static_cast<int>(gradV.size()); }

    // Of a cut into halves, with the given sum of one.
    double Score(double half) const {
        return (half * half + (sum - half) * (sum - half)) / (Num() / 2);
    }

    SearchResult<Candidate> Search(const FixedPoint& fixed, double gradAll, bool fHistogram) const {
        WorkerPool pool;
        const BinnedColumns data({rowV.data(), Num(), 2}, Tuning(), pool);
        const RowSet rows = {indexV.data(), Num(), gradV.data(), nullptr};
        Histogram histogram;
        histogram.cellV.resize(data.NumCells(0));
        HistogramFiller(data).Add(rows, fixed, columnV, histogram);
        Cell total;
        for (const double gradient : gradV) total += fixed.ToCell(gradient, 1);
        SplitSearch::BufferPool buffers(fixed);
        SplitSearch search(data, fixed, Tuning(), pool, buffers);
        return search.Search(
            {rows, fHistogram ? &histogram : nullptr, columnV.data(), 2, total, gradAll, 0});
    }

    int better;
    double sum = 0.0;
    std::vector<double> gradV;
    std::vector<std::vector<double>> valueVV;
    std::vector<const double*> rowV;
    std::vector<int> indexV;
    const std::vector<int> columnV = {0, 1};
};

// As if a gradient of other nodes were as large as maxAbsGrad.
FixedPoint InUnitsOf(double unit, const std::vector<double>& gradV, double maxAbsGrad = 1.0) {
    WorkerPool pool;
    FixedPoint fixed = FixedPoint::Fit(gradV.data(), nullptr, static_cast<int>(gradV.size()), pool);
    EXPECT_TRUE(fixed.fUsable);
    fixed.unit = unit;
    fixed.scale = 1 / unit;
    fixed.fExact = false;
    fixed.maxAbsGradPerWeight = maxAbsGrad;
    fixed.weightPerAbsGrad = 1 / maxAbsGrad;
    return fixed;
}

// What the error of a node's sums comes from, one of them mainly.
struct Source {
    int numRows;
    double unit;      // of the gradients as integers
    double gradAway;  // from the exact total to the reference implementation's
};
const Source kSources[] = {{4, 0x1p-49, 0},
                           {1000, 0x1p-47, 0},
                           {64, 0x1p-16, 0},
                           {64, 0x1p-40, 0x1p-20},
                           {64, 0x1p-40, -0x1p-20}};

// E' of a cut: the sums of its sides are n / 2 and 2 - n / 2, almost.
double Error(const Source& source, bool fHistogram) {
    const double n = source.numRows;
    const double maxAbsSum = fHistogram ? std::max(n / 2, 2.0) + n / 2 + 2 : n;
    const double e =
        1.02 * (n + 8) * kRoundoff * maxAbsSum + n * source.unit / 2 + std::fabs(source.gradAway);
    const double left = n / 2;
    const double right = n / 2 - 2;
    return 1.01 * ((2 * left + e) * e + (2 * right + e) * e) / left +
           16 * kRoundoff * (left * left + right * right) / left;
}

// The node whose cuts' scores differ by `difference`, as near as the unit allows.
Node NodeWith(double difference, const Source& source, int better) {
    const double slope = 4 - 8.0 / source.numRows;  // of the score, by the gap
    const double gap = std::round(difference / slope / source.unit) * source.unit;
    Node node(source.numRows, gap, better);
    const double half = source.numRows / 2;
    EXPECT_NEAR((node.Score(half) - node.Score(half - gap)) / difference, 1.0, 0.05);
    return node;
}

void ExpectMargin(const Source& source, bool fHistogram, int better, double maxAbsGrad) {
    const double margin = 2 * Error(source, fHistogram);
    for (const double share : {0.9, 1.1}) {
        SCOPED_TRACE(testing::Message() << source.numRows << " rows, unit " << source.unit
                                        << ", histogram " << fHistogram << ", gradients up to "
                                        << maxAbsGrad << ", " << share << " margins");
        const Node node = NodeWith(share * margin, source, better);
        const SearchResult<Candidate> result = node.Search(
            InUnitsOf(source.unit, node.gradV, maxAbsGrad), node.sum + source.gradAway, fHistogram);
        EXPECT_EQ(result.Found(), share > 1);
        EXPECT_EQ(result.undecidedV, share > 1 ? std::vector<int>{} : node.columnV);
        if (result.Found()) EXPECT_EQ(result.winner.slot, better);
    }
}

// The margin follows from the means of the cut's sides, whatever the largest gradient is.
TEST(SearchMargins, AreTwiceTheErrorOfAScore) {
    for (const Source& source : kSources) {
        for (const bool fHistogram : {false, true}) {
            for (const int better : {0, 1}) {
                ExpectMargin(source, fHistogram, better, 1.0);
                ExpectMargin(source, fHistogram, better, 100.0);
            }
        }
    }
}

TEST(SearchMargins, AreNoneForExactSums) {
    for (const bool fHistogram : {false, true}) {
        for (const int better : {0, 1}) {
            for (const double gap : {0x1p-48, 0.0}) {  // less than the rounding of scores allows
                const Node node(4, gap, better);
                FixedPoint fixed = InUnitsOf(0x1p-48, node.gradV);
                fixed.fExact = true;
                const SearchResult<Candidate> result = node.Search(fixed, node.sum, fHistogram);
                ASSERT_TRUE(result.Found());
                EXPECT_EQ(result.winner.slot, gap > 0 ? better : 0);
            }
        }
    }
}

// The slots that the search over sorted lists leaves to the reference search.
std::vector<int> UndecidedOnLists(const Node& node) {
    WorkerPool pool;
    MeanCriterion criterion;
    EXPECT_TRUE(criterion.Take(node.gradV.data(), node.indexV.data(), node.Num(), pool));
    const auto lists = SortedColumns::Make(std::make_shared<ColumnOrders>(
        Matrix(node.rowV.data(), node.Num(), 2), ColumnOrders::Form::kLists, pool));
    lists->Take(node.indexV.data(), node.Num(), pool);
    const NodeRows rows = {node.indexV, 0, node.Num()};
    ListBuffers buffers;
    std::vector<const Entry*> listV;
    for (const int id : node.columnV) listV.push_back(lists->List(id, rows, buffers, nullptr));
    const NodeLists nodeLists = {*lists, rows, node.columnV.data(), listV};
    GrownNode grown;
    grown.countDoc = node.Num();
    ScanBuffers scratch;
    EXPECT_TRUE(criterion.Describe(grown, scratch));
    NodeFacts facts;
    criterion.Begin(grown, facts);
    std::vector<ListCandidate> cutV;
    for (const int slot : node.columnV) {
        cutV.push_back(criterion.Scan(nodeLists, slot, facts, scratch));
    }
    const SearchResult<ListCandidate> decision = criterion.Decide(nodeLists, cutV, facts);
    EXPECT_EQ(decision.winner.slot, decision.undecidedV.empty() ? node.better : -1);
    return decision.undecidedV;
}

TEST(SearchMargins, OfListsAreTwiceTheErrorOfAScore) {
    for (const int numRows : {4, 1000}) {
        const Source source = {numRows, 0x1p-52, 0};
        const double e = 4.1 * (numRows + 8) * kRoundoff * numRows;
        const double margin = 2 * (4 * e + 6 * e * e + 16 * kRoundoff * numRows);
        for (const int better : {0, 1}) {
            EXPECT_EQ(UndecidedOnLists(NodeWith(0.9 * margin, source, better)),
                      (std::vector<int>{0, 1}));
            EXPECT_EQ(UndecidedOnLists(NodeWith(1.1 * margin, source, better)), std::vector<int>{});
        }
    }
}

}  // namespace
}  // namespace sylvora::tests
