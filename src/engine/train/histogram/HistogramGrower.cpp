// Growth of a regression tree; see HistogramGrower.h.
//
// NodeHistograms.cpp has the histograms. Small nodes count only their narrow columns, and sort the
// wide ones; tiny nodes sort all.
#include "HistogramGrower.h"

#include <algorithm>
#include <cmath>
#include <numeric>
#include <optional>
#include <utility>

#include "OpenNode.h"
#include "engine/train/ColumnSampling.h"

namespace sylvora {
namespace engine {

// The pools and the workers keep references to `fixed`, which Take fits again for each tree.
HistogramGrower::HistogramGrower(const BinnedColumns& columns, WorkerPool& workers,
                                 const GrowthLimits& growthLimits, const Tuning& figures,
                                 const ReferenceSearch& referenceSearch)
    : data(columns),
      pool(workers),
      limits(growthLimits),
      tuning(figures),
      reference(referenceSearch),
      numSampledCodes(NumSampledCodes()),
      rows(data.HasInexact()),
      histogramPool(columns, fixed, workers, tuning.chunkRows / 2),  // one block of a filler
      binChoice(data.MostBins()),
      bufferPool(fixed) {
    for (int w = 0; w < pool.NumWorkers(); ++w) {
        workerV.push_back(std::make_unique<Worker>(data, fixed, tuning, histogramPool.FillerOf(w),
                                                   pool, bufferPool));
    }
}

HistogramGrower::~HistogramGrower() = default;

void HistogramGrower::UseRanks(Ranks& ranks) {
    exchange = std::make_unique<SplitExchange>(ranks);
    if (rows.fKeepAscending) rows.fLeftOfRowV.resize(static_cast<size_t>(data.NumRows()));
}

// Gradients are fitted to integers in the tree's own order; any order would give the same fit.
bool HistogramGrower::Take(const double* gradV, const int* weightV, const int* indexV, int num) {
    if (num == 0) return false;
    rows.Take(gradV, weightV, indexV, num, data.NumRows(), pool);
    const int* ownWeightV = rows.weightV.empty() ? nullptr : rows.weightV.data();
    fixed = FixedPoint::Fit(rows.gradV.data(), ownWeightV, num, pool, tuning.leastRows);
    return fixed.fUsable;
}

// Levels are grown one after the other. Besides the root, only nodes that may be split are on a
// level.
void HistogramGrower::Grow(long* seed, const std::function<void()>& lastDraw) {
    nodeV.clear();
    numLeaf = 1;
    fSlicesMatchThreshold = true;
    std::vector<OpenNode> levelV, nextV;
    levelV.push_back(MakeRoot());
    while (!levelV.empty()) {
        nextV.clear();
        GrowLevel(levelV, seed, lastDraw, nextV);
        for (OpenNode& done : levelV) histogramPool.Release(std::move(done.histogram));
        levelV.swap(nextV);
    }
    binChoice.Adapt();
}

// The root of a tree. Its gradients are summed in the reference order, which takes a single worker;
// in a large tree the others count the histogram meanwhile.
HistogramGrower::OpenNode HistogramGrower::MakeRoot() {
    GrownNode root;
    root.countDoc = static_cast<int>(rows.gradV.size());
    root.wgtAll = rows.weightV.empty()
                      ? root.countDoc
                      : std::accumulate(rows.weightV.begin(), rows.weightV.end(), 0);
    const auto addUp = [&] {
        root.gradAll = std::accumulate(rows.gradV.begin(), rows.gradV.end(), 0.0);
    };
    OpenNode open;
    if (root.countDoc <= tuning.smallNode || data.VaryingColumns().empty()) {
        addUp();
        for (size_t i = 0; i < rows.gradV.size(); ++i) {
            open.total += fixed.ToCell(rows.gradV[i], rows.weightV.empty() ? 1 : rows.weightV[i]);
        }
    } else {
        const BackgroundTask sum(pool, addUp);
        open.histogram =
            histogramPool.CountShared(SearchSliceOf(root), binChoice.ShiftFor(root.countDoc));
        const Column& any = data.At(data.VaryingColumns()[0]);
        const int numBins = open.histogram->NumBins(any);
        for (int bin = 0; bin < numBins; ++bin) open.total += open.histogram->Of(any)[bin];
    }
    nodeV.push_back(root);
    return open;
}

// Splits the nodes of a level, in batches that the leaf limit allows (GrowthLimits::BatchSize), and
// appends the children that may be split to nextV. Columns are sampled in node order before a batch
// is searched, so threads do not affect the draws.
void HistogramGrower::GrowLevel(std::vector<OpenNode>& levelV, long* seed,
                                const std::function<void()>& lastDraw,
                                std::vector<OpenNode>& nextV) {
    const int depth = nodeV[static_cast<size_t>(levelV.front().idxNode)].depth;
    const bool fLastLevel = limits.IsTooDeep(depth + 1);
    size_t numDone = 0;
    while (numDone < levelV.size()) {
        const size_t numBatch = limits.BatchSize(levelV.size() - numDone, numLeaf);
        OpenNode* batch = &levelV[numDone];
        numDone += numBatch;
        DrawColumns(batch, numBatch, seed);
        if (fLastLevel && numDone == levelV.size()) lastDraw();
        // If this batch may reach the leaf limit, its children will hardly be searched.
        const bool fShareHistograms =
            limits.fForest || numLeaf + static_cast<int64_t>(numBatch) < limits.maxLeaf;
        SplitBatch(batch, numBatch, fShareHistograms);
        // Children are appended in node order, whichever worker finished first.
        for (size_t b = 0; b < numBatch; ++b) {
            if (batch[b].split.column < 0) continue;
            fSlicesMatchThreshold = fSlicesMatchThreshold && batch[b].split.fSlicesMatchThreshold;
            AppendChildren(batch[b], nextV);
            ++numLeaf;
            if (limits.IsFull(numLeaf)) return nextV.clear();
        }
    }
    rows.EndLevel();
}

// Samples the columns of a batch, numSelFea per node.
void HistogramGrower::DrawColumns(OpenNode* batch, size_t numBatch, long* seed) {
    const std::vector<int> drawnV =
        engine::DrawColumns(data.NumColumns(), limits.numSelFea, numBatch, seed);
    const int* drawn = drawnV.data();
    const size_t numDrawn = drawnV.size() / numBatch;
    for (size_t b = 0; b < numBatch; ++b, drawn += numDrawn) {
        batch[b].columnV.assign(drawn, drawn + numDrawn);
    }
}

// Each worker takes the largest node left. A worker that finds none joins the work on large nodes,
// so that all finish at about the same time.
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
    const auto forNodes = [&](const auto& step) {
        pool.For(static_cast<int>(numBatch), [&](int i, int worker) {
            step(*orderV[static_cast<size_t>(i)], *workerV[static_cast<size_t>(worker)]);
        });
    };
    const auto search = [&](OpenNode& open, Worker& worker) {
        ChooseParallelism(open, numRows);
        Search(open, worker);
    };
    const auto split = [&](OpenNode& open, Worker& worker) {
        MakeChildren(open, worker);
        if (fShareHistograms) ShareHistogram(open, worker);
    };
    if (exchange) {
        forNodes([&](OpenNode& open, Worker& worker) {
            ChooseParallelism(open, numRows);
            LookAhead(open, worker);
        });
        ExchangeBounds(batch, numBatch);
        forNodes(search);
        ExchangeSplits(batch, numBatch);
        return forNodes(split);
    }
    forNodes([&](OpenNode& open, Worker& worker) {
        search(open, worker);
        MarkSplit(open, worker);
        split(open, worker);
    });
}

// A node is shared if it has at least a quarter of one worker's fair share of the batch's
// `numRows`.
void HistogramGrower::ChooseParallelism(OpenNode& open, int64_t numRows) const {
    const int count = CountOf(open);
    const double fair = 1.0 * pool.NumWorkers() * count / static_cast<double>(numRows);
    const bool fShared = pool.NumWorkers() > 1 && count >= tuning.chunkRows && fair >= 0.25;
    open.numTogether = fShared ? std::max(static_cast<int>(std::lround(fair)), 1) : 0;
}

// Moves a node's rows to the children, once its split is marked, and sums up the children. Touches
// only the node's own slices, so nodes of a batch may be split at once.
void HistogramGrower::MakeChildren(OpenNode& open, Worker& worker) {
    const GrownNode& node = nodeV[static_cast<size_t>(open.idxNode)];
    if (open.split.column < 0) return;
    SplitSlice(node, open.split.countL, open.children);
    for (GrownNode& child : open.children) {
        child.parent = open.idxNode;
        child.depth = node.depth + 1;
    }
    MoveRows(open, worker);
    if (open.left.packed != 0) return;
    // The search's sums of the left side do not apply: add up the slice.
    for (int i = open.children[0].startDoc; i < open.children[1].startDoc; ++i) {
        const size_t at = static_cast<size_t>(i);
        open.left += fixed.ToCell(rows.gradV[at], rows.weightV.empty() ? 1 : rows.weightV[at]);
    }
}

// Moves the rows to the children, and sums up the children. The ascending order is moved only if a
// child will be searched.
void HistogramGrower::MoveRows(OpenNode& open, Worker& worker) {
    const GrownNode& node = nodeV[static_cast<size_t>(open.idxNode)];
    if (exchange) {
        worker.partition.SetShared(open.numTogether > 0);
        worker.partition.TakeMarks(rows, node.startDoc, node.countDoc);
    }
    worker.partition.MoveInReferenceOrder(rows, node.startDoc, node.countDoc, open.split.countL);
    const bool fOpenChildren =
        limits.MaySplit(open.children[0]) || limits.MaySplit(open.children[1]);
    if (!fOpenChildren || !rows.fKeepAscending) return SumChildren(open);
    std::optional<BackgroundTask> sums;
    if (open.numTogether > 0) {
        sums.emplace(pool, [&] { SumChildren(open); });
    } else {
        SumChildren(open);
    }
    worker.partition.MoveInAscendingOrder(rows, node.startDoc, node.countDoc, open.split);
}

// Searches a node's columns.
void HistogramGrower::Search(OpenNode& open, Worker& worker) {
    open.found = worker.search.Search(TaskOf(open, worker));
    binChoice.Note(CountOf(open), worker.search.Work());
    if (open.ahead) bufferPool.GiveBack(std::move(open.ahead));
}

// What to search for. Counts the histogram, unless the node has one or needs none.
SearchTask HistogramGrower::TaskOf(OpenNode& open, Worker& worker) {
    const GrownNode& node = nodeV[static_cast<size_t>(open.idxNode)];
    const RowSet quick = SearchSliceOf(node);
    const Histogram* histogram = open.histogram.get();
    const bool fNarrowOnly = histogram == nullptr && node.countDoc <= tuning.smallNode;
    if (open.own != nullptr) {
        histogram = open.own.get();
    } else if (histogram == nullptr &&
               node.countDoc > std::min(tuning.tinyNode, tuning.smallNode)) {
        histogram = CountOwn(open, quick, fNarrowOnly, worker);
    }
    const int numSlots = static_cast<int>(open.columnV.size());
    return {quick,        histogram,        open.columnV.data(), numSlots,       open.total,
            node.gradAll, open.numTogether, fNarrowOnly,         open.leastBest, open.ahead.get()};
}

// Decides a near-tie by reference scores: the winner is then in open.found or, without its rank, in
// open.split.
void HistogramGrower::DecideTie(OpenNode& open, Worker& worker) {
    const GrownNode& node = nodeV[static_cast<size_t>(open.idxNode)];
    const RowSlice slice = rows.ReferenceSlice(node.startDoc, node.countDoc);
    SearchResult<Candidate>& found = open.found;
    if (!found.tiedV.empty()) {
        found.winner = worker.tieBreak.Choose(node, slice, found.tiedV);
    } else if (!found.undecidedV.empty()) {
        open.split = reference.Search(node, slice, open.columnV.data(), found.undecidedV);
    }
    found.tiedV.clear();
    found.undecidedV.clear();
}

// Marks the sides of the node's rows by the split that the search found. Sets open.left to zero if
// the left slice may not hold exactly the rows that the search counted; MakeChildren then
// recomputes it.
void HistogramGrower::MarkSplit(OpenNode& open, Worker& worker) {
    const GrownNode& node = nodeV[static_cast<size_t>(open.idxNode)];
    worker.partition.SetShared(open.numTogether > 0);
    DecideTie(open, worker);
    open.left = Cell();
    if (open.found.Found()) {
        const Candidate& winner = open.found.winner;
        open.split = worker.partition.MarkByRank(rows, node.startDoc, node.countDoc, winner.column,
                                                 winner.lastRank);
        if (open.split.fSlicesMatchThreshold) open.left = winner.left;
    } else if (open.split.column >= 0) {
        worker.partition.MarkByValue(rows, node.startDoc, node.countDoc, open.split);
    }
}

// Each sum adds in slice order, as the reference implementation does. The two loops are interleaved
// to overlap their latencies.
void HistogramGrower::SumChildren(OpenNode& open) {
    GrownNode& left = open.children[0];
    GrownNode& right = open.children[1];
    const double* a = rows.gradV.data() + left.startDoc;
    const double* b = rows.gradV.data() + right.startDoc;
    const int both = std::min(left.countDoc, right.countDoc);
    double sumA = 0.0;
    double sumB = 0.0;
    // `a` and `b` add in order, each in its own variable.
    for (int i = 0; i < both; ++i) {
        sumA += a[i];
        sumB += b[i];
    }
    for (int i = both; i < left.countDoc; ++i) sumA += a[i];
    for (int i = both; i < right.countDoc; ++i) sumB += b[i];
    left.gradAll = sumA;
    right.gradAll = sumB;
    for (GrownNode& child : open.children) {
        const auto begin = rows.weightV.begin() + (rows.weightV.empty() ? 0 : child.startDoc);
        child.wgtAll = rows.weightV.empty() ? child.countDoc
                                            : std::accumulate(begin, begin + child.countDoc, 0);
    }
}

// Records the split and appends both children, the left one first. Children that may be split go to
// nextV with their integer sums; the right child has what the left one leaves.
void HistogramGrower::AppendChildren(OpenNode& open, std::vector<OpenNode>& nextV) {
    RecordSplit(open.split, nodeV.size(), nodeV[static_cast<size_t>(open.idxNode)]);
    Cell total = open.left;
    for (size_t k = 0; k < 2; ++k) {
        if (limits.MaySplit(open.children[k])) {
            OpenNode next;
            next.idxNode = static_cast<int>(nodeV.size());
            next.total = total;
            next.histogram = std::move(open.childHistogramV[k]);
            nextV.push_back(std::move(next));
        }
        histogramPool.Release(std::move(open.childHistogramV[k]));
        nodeV.push_back(open.children[k]);
        total = open.total;
        total -= open.left;
    }
}

int HistogramGrower::CountOf(const OpenNode& open) const {
    return nodeV[static_cast<size_t>(open.idxNode)].countDoc;
}

RowSet HistogramGrower::SearchSliceOf(const GrownNode& node) const {
    return rows.SearchSlice(node.startDoc, node.countDoc);
}

}  // namespace engine
}  // namespace sylvora
