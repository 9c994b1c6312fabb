// Growing a regression tree; see RegressionGrowth.h.
//
// A node's histogram comes by subtraction: the smaller of two sons is counted, the larger is what
// their parent's leaves. Nodes whose rows are fewer than their histogram's cells count their drawn
// columns afresh in a coarser histogram instead, and the smallest sort their columns.
//
// All workers together take the nodes that are more than a worker's share of a level, one after the
// other; then each takes nodes by itself.
#include "RegressionGrowth.h"

#include <algorithm>
#include <cmath>
#include <numeric>
#include <utility>

#include "ColumnDraws.h"

namespace sylvora {
namespace engine {
namespace {

constexpr int kTeamRows = 16384;  // fewer are not worth a team

// How many bins, as a power of two, a node with `count` rows joins in a histogram of its own.
int ShiftFor(int count, int mostBins) {
    const double wanted = 2.0 * std::sqrt(static_cast<double>(count));
    int shift = 0;
    while ((mostBins >> (shift + 1)) >= wanted) ++shift;
    return shift;
}

double SumOf(const double* begin, int count) {
    double sum = 0.0;
    for (int i = 0; i < count; ++i) sum += begin[i];
    return sum;
}

}  // namespace

// A node that waits to be split, then what became of it.
struct RegressionGrowth::OpenNode {
    int idxNode = 0;
    Cell total = {};
    std::unique_ptr<Histogram> histogram = nullptr;  // null: its worker counts or sorts
    std::vector<int> columnV = {};                   // drawn
    SplitPoint split = {};                           // found
    Cell left = {};                                  // sums over the left son's rows
    GrownNode sons[2] = {};
};

struct RegressionGrowth::Worker {
    Worker(const Columns& data, const FixedPoint& fixed, const Tuning& tuning,
           HistogramFiller& histogramFiller, WorkerPool* pool)
        : filler(histogramFiller),
          search(data, fixed, tuning.fewKeys, pool),
          partition(data, pool),
          team(pool) {}

    HistogramFiller& filler;
    NodeSearch search;
    RowPartition partition;
    WorkerPool* team;  // null: it works alone
    Histogram own;     // of the node at hand
};

RegressionGrowth::RegressionGrowth(const Columns& columns, WorkerPool& workers,
                                   const GrowthLimits& growthLimits, const Tuning& figures,
                                   const PlainSearch& plainSearch)
    : data(columns),
      pool(workers),
      limits(growthLimits),
      tuning(figures),
      plain(plainSearch),
      rows(data.HasInexact()),
      store(columns, fixed, workers) {
    for (int w = 0; w < pool.NumWorkers(); ++w) {
        workerV.push_back(
            std::make_unique<Worker>(data, fixed, tuning, store.FillerOf(w), nullptr));
    }
    team = std::make_unique<Worker>(data, fixed, tuning, store.FillerOf(0), &pool);
}

RegressionGrowth::~RegressionGrowth() = default;

bool RegressionGrowth::Grow(const double* gradV, const int* weightV, const int* indexV, int num,
                            long* seed, const std::function<void()>& lastDraw) {
    if (num == 0) return false;
    rows.Take(gradV, weightV, indexV, num, data.NumRows(), pool);
    fixed = FixedPoint::Fit(rows.gradV.data(), rows.weightV.empty() ? nullptr : rows.weightV.data(),
                            num);
    if (!fixed.fUsable) return false;
    nodeV.clear();
    numLeaf = 1;
    fSlicesTrue = true;
    std::vector<OpenNode> levelV, nextV;
    levelV.push_back(PlantRoot());
    while (!levelV.empty()) {
        nextV.clear();
        GrowLevel(levelV, seed, lastDraw, nextV);
        for (OpenNode& done : levelV) store.GiveBack(std::move(done.histogram));
        levelV.swap(nextV);
    }
    return true;
}

RegressionGrowth::OpenNode RegressionGrowth::PlantRoot() {
    GrownNode root;
    root.countDoc = static_cast<int>(rows.gradV.size());
    root.gradAll = SumOf(rows.gradV.data(), root.countDoc);
    root.wgtAll = rows.weightV.empty()
                      ? root.countDoc
                      : std::accumulate(rows.weightV.begin(), rows.weightV.end(), 0);
    nodeV.push_back(root);
    OpenNode open;
    if (root.countDoc <= tuning.smallNode) {
        for (size_t i = 0; i < rows.gradV.size(); ++i) {
            open.total += fixed.ToCell(rows.gradV[i], rows.weightV.empty() ? 1 : rows.weightV[i]);
        }
        return open;
    }
    open.histogram = store.Count(QuickSliceOf(root), ShiftFor(root.countDoc, data.MostBins()));
    const Column& any = data.At(0);
    const int numBins = open.histogram->NumBins(any);
    for (int bin = 0; bin < numBins; ++bin) open.total += open.histogram->Of(any)[bin];
    return open;
}

void RegressionGrowth::GrowLevel(std::vector<OpenNode>& levelV, long* seed,
                                 const std::function<void()>& lastDraw,
                                 std::vector<OpenNode>& nextV) {
    const int depth = nodeV[static_cast<size_t>(levelV.front().idxNode)].depth;
    const bool fLastLevel = IsTooDeep(depth + 1);
    size_t numDone = 0;
    while (numDone < levelV.size()) {
        const size_t numBatch = limits.BatchSize(levelV.size() - numDone, numLeaf);
        OpenNode* batch = &levelV[numDone];
        numDone += numBatch;
        DrawColumns(batch, numBatch, seed);
        if (fLastLevel && numDone == levelV.size()) lastDraw();
        SplitBatch(batch, numBatch);
        for (size_t b = 0; b < numBatch; ++b) {
            if (batch[b].split.column < 0) continue;
            fSlicesTrue = fSlicesTrue && batch[b].split.fSlicesTrue;
            AppendSons(batch[b], nextV);
            ++numLeaf;
            if (limits.fForest || numLeaf < limits.maxLeaf) continue;
            // The limit is reached: what waits, here and in the next level, stays a leaf.
            nextV.clear();
            return;
        }
    }
    rows.EndLevel();
    ShareHistograms(nextV);
}

void RegressionGrowth::DrawColumns(OpenNode* batch, size_t numBatch, long* seed) {
    const std::vector<int> drawnV =
        engine::DrawColumns(data.NumColumns(), limits.numSelFea, numBatch, seed);
    const int* drawn = drawnV.data();
    const size_t numDrawn = drawnV.size() / numBatch;
    for (size_t b = 0; b < numBatch; ++b, drawn += numDrawn) {
        batch[b].columnV.assign(drawn, drawn + numDrawn);
    }
}

void RegressionGrowth::SplitBatch(OpenNode* batch, size_t numBatch) {
    std::vector<int> countV;
    for (size_t b = 0; b < numBatch; ++b) {
        countV.push_back(nodeV[static_cast<size_t>(batch[b].idxNode)].countDoc);
    }
    ForTeamsAndAlone(countV, [&](size_t b, int worker) {
        SplitNode(batch[b], worker < 0 ? *team : *workerV[static_cast<size_t>(worker)]);
    });
}

// Calls visit(i, worker) for jobs on countV[i] rows: with worker -1 for all workers together, one
// after the other, where a job is more than a worker's fair share; then for each worker by itself,
// the largest jobs first, so that they finish together.
template <typename Visit>
void RegressionGrowth::ForTeamsAndAlone(const std::vector<int>& countV, const Visit& visit) {
    const int64_t numRows = std::accumulate(countV.begin(), countV.end(), int64_t{0});
    const int64_t manyRows = std::max<int64_t>(kTeamRows, numRows / pool.NumWorkers());
    std::vector<size_t> aloneV;
    for (size_t i = 0; i < countV.size(); ++i) {
        if (pool.NumWorkers() > 1 && countV[i] >= manyRows) {
            visit(i, -1);
        } else {
            aloneV.push_back(i);
        }
    }
    std::stable_sort(aloneV.begin(), aloneV.end(),
                     [&countV](size_t a, size_t b) { return countV[a] > countV[b]; });
    pool.For(static_cast<int>(aloneV.size()),
             [&](int i, int worker) { visit(aloneV[static_cast<size_t>(i)], worker); });
}

void RegressionGrowth::SplitNode(OpenNode& open, Worker& worker) {
    const GrownNode& node = nodeV[static_cast<size_t>(open.idxNode)];
    open.split = FindSplit(open, worker);
    if (open.split.column < 0) return;
    CutSlice(node, open.split.countL, open.sons);
    const bool fOpenSons = !IsTooDeep(node.depth + 1) &&
                           std::max(open.sons[0].countDoc, open.sons[1].countDoc) > limits.numBound;
    worker.partition.Move(rows, node.startDoc, node.countDoc, open.split, fOpenSons);
    SumSons(open, worker.team);
    if (open.left.packed != 0) return;
    for (int i = open.sons[0].startDoc; i < open.sons[1].startDoc; ++i) {
        const size_t at = static_cast<size_t>(i);
        open.left += fixed.ToCell(rows.gradV[at], rows.weightV.empty() ? 1 : rows.weightV[at]);
    }
}

// The split point of a node, its rows marked; open.left is left zero where the rows of the left
// part are not those of the winning cut as the search counted them.
SplitPoint RegressionGrowth::FindSplit(OpenNode& open, Worker& worker) {
    const GrownNode& node = nodeV[static_cast<size_t>(open.idxNode)];
    const RowSet quick = QuickSliceOf(node);
    const Histogram* histogram = open.histogram.get();
    if (histogram == nullptr && node.countDoc > tuning.smallNode) {
        Histogram& own = worker.own;
        own.cellV.resize(data.NumCells());
        own.shift = ShiftFor(node.countDoc, data.MostBins());
        for (const int id : open.columnV) {
            Cell* cells = own.cellV.data() + data.At(id).firstCell;
            std::fill_n(cells, own.NumBins(data.At(id)), Cell());
        }
        worker.filler.Add(quick, fixed, open.columnV, own);
        histogram = &own;
    }
    const int numSlots = static_cast<int>(open.columnV.size());
    const SearchResult result = worker.search.Search(
        {quick, histogram, open.columnV.data(), numSlots, open.total, node.gradAll});
    open.left = Cell();
    if (result.fFound) {
        const SplitPoint split = worker.partition.MarkByRank(
            rows, node.startDoc, node.countDoc, result.winner.column, result.winner.lastRank);
        if (split.fSlicesTrue) open.left = result.winner.left;
        return split;
    }
    if (result.undecidedV.empty()) return SplitPoint();
    SplitPoint split = plain.Search(node, rows.PlainSlice(node.startDoc, node.countDoc),
                                    open.columnV.data(), result.undecidedV);
    if (split.column >= 0) worker.partition.MarkByValue(rows, node.startDoc, node.countDoc, split);
    return split;
}

// Each sum runs through its slice in order, as the plain form's does; two go side by side.
void RegressionGrowth::SumSons(OpenNode& open, WorkerPool* workers) {
    GrownNode& left = open.sons[0];
    GrownNode& right = open.sons[1];
    const double* a = rows.gradV.data() + left.startDoc;
    const double* b = rows.gradV.data() + right.startDoc;
    if (workers != nullptr) {
        workers->For(2, [&](int son, int) {
            open.sons[son].gradAll = SumOf(son == 0 ? a : b, open.sons[son].countDoc);
        });
    } else {
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
    }
    for (GrownNode& son : open.sons) {
        const auto begin = rows.weightV.begin() + (rows.weightV.empty() ? 0 : son.startDoc);
        son.wgtAll =
            rows.weightV.empty() ? son.countDoc : std::accumulate(begin, begin + son.countDoc, 0);
    }
}

void RegressionGrowth::AppendSons(OpenNode& open, std::vector<OpenNode>& nextV) {
    GrownNode& node = nodeV[static_cast<size_t>(open.idxNode)];
    RecordSplit(open.split, static_cast<int>(nodeV.size()), node);
    const int depth = node.depth + 1;
    Cell total = open.left;
    for (GrownNode& son : open.sons) {
        son.parent = open.idxNode;
        son.depth = depth;
        if (son.countDoc > limits.numBound && !IsTooDeep(depth)) {
            OpenNode next;
            next.idxNode = static_cast<int>(nodeV.size());
            next.total = total;
            // With the first open son, for ShareHistograms; the second finds none left.
            next.histogram = std::move(open.histogram);
            nextV.push_back(std::move(next));
        }
        nodeV.push_back(son);
        total = open.total;
        total -= open.left;
    }
}

// Each histogram that came down from a parent goes to its sons, as coarse as suits the larger one,
// or back where they are better off without.
void RegressionGrowth::ShareHistograms(std::vector<OpenNode>& nextV) {
    std::vector<size_t> firstV;  // of the sons whose parent's histogram is to be shared
    for (size_t i = 0; i < nextV.size(); ++i) {
        if (!nextV[i].histogram) continue;
        const GrownNode& father = FatherOf(nextV[i]);
        const int larger = std::max(father.countL, father.countDoc - father.countL);
        const int shift = std::max(nextV[i].histogram->shift, ShiftFor(larger, data.MostBins()));
        const double cells = static_cast<double>(store.NumCells(shift));
        if (larger > tuning.smallNode && larger > cells * tuning.directPercent / 100) {
            firstV.push_back(i);
        } else {
            store.GiveBack(std::move(nextV[i].histogram));
        }
    }
    std::vector<int> countV;  // of the smaller sons, which are counted
    for (const size_t i : firstV) {
        const GrownNode& father = FatherOf(nextV[i]);
        countV.push_back(std::min(father.countL, father.countDoc - father.countL));
    }
    ForTeamsAndAlone(countV,
                     [&](size_t i, int worker) { ShareHistogram(nextV, firstV[i], worker); });
}

// Shares the histogram at nextV[i] among that node and the one behind, where they are brothers.
// `worker` counts alone; -1: all together.
void RegressionGrowth::ShareHistogram(std::vector<OpenNode>& nextV, size_t i, int worker) {
    std::unique_ptr<Histogram> larger = std::move(nextV[i].histogram);
    const GrownNode& father = FatherOf(nextV[i]);
    const bool fLeftSmaller = 2 * father.countL <= father.countDoc;
    const int smallerSon = fLeftSmaller ? father.lson : father.rson;
    const int largerSon = fLeftSmaller ? father.rson : father.lson;
    const int largerCount = nodeV[static_cast<size_t>(largerSon)].countDoc;
    const int shift = std::max(larger->shift, ShiftFor(largerCount, data.MostBins()));
    store.Coarsen(*larger, shift);
    const RowSet smallerRows = QuickSliceOf(nodeV[static_cast<size_t>(smallerSon)]);
    std::unique_ptr<Histogram> smaller =
        worker < 0 ? store.Count(smallerRows, shift) : store.CountAlone(smallerRows, shift, worker);
    store.Subtract(*larger, *smaller);
    for (size_t j = i; j < std::min(i + 2, nextV.size()); ++j) {
        if (nextV[j].idxNode == smallerSon) nextV[j].histogram = std::move(smaller);
        if (nextV[j].idxNode == largerSon) nextV[j].histogram = std::move(larger);
    }
    store.GiveBack(std::move(smaller));
    store.GiveBack(std::move(larger));
}

RowSet RegressionGrowth::QuickSliceOf(const GrownNode& node) const {
    return rows.QuickSlice(node.startDoc, node.countDoc);
}

// Whether nodes at a depth are leaves.
bool RegressionGrowth::IsTooDeep(int depth) const {
    return depth >= limits.maxDepth && !limits.fForest;
}

const GrownNode& RegressionGrowth::FatherOf(const OpenNode& open) const {
    const GrownNode& node = nodeV[static_cast<size_t>(open.idxNode)];
    return nodeV[static_cast<size_t>(node.parent)];
}

}  // namespace engine
}  // namespace sylvora
