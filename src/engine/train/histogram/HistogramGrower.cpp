// Growing a regression tree; see HistogramGrower.h.
//
// A node's histogram comes by subtraction: the smaller of two sons is counted, the larger is what
// their parent's leaves. Nodes whose rows are fewer than their histogram's cells count their drawn
// columns afresh in a coarser histogram instead, and the smallest sort their columns.
#include "HistogramGrower.h"

#include <algorithm>
#include <cmath>
#include <numeric>
#include <optional>
#include <utility>

#include "engine/train/ColumnSampling.h"

namespace sylvora {
namespace engine {
namespace {

// How many bins, as a power of two, a node with `count` rows joins in a histogram of its own.
int ShiftFor(int count, int mostBins) {
    const double wanted = 3.0 * std::sqrt(static_cast<double>(count));
    int shift = 0;
    while ((mostBins >> (shift + 1)) >= wanted) ++shift;
    return shift;
}

}  // namespace

// A node that waits to be split, then what became of it.
struct HistogramGrower::OpenNode {
    int idxNode = 0;
    int numTogether = 0;  // a fair number of workers for it; 0: too small to be shared
    Cell total = {};
    std::unique_ptr<Histogram> histogram = nullptr;  // null: its worker counts or sorts
    std::vector<int> columnV = {};                   // drawn
    SplitPoint split = {};                           // found
    Cell left = {};                                  // sums over the left son's rows
    GrownNode sons[2] = {};
    std::unique_ptr<Histogram> sonHistogramV[2] = {};
};

// What a worker needs for the node that it grows.
struct HistogramGrower::Worker {
    Worker(const BinnedColumns& data, const FixedPoint& fixed, const Tuning& tuning,
           HistogramFiller& histogramFiller, WorkerPool& pool, SplitSearch::Buffers& buffers)
        : filler(histogramFiller),
          search(data, fixed, tuning, pool, buffers),
          partition(data, pool, tuning.chunkRows) {}

    HistogramFiller& filler;
    SplitSearch search;
    RowPartition partition;
    Histogram own;  // of the node at hand
};

HistogramGrower::HistogramGrower(const BinnedColumns& columns, WorkerPool& workers,
                                 const GrowthLimits& growthLimits, const Tuning& figures,
                                 const ReferenceSearch& plainSearch)
    : data(columns),
      pool(workers),
      limits(growthLimits),
      tuning(figures),
      plain(plainSearch),
      rows(data.HasInexact()),
      store(columns, fixed, workers, tuning.chunkRows / 2),  // a block of a filler
      buffers(fixed) {
    for (int w = 0; w < pool.NumWorkers(); ++w) {
        workerV.push_back(
            std::make_unique<Worker>(data, fixed, tuning, store.FillerOf(w), pool, buffers));
    }
}

HistogramGrower::~HistogramGrower() = default;

bool HistogramGrower::Take(const double* gradV, const int* weightV, const int* indexV, int num) {
    if (num == 0) return false;
    rows.Take(gradV, weightV, indexV, num, data.NumRows(), pool);
    const int* ownWeightV = rows.weightV.empty() ? nullptr : rows.weightV.data();
    fixed = FixedPoint::Fit(rows.gradV.data(), ownWeightV, num, pool);
    return fixed.fUsable;
}

void HistogramGrower::Grow(long* seed, const std::function<void()>& lastDraw) {
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
}

HistogramGrower::OpenNode HistogramGrower::PlantRoot() {
    GrownNode root;
    root.countDoc = static_cast<int>(rows.gradV.size());
    root.wgtAll = rows.weightV.empty()
                      ? root.countDoc
                      : std::accumulate(rows.weightV.begin(), rows.weightV.end(), 0);
    const auto addUp = [&] {
        root.gradAll = std::accumulate(rows.gradV.begin(), rows.gradV.end(), 0.0);
    };
    OpenNode open;
    if (root.countDoc <= tuning.smallNode) {
        addUp();
        for (size_t i = 0; i < rows.gradV.size(); ++i) {
            open.total += fixed.ToCell(rows.gradV[i], rows.weightV.empty() ? 1 : rows.weightV[i]);
        }
    } else {
        const BackgroundTask sum(pool, addUp);
        open.histogram =
            store.CountShared(QuickSliceOf(root), ShiftFor(root.countDoc, data.MostBins()));
        const Column& any = data.At(0);
        const int numBins = open.histogram->NumBins(any);
        for (int bin = 0; bin < numBins; ++bin) open.total += open.histogram->Of(any)[bin];
    }
    nodeV.push_back(root);
    return open;
}

void HistogramGrower::GrowLevel(std::vector<OpenNode>& levelV, long* seed,
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
        // Where this batch may reach the limit of leaves, its sons will hardly be searched.
        const bool fShareHistograms =
            limits.fForest || numLeaf + static_cast<int64_t>(numBatch) < limits.maxLeaf;
        SplitBatch(batch, numBatch, fShareHistograms);
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
}

void HistogramGrower::DrawColumns(OpenNode* batch, size_t numBatch, long* seed) {
    const std::vector<int> drawnV =
        engine::DrawColumns(data.NumColumns(), limits.numSelFea, numBatch, seed);
    const int* drawn = drawnV.data();
    const size_t numDrawn = drawnV.size() / numBatch;
    for (size_t b = 0; b < numBatch; ++b, drawn += numDrawn) {
        batch[b].columnV.assign(drawn, drawn + numDrawn);
    }
}

// A worker takes a node, the largest first. Who finds none left joins in the work on others' large
// nodes, so that all finish together.
void HistogramGrower::SplitBatch(OpenNode* batch, size_t numBatch, bool fShareHistograms) {
    std::vector<OpenNode*> orderV;
    int64_t numRows = 0;
    for (OpenNode* open = batch; open < batch + numBatch; ++open) {
        orderV.push_back(open);
        numRows += CountOf(*open);
    }
    std::stable_sort(orderV.begin(), orderV.end(), [this](const OpenNode* a, const OpenNode* b) {
        return CountOf(*a) > CountOf(*b);
    });
    pool.For(static_cast<int>(numBatch), [&](int i, int worker) {
        OpenNode& open = *orderV[static_cast<size_t>(i)];
        Worker& own = *workerV[static_cast<size_t>(worker)];
        LetOthersJoin(open, numRows);
        SplitNode(open, own);
        if (fShareHistograms) ShareHistogram(open, own);
    });
}

// Nodes with a quarter of a worker's fair share of the `numRows` at hand, or more, are shared.
void HistogramGrower::LetOthersJoin(OpenNode& open, int64_t numRows) const {
    const int count = CountOf(open);
    const double fair = 1.0 * pool.NumWorkers() * count / static_cast<double>(numRows);
    const bool fShared = pool.NumWorkers() > 1 && count >= tuning.chunkRows && fair >= 0.25;
    open.numTogether = fShared ? std::max(static_cast<int>(std::lround(fair)), 1) : 0;
}

void HistogramGrower::SplitNode(OpenNode& open, Worker& worker) {
    const GrownNode& node = nodeV[static_cast<size_t>(open.idxNode)];
    open.split = FindSplit(open, worker);
    if (open.split.column < 0) return;
    CutSlice(node, open.split.countL, open.sons);
    for (GrownNode& son : open.sons) {
        son.parent = open.idxNode;
        son.depth = node.depth + 1;
    }
    MoveRows(open, worker);
    if (open.left.packed != 0) return;
    for (int i = open.sons[0].startDoc; i < open.sons[1].startDoc; ++i) {
        const size_t at = static_cast<size_t>(i);
        open.left += fixed.ToCell(rows.gradV[at], rows.weightV.empty() ? 1 : rows.weightV[at]);
    }
}

// Moves the rows to the sons, in both orders where a son is open to be searched, and sums them up.
void HistogramGrower::MoveRows(OpenNode& open, Worker& worker) {
    const GrownNode& node = nodeV[static_cast<size_t>(open.idxNode)];
    worker.partition.MoveInPlainOrder(rows, node.startDoc, node.countDoc, open.split.countL);
    const bool fOpenSons = IsOpen(open.sons[0]) || IsOpen(open.sons[1]);
    if (!fOpenSons || !rows.fKeepAscending) return SumSons(open);
    std::optional<BackgroundTask> sums;
    if (open.numTogether > 0) {
        sums.emplace(pool, [&] { SumSons(open); });
    } else {
        SumSons(open);
    }
    worker.partition.MoveInAscendingOrder(rows, node.startDoc, node.countDoc, open.split);
}

// The split point of a node, its rows marked; open.left is left zero where the rows of the left
// part are not those of the winning cut as the search counted them.
SplitPoint HistogramGrower::FindSplit(OpenNode& open, Worker& worker) {
    const GrownNode& node = nodeV[static_cast<size_t>(open.idxNode)];
    const RowSet quick = QuickSliceOf(node);
    worker.partition.SetShared(open.numTogether > 0);
    const Histogram* histogram = open.histogram.get();
    if (histogram == nullptr && node.countDoc > tuning.smallNode) {
        Histogram& own = worker.own;
        own.shift = ShiftFor(node.countDoc, data.MostBins());
        own.cellV.resize(std::max(own.cellV.size(), data.NumCells(own.shift)));
        for (const int id : open.columnV) {
            std::fill_n(own.Of(data.At(id)), own.NumBins(data.At(id)), Cell());
        }
        worker.filler.Add(quick, fixed, open.columnV, own);
        histogram = &own;
    }
    const int numSlots = static_cast<int>(open.columnV.size());
    const SearchResult result =
        worker.search.Search({quick, histogram, open.columnV.data(), numSlots, open.total,
                              node.gradAll, open.numTogether});
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
void HistogramGrower::SumSons(OpenNode& open) {
    GrownNode& left = open.sons[0];
    GrownNode& right = open.sons[1];
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
    for (GrownNode& son : open.sons) {
        const auto begin = rows.weightV.begin() + (rows.weightV.empty() ? 0 : son.startDoc);
        son.wgtAll =
            rows.weightV.empty() ? son.countDoc : std::accumulate(begin, begin + son.countDoc, 0);
    }
}

// The smaller son is counted, the larger one gets what is left, both as coarse as suits the larger.
// Where they are better off without, the histogram is given back.
void HistogramGrower::ShareHistogram(OpenNode& open, Worker& worker) {
    const size_t smaller = open.sons[0].countDoc <= open.sons[1].countDoc ? 0 : 1;
    const size_t larger = 1 - smaller;
    if (open.split.column < 0 || !open.histogram || !(IsOpen(open.sons[0]) || IsOpen(open.sons[1])))
        return;
    const int largerCount = open.sons[larger].countDoc;
    const int shift = std::max(open.histogram->shift, ShiftFor(largerCount, data.MostBins()));
    const double cells = static_cast<double>(data.NumCells(shift));
    if (largerCount <= tuning.smallNode || largerCount <= cells * tuning.directPercent / 100) {
        return store.GiveBack(std::move(open.histogram));
    }
    store.Coarsen(*open.histogram, shift);
    const RowSet counted =
        rows.MovedSlice(open.sons[smaller].startDoc, open.sons[smaller].countDoc);
    const bool fShared = open.numTogether > 0 && counted.count >= tuning.chunkRows;
    open.sonHistogramV[smaller] =
        fShared ? store.CountShared(counted, shift) : store.Count(counted, shift, worker.filler);
    open.sonHistogramV[larger] = std::move(open.histogram);
    store.Subtract(*open.sonHistogramV[larger], *open.sonHistogramV[smaller]);
}

void HistogramGrower::AppendSons(OpenNode& open, std::vector<OpenNode>& nextV) {
    RecordSplit(open.split, static_cast<int>(nodeV.size()),
                nodeV[static_cast<size_t>(open.idxNode)]);
    Cell total = open.left;
    for (size_t k = 0; k < 2; ++k) {
        if (IsOpen(open.sons[k])) {
            OpenNode next;
            next.idxNode = static_cast<int>(nodeV.size());
            next.total = total;
            next.histogram = std::move(open.sonHistogramV[k]);
            nextV.push_back(std::move(next));
        }
        store.GiveBack(std::move(open.sonHistogramV[k]));
        nodeV.push_back(open.sons[k]);
        total = open.total;
        total -= open.left;
    }
}

int HistogramGrower::CountOf(const OpenNode& open) const {
    return nodeV[static_cast<size_t>(open.idxNode)].countDoc;
}

RowSet HistogramGrower::QuickSliceOf(const GrownNode& node) const {
    return rows.QuickSlice(node.startDoc, node.countDoc);
}

// Whether nodes at a depth are leaves.
bool HistogramGrower::IsTooDeep(int depth) const {
    return depth >= limits.maxDepth && !limits.fForest;
}

// Whether a node is to be searched.
bool HistogramGrower::IsOpen(const GrownNode& node) const {
    return node.countDoc > limits.numBound && !IsTooDeep(node.depth);
}

}  // namespace engine
}  // namespace sylvora
