// Growing a regression tree; see RegressionGrowth.h.
//
// A node's histogram comes by subtraction: the smaller of two sons is counted, the larger is what
// their parent's leaves. Nodes whose rows are fewer than their histogram's cells count their drawn
// columns afresh in a coarser histogram instead, and the smallest sort their columns.
#include "RegressionGrowth.h"

#include <algorithm>
#include <cmath>
#include <numeric>
#include <utility>

#include "../god/RandomGenerator.h"

namespace sylvora {
namespace engine {
namespace {

// How many bins, as a power of two, a node with `count` rows joins in a histogram of its own.
int ShiftFor(int count, int mostBins) {
    const double wanted = 2.0 * std::sqrt(static_cast<double>(count));
    int shift = 0;
    while ((mostBins >> (shift + 1)) >= wanted) ++shift;
    return shift;
}

}  // namespace

// A node that waits to be split.
struct RegressionGrowth::OpenNode {
    int idxNode;
    Cell total;
    std::unique_ptr<Histogram> histogram;  // null: to be made by its worker, or not needed
    std::vector<int> columnV = {};         // drawn
    SplitPoint split = {};                 // found
    Cell left = {};                        // sums over the left son's rows
    GrownNode sons[2] = {};
};

struct RegressionGrowth::Worker {
    Worker(const Columns& data, const FixedPoint& fixed)
        : filler(data), search(data, fixed), partition(data) {}

    HistogramFiller filler;
    NodeSearch search;
    RowPartition partition;
    Histogram own;  // of the node at hand
};

RegressionGrowth::RegressionGrowth(const Columns& columns, WorkerPool& workers,
                                   const GrowthLimits& growthLimits, const Tuning& figures,
                                   const PlainSearch& plainSearch)
    : data(columns), pool(workers), limits(growthLimits), tuning(figures), plain(plainSearch) {
    allColumnV.resize(static_cast<size_t>(data.NumColumns()));
    std::iota(allColumnV.begin(), allColumnV.end(), 0);
    for (int w = 0; w < pool.NumWorkers(); ++w) {
        workerV.push_back(std::make_unique<Worker>(data, fixed));
    }
}

RegressionGrowth::~RegressionGrowth() = default;

bool RegressionGrowth::Grow(const double* gradV, const int* weightV, const int* indexV, int num,
                            long* seed) {
    if (num == 0) return false;
    TakeRows(gradV, weightV, indexV, num);
    const int* weights = weightV != nullptr ? rows.weightV.data() : nullptr;
    fixed = FixedPoint::Fit(rows.gradV.data(), weights, num);
    if (!fixed.fUsable) return false;
    nodeV.clear();
    numLeaf = 1;
    fSlicesTrue = true;
    PlantRoot();
    std::vector<OpenNode> levelV, nextV;
    levelV.push_back({0, {}, nullptr});
    for (int i = 0; i < num; ++i) {
        const size_t at = static_cast<size_t>(i);
        levelV[0].total += fixed.ToCell(rows.gradV[at], weights != nullptr ? weights[at] : 1);
    }
    if (num > tuning.smallNode) {
        levelV[0].histogram = TakeHistogram();
        FillRoot(gradV, weightV, *levelV[0].histogram);
    }
    while (!levelV.empty()) {
        nextV.clear();
        GrowLevel(levelV, seed, nextV);
        for (OpenNode& done : levelV) GiveBack(std::move(done.histogram));
        levelV.swap(nextV);
    }
    return true;
}

void RegressionGrowth::TakeRows(const double* gradV, const int* weightV, const int* indexV,
                                int num) {
    const size_t count = static_cast<size_t>(num);
    rows.indexV.assign(indexV, indexV + num);
    rows.gradV.resize(count);
    rows.weightV.resize(weightV != nullptr ? count : 0);
    rows.fLeftV.resize(count);
    fInV.assign(static_cast<size_t>(data.NumRows()), 0);
    for (size_t i = 0; i < count; ++i) {
        rows.gradV[i] = gradV[indexV[i]];
        fInV[static_cast<size_t>(indexV[i])] = 1;
    }
    for (size_t i = 0; i < rows.weightV.size(); ++i) rows.weightV[i] = weightV[indexV[i]];
}

void RegressionGrowth::PlantRoot() {
    GrownNode root;
    root.countDoc = static_cast<int>(rows.gradV.size());
    for (const double gradient : rows.gradV) root.gradAll += gradient;
    root.wgtAll = rows.weightV.empty()
                      ? root.countDoc
                      : std::accumulate(rows.weightV.begin(), rows.weightV.end(), 0);
    nodeV.push_back(root);
}

// The root's rows in ascending order, whatever order they were drawn in: the codes of neighbouring
// rows are neighbours in memory.
void RegressionGrowth::FillRoot(const double* gradV, const int* weightV, Histogram& histogram) {
    std::vector<int> ascendingV;
    ascendingV.reserve(rows.indexV.size());
    for (int row = 0; row < data.NumRows(); ++row) {
        if (fInV[static_cast<size_t>(row)] != 0) ascendingV.push_back(row);
    }
    std::vector<double> rootGradV(ascendingV.size());
    std::vector<int> rootWeightV(rows.weightV.size());
    for (size_t i = 0; i < rootGradV.size(); ++i) rootGradV[i] = gradV[ascendingV[i]];
    for (size_t i = 0; i < rootWeightV.size(); ++i) rootWeightV[i] = weightV[ascendingV[i]];
    workerV[0]->filler.Add({ascendingV.data(), rootGradV.data(),
                            weightV != nullptr ? rootWeightV.data() : nullptr, nodeV[0].countDoc},
                           fixed, allColumnV, histogram);
}

RowSlice RegressionGrowth::SliceOf(const GrownNode& node) const {
    const size_t begin = static_cast<size_t>(node.startDoc);
    return {rows.indexV.data() + begin, rows.gradV.data() + begin,
            rows.weightV.empty() ? nullptr : rows.weightV.data() + begin, node.countDoc};
}

std::unique_ptr<Histogram> RegressionGrowth::TakeHistogram() {
    std::unique_ptr<Histogram> histogram;
    if (freeV.empty()) {
        histogram = std::make_unique<Histogram>();
    } else {
        histogram = std::move(freeV.back());
        freeV.pop_back();
    }
    histogram->cellV.assign(data.NumCells(), Cell());
    return histogram;
}

void RegressionGrowth::GiveBack(std::unique_ptr<Histogram> histogram) {
    if (histogram) freeV.push_back(std::move(histogram));
}

// Nodes are taken in batches of as many as the leaf limit may still allow to be split, so that no
// column is drawn for a node that the limit closes.
void RegressionGrowth::GrowLevel(std::vector<OpenNode>& levelV, long* seed,
                                 std::vector<OpenNode>& nextV) {
    size_t numDone = 0;
    while (numDone < levelV.size()) {
        const size_t numLeft = levelV.size() - numDone;
        const int allowed = std::max(limits.maxLeaf - numLeaf, 1);
        const size_t numBatch =
            limits.fForest ? numLeft : std::min(numLeft, static_cast<size_t>(allowed));
        OpenNode* batch = &levelV[numDone];
        numDone += numBatch;
        DrawColumns(batch, numBatch, seed);
        pool.For(static_cast<int>(numBatch), [&](int b, int worker) {
            SearchAndMove(batch[b], *workerV[static_cast<size_t>(worker)]);
        });
        for (size_t b = 0; b < numBatch; ++b) {
            if (batch[b].split.column < 0) continue;
            fSlicesTrue = fSlicesTrue && batch[b].split.fSlicesTrue;
            AppendSons(batch[b], nextV);
            ++numLeaf;
            if (limits.fForest || numLeaf < limits.maxLeaf) continue;
            CloseFrom(static_cast<size_t>(batch[b].idxNode) + 1);
            nextV.clear();
            return;
        }
    }
    PrepareHistograms(nextV);
}

void RegressionGrowth::DrawColumns(OpenNode* batch, size_t numBatch, long* seed) {
    const int numColumns = data.NumColumns();
    std::vector<int> poolV(static_cast<size_t>(numColumns));
    Draws draws(seed);
    for (size_t b = 0; b < numBatch; ++b) {
        std::iota(poolV.begin(), poolV.end(), 0);
        batch[b].columnV.clear();
        for (int i = 0; i < std::min(limits.numSelFea, numColumns); ++i) {
            const int n = numColumns - i;
            int& drawn = poolV[static_cast<size_t>(draws.Index(n))];
            batch[b].columnV.push_back(drawn);
            std::swap(drawn, poolV[static_cast<size_t>(n - 1)]);
        }
    }
}

void RegressionGrowth::CloseFrom(size_t idxNode) {
    for (size_t i = idxNode; i < nodeV.size(); ++i) nodeV[i].fOpen = false;
}

void RegressionGrowth::SearchAndMove(OpenNode& open, Worker& worker) {
    GrownNode& node = nodeV[static_cast<size_t>(open.idxNode)];
    open.split = FindSplit(open, worker);
    node.fOpen = false;
    if (open.split.column < 0) return;
    worker.partition.Move(rows, node.startDoc, node.countDoc, open.split.countL);
    GrownNode& left = open.sons[0];
    GrownNode& right = open.sons[1];
    left = right = GrownNode();
    left.startDoc = node.startDoc;
    left.countDoc = open.split.countL;
    right.startDoc = node.startDoc + left.countDoc;
    right.countDoc = node.countDoc - left.countDoc;
    SumSons(left, right);
    if (open.left.packed != 0) return;
    for (int i = left.startDoc; i < right.startDoc; ++i) {
        const size_t at = static_cast<size_t>(i);
        open.left += fixed.ToCell(rows.gradV[at], rows.weightV.empty() ? 1 : rows.weightV[at]);
    }
}

// The split point of a node, its rows marked; open.left is left zero where the rows of the left
// part are not those of the winning cut as the search counted them.
SplitPoint RegressionGrowth::FindSplit(OpenNode& open, Worker& worker) {
    const GrownNode& node = nodeV[static_cast<size_t>(open.idxNode)];
    const RowSlice slice = SliceOf(node);
    const Histogram* histogram = open.histogram.get();
    if (histogram == nullptr && node.countDoc > tuning.smallNode) {
        Histogram& own = worker.own;
        own.cellV.resize(data.NumCells());
        own.shift = ShiftFor(node.countDoc, tuning.mostBins);
        for (const int id : open.columnV) {
            Cell* cells = own.cellV.data() + data.At(id).firstCell;
            std::fill_n(cells, own.NumBins(data.At(id)), Cell());
        }
        worker.filler.Add(slice, fixed, open.columnV, own);
        histogram = &own;
    }
    const SearchTask task = {
        slice,      histogram,   open.columnV.data(), static_cast<int>(open.columnV.size()),
        open.total, node.gradAll};
    const SearchResult result = worker.search.Search(task);
    open.left = Cell();
    if (result.fFound) {
        const SplitPoint split = worker.partition.MarkByRank(
            rows, node.startDoc, node.countDoc, result.winner.column, result.winner.lastRank);
        if (split.fSlicesTrue) open.left = result.winner.left;
        return split;
    }
    if (result.undecidedV.empty()) return SplitPoint();
    SplitPoint split = plain.Search(node, slice, open.columnV.data(), result.undecidedV);
    if (split.column >= 0) worker.partition.MarkByValue(rows, node.startDoc, node.countDoc, split);
    return split;
}

// Each sum runs through its slice in order, as the plain form's does; the two go side by side.
void RegressionGrowth::SumSons(GrownNode& left, GrownNode& right) {
    const double* a = rows.gradV.data() + left.startDoc;
    const double* b = rows.gradV.data() + right.startDoc;
    const int both = std::min(left.countDoc, right.countDoc);
    double sumA = 0.0;
    double sumB = 0.0;
    for (int i = 0; i < both; ++i) {
        sumA += a[i];
        sumB += b[i];
    }
    for (int i = both; i < left.countDoc; ++i) sumA += a[i];
    for (int i = both; i < right.countDoc; ++i) sumB += b[i];
    left.gradAll = sumA;
    right.gradAll = sumB;
    const auto weightOf = [this](const GrownNode& son) {
        if (rows.weightV.empty()) return son.countDoc;
        const auto begin = rows.weightV.begin() + son.startDoc;
        return std::accumulate(begin, begin + son.countDoc, 0);
    };
    left.wgtAll = weightOf(left);
    right.wgtAll = weightOf(right);
}

void RegressionGrowth::AppendSons(OpenNode& open, std::vector<OpenNode>& nextV) {
    const int lson = static_cast<int>(nodeV.size());
    GrownNode& node = nodeV[static_cast<size_t>(open.idxNode)];
    node.splitFea = open.split.column;
    node.splitElemFea = open.split.threshold;
    node.countL = open.split.countL;
    node.lson = lson;
    node.rson = lson + 1;
    const int depth = node.depth + 1;
    Cell total = open.left;
    for (GrownNode& son : open.sons) {
        son.parent = open.idxNode;
        son.depth = depth;
        const bool fTooDeep = depth >= limits.maxDepth && !limits.fForest;
        son.fOpen = son.countDoc > limits.numBound && !fTooDeep;
        if (son.fOpen) nextV.push_back({static_cast<int>(nodeV.size()), total, nullptr});
        nodeV.push_back(son);
        total = open.total;
        total -= open.left;
    }
    // The histogram goes to the first open son, for PrepareHistograms to share out.
    const bool fOpenSons = open.sons[0].fOpen || open.sons[1].fOpen;
    if (fOpenSons) {
        const size_t first = nextV.size() - (open.sons[0].fOpen && open.sons[1].fOpen ? 2u : 1u);
        nextV[first].histogram = std::move(open.histogram);
    }
}

void RegressionGrowth::PrepareHistograms(std::vector<OpenNode>& nextV) {
    const double cells = static_cast<double>(data.NumCells());
    const double directRows = std::max(cells * tuning.directPercent / 100, 1.0 * tuning.smallNode);
    for (size_t i = 0; i < nextV.size(); ++i) {
        if (!nextV[i].histogram) continue;
        std::unique_ptr<Histogram> parent = std::move(nextV[i].histogram);
        const GrownNode& node = nodeV[static_cast<size_t>(nextV[i].idxNode)];
        const GrownNode& father = nodeV[static_cast<size_t>(node.parent)];
        const GrownNode& left = nodeV[static_cast<size_t>(father.lson)];
        const GrownNode& right = nodeV[static_cast<size_t>(father.rson)];
        const bool fLeftSmaller = left.countDoc <= right.countDoc;
        const GrownNode& smaller = fLeftSmaller ? left : right;
        const GrownNode& larger = fLeftSmaller ? right : left;
        if (larger.countDoc <= directRows || !larger.fOpen) {
            GiveBack(std::move(parent));
            continue;
        }
        std::unique_ptr<Histogram> counted = TakeHistogram();
        workerV[0]->filler.Add(SliceOf(smaller), fixed, allColumnV, *counted);
        for (size_t c = 0; c < parent->cellV.size(); ++c) parent->cellV[c] -= counted->cellV[c];
        const bool fBothOpen = smaller.fOpen;
        if (!fBothOpen) {
            nextV[i].histogram = std::move(parent);
            GiveBack(std::move(counted));
            continue;
        }
        nextV[fLeftSmaller ? i : i + 1].histogram = std::move(counted);
        nextV[fLeftSmaller ? i + 1 : i].histogram = std::move(parent);
        ++i;
    }
}

}  // namespace engine
}  // namespace sylvora
