// Grows a tree on sorted lists; see SortedListGrower.h.
//
// While a level has few nodes, all workers form a team that splits one large node after the other,
// a column each. Otherwise each worker takes runs of neighbouring nodes, whose slices of the lists
// are contiguous.
#include "SortedListGrower.h"

#include <algorithm>
#include <numeric>
#include <utility>

#include "OpenListNode.h"
#include "engine/train/ColumnSampling.h"
#include "engine/train/RowExchange.h"

namespace sylvora {
namespace engine {
namespace {

constexpr int kRunsPerWorker = 8;  // per level, so that workers finish at about the same time
constexpr int kLeastRunRows = 512;
// Nodes of a level that are split at a time. Enough to share among workers; more would only take
// memory, which counts when a forest has 100,000 nodes on a level.
constexpr size_t kMostBatch = 4096;

}  // namespace

// The team consists of all workers and has buffers of its own for what they share.
SortedListGrower::SortedListGrower(SortedColumns& rowLists, WorkerPool& workers,
                                   const GrowthLimits& growthLimits, const Tuning& figures,
                                   Criterion& splitCriterion,
                                   const ReferenceSearch& referenceSearch)
    : lists(rowLists),
      pool(workers),
      limits(growthLimits),
      tuning(figures),
      criterion(splitCriterion),
      reference(referenceSearch),
      team(std::make_unique<Worker>()) {
    team->pool = &pool;
    for (int w = 0; w < pool.NumWorkers(); ++w) {
        workerV.push_back(std::make_unique<Worker>());
        team->memberV.push_back(workerV.back().get());
    }
}

SortedListGrower::~SortedListGrower() = default;

// A root that may not be split, by its classes, stays the only node.
bool SortedListGrower::Grow(const double* targets, const int* indexV, int num, long* seed) {
    if (num == 0 || !criterion.Take(targets, indexV, num, pool)) return false;
    targetV = targets;
    TakeRows(indexV, num);
    GrownNode root;
    root.countDoc = num;
    std::vector<int> levelV, nextV;
    if (criterion.Describe(root, workerV[0]->scanBuffers)) levelV.push_back(0);
    nodeV.assign(1, root);
    numLeaf = 1;
    while (!levelV.empty()) {
        nextV.clear();
        GrowLevel(levelV, seed, nextV);
        levelV.swap(nextV);
    }
    return true;
}

// Copies the tree's row index, and thins the lists out to its rows.
void SortedListGrower::TakeRows(const int* indexV, int num) {
    rowV.assign(indexV, indexV + num);
    toV.resize(rowV.size());
    fLeftV.resize(rowV.size());
    lists.Take(indexV, num, pool);
    // An exception may have ended the last tree halfway and left counts behind.
    for (const auto& worker : workerV) worker->facts.classCountV.clear();
    for (const auto& worker : workerV) worker->scanBuffers.classCountV.clear();
    team->facts.classCountV.clear();
}

// Splits the nodes levelV of a level, in batches that the leaf limit allows
// (GrowthLimits::BatchSize). Columns are sampled in node order before a batch is searched, so
// threads do not affect the draws. Children that may be split go to nextV.
void SortedListGrower::GrowLevel(const std::vector<int>& levelV, long* seed,
                                 std::vector<int>& nextV) {
    std::vector<OpenNode> batchV;
    for (size_t numDone = 0; numDone < levelV.size();) {
        const size_t numBatch =
            std::min(limits.BatchSize(levelV.size() - numDone, numLeaf), kMostBatch);
        batchV.assign(numBatch, OpenNode());
        for (OpenNode& open : batchV) open.idxNode = levelV[numDone++];
        drawnV = DrawColumns(lists.Data().NumColumns(), limits.numSelFea, numBatch, seed);
        const size_t numDrawn = drawnV.size() / numBatch;
        for (size_t b = 0; b < numBatch; ++b) batchV[b].columnV = drawnV.data() + b * numDrawn;
        SplitBatch(batchV.data(), numBatch);
        for (const OpenNode& done : batchV) {
            if (done.split.column < 0) continue;
            AppendChildren(done, nextV);
            ++numLeaf;
            if (limits.IsFull(numLeaf)) return nextV.clear();
        }
    }
}

// Ranks search all nodes before they agree on the splits.
void SortedListGrower::SplitBatch(OpenNode* batch, size_t numBatch) {
    if (exchange) {
        ForNodes(batch, numBatch, [this](OpenNode& open, Worker& worker) { Search(open, worker); });
        ExchangeSplits(batch, numBatch);
        return ForNodes(batch, numBatch,
                        [this](OpenNode& open, Worker& worker) { SplitNode(open, worker); });
    }
    ForNodes(batch, numBatch, [this](OpenNode& open, Worker& worker) {
        Search(open, worker);
        if (open.found.undecidedV.empty()) {
            MarkSplit(open, worker);
        } else {
            AskReference(open, open.found.undecidedV);
        }
        SplitNode(open, worker);
    });
}

// Calls step(node, worker) for the nodes of a batch. Large nodes go to the team, one after the
// other. All others are collected into runs of at least runRows rows, which the workers then share.
void SortedListGrower::ForNodes(OpenNode* batch, size_t numBatch,
                                const std::function<void(OpenNode&, Worker&)>& step) {
    const auto countOf = [&](size_t b) {
        return nodeV[static_cast<size_t>(batch[b].idxNode)].countDoc;
    };
    const bool fTeams = pool.NumWorkers() > 1 && numBatch < 2 * workerV.size();
    int64_t numRows = 0;
    for (size_t b = 0; b < numBatch; ++b) numRows += countOf(b);
    const int64_t runRows =
        std::max<int64_t>(numRows / (kRunsPerWorker * pool.NumWorkers()), kLeastRunRows);
    // [first, past) nodes for one worker.
    std::vector<std::pair<size_t, size_t>> runV;
    // Rows in the last run; full, so the first node begins a new one.
    int64_t inRun = runRows;
    for (size_t b = 0; b < numBatch; ++b) {
        if (fTeams && countOf(b) >= tuning.teamRows) {
            step(batch[b], *team);
            inRun = runRows;
            continue;
        }
        if (inRun >= runRows) {
            runV.emplace_back(b, b);
            inRun = 0;
        }
        runV.back().second = b + 1;
        inRun += countOf(b);
    }
    pool.For(static_cast<int>(runV.size()), [&](int run, int worker) {
        const auto [begin, end] = runV[static_cast<size_t>(run)];
        for (size_t b = begin; b < end; ++b) {
            step(batch[b], *workerV[static_cast<size_t>(worker)]);
        }
    });
}

// Scans the node's lists, one slot per task. madeV has a slice per slot, for lists that are not
// kept.
void SortedListGrower::Search(OpenNode& open, Worker& worker) {
    const GrownNode& node = nodeV[static_cast<size_t>(open.idxNode)];
    const size_t count = static_cast<size_t>(node.countDoc);
    const size_t numSlots =
        static_cast<size_t>(std::min(limits.numSelFea, lists.Data().NumColumns()));
    worker.listV.assign(numSlots, nullptr);
    const NodeLists nodeLists = {
        lists, {rowV, node.startDoc, node.countDoc}, open.columnV, worker.listV};
    if (!lists.AreKept()) worker.madeV.resize(std::max(worker.madeV.size(), numSlots * count));
    worker.candidateV.assign(numSlots, ListCandidate());
    criterion.Begin(node, worker.facts);
    worker.For(nodeLists.NumSlots(), [&](int slot, Worker& member) {
        const size_t s = static_cast<size_t>(slot);
        if (lists.IsConstant(open.columnV[s])) return;
        Entry* const made = lists.AreKept() ? nullptr : worker.madeV.data() + s * count;
        worker.listV[s] = lists.List(open.columnV[s], nodeLists.rows, member.buffers, made);
        worker.candidateV[s] = criterion.Scan(nodeLists, slot, worker.facts, member.scanBuffers);
    });
    open.found = criterion.Decide(nodeLists, worker.candidateV, worker.facts);
    criterion.End(node, worker.facts);
}

// Resolves a near-tie. Only regression gets here, and its weights are all 1.
void SortedListGrower::AskReference(OpenNode& open, const std::vector<int>& slotV) {
    const GrownNode& node = nodeV[static_cast<size_t>(open.idxNode)];
    const int* const rows = rowV.data() + node.startDoc;
    std::vector<double> gradV(static_cast<size_t>(node.countDoc));
    for (size_t i = 0; i < gradV.size(); ++i) gradV[i] = targetV[rows[i]];
    open.split =
        reference.Search(node, {rows, gradV.data(), nullptr, node.countDoc}, open.columnV, slotV);
    if (open.split.column >= 0) MarkByValue(node, open.split);
}

// Marks the sides of the node's rows by the split that the search found.
void SortedListGrower::MarkSplit(OpenNode& open, Worker& worker) {
    if (open.found.Found()) MarkByList(open, open.found.winner, worker);
}

// Sets the split to a candidate. With other ranks, the list of the search is gone: the worker has
// searched other nodes since.
void SortedListGrower::MarkByList(OpenNode& open, const ListCandidate& candidate, Worker& worker) {
    const GrownNode& node = nodeV[static_cast<size_t>(open.idxNode)];
    SplitPoint& split = open.split;
    split.column = open.columnV[candidate.slot];
    split.countL = candidate.countL;
    const Entry* list = nullptr;
    if (exchange) {
        if (!lists.AreKept()) {
            worker.madeV.resize(std::max(worker.madeV.size(), static_cast<size_t>(node.countDoc)));
        }
        list = lists.List(split.column, {rowV, node.startDoc, node.countDoc}, worker.buffers,
                          worker.madeV.data());
    } else {
        list = worker.listV[static_cast<size_t>(candidate.slot)];
    }
    const auto valueOf = [&](Entry entry) {
        return lists.Data().At(rowV[PositionOf(entry)], split.column);
    };
    if (!split.SetThreshold(valueOf(list[candidate.countL - 1]), valueOf(list[candidate.countL]))) {
        return MarkByValue(node, split);
    }
    for (int i = 0; i < node.countDoc; ++i) fLeftV[PositionOf(list[i])] = i < candidate.countL;
}

// Marks the sides by value, as the reference cursors do.
void SortedListGrower::MarkByValue(const GrownNode& node, const SplitPoint& split) {
    for (int i = 0; i < node.countDoc; ++i) {
        const size_t at = static_cast<size_t>(node.startDoc + i);
        const double value = lists.Data().At(rowV[at], split.column);
        fLeftV[at] = split.BelongsLeft(value, i < split.countL);
    }
}

// Splits a node whose rows are marked: moves the rows, makes the children, partitions the lists.
// Touches only the node's own positions, so nodes of a batch may be split at once.
void SortedListGrower::SplitNode(OpenNode& open, Worker& worker) {
    if (open.split.column < 0) return;
    const GrownNode& node = nodeV[static_cast<size_t>(open.idxNode)];
    MoveRows(node, open.split.countL);
    MakeChildren(open, worker);
    if (lists.AreKept() && (open.fOpenV[0] || open.fOpenV[1])) {
        PartitionLists({rowV, node.startDoc, node.countDoc}, node.startDoc + open.split.countL,
                       worker);
    }
}

// Moves the node's rows as marked, and records in toV where each one goes.
void SortedListGrower::MoveRows(const GrownNode& node, int countL) {
    const int first = node.startDoc;
    const auto begin = toV.begin() + first;
    std::iota(begin, begin + node.countDoc, static_cast<uint32_t>(first));
    MisplacedRows left(fLeftV.data() + first, 0, 0, countL);
    MisplacedRows right(fLeftV.data() + first, 1, countL, node.countDoc);
    ExchangeMisplaced(left, right, node.countDoc, [&](int leftRow, int rightRow) {
        const size_t a = static_cast<size_t>(first + leftRow);
        const size_t b = static_cast<size_t>(first + rightRow);
        std::swap(rowV[a], rowV[b]);
        std::swap(toV[a], toV[b]);
        criterion.Swap(first + leftRow, first + rightRow);
    });
}

// Makes both children. Which of them may be split is known here, before any of
// the next level's columns are sampled.
void SortedListGrower::MakeChildren(OpenNode& open, Worker& worker) {
    const GrownNode& node = nodeV[static_cast<size_t>(open.idxNode)];
    SplitSlice(node, open.split.countL, open.children);
    worker.For(2, [&](int child, Worker& member) {
        GrownNode& made = open.children[child];
        made.parent = open.idxNode;
        made.depth = node.depth + 1;
        const bool fMixed = criterion.Describe(made, member.scanBuffers);
        open.fOpenV[child] = fMixed && limits.MaySplit(made);
    });
}

// Partitions the lists of all columns, sampled or not: descendants may sample them.
void SortedListGrower::PartitionLists(const NodeRows& nodeRows, int middle, Worker& worker) {
    worker.For(lists.Data().NumColumns(), [&](int column, Worker& member) {
        member.otherV.resize(
            std::max(member.otherV.size(), static_cast<size_t>(nodeRows.count) + 1));
        lists.Partition(column, nodeRows, toV.data() + nodeRows.begin, middle,
                        member.otherV.data());
    });
}

// Records the split and appends the children in the order of the reference implementation.
void SortedListGrower::AppendChildren(const OpenNode& open, std::vector<int>& nextV) {
    GrownNode& node = nodeV[static_cast<size_t>(open.idxNode)];
    RecordSplit(open.split, nodeV.size(), node);
    for (int child = 0; child < 2; ++child) {
        if (open.fOpenV[child]) nextV.push_back(static_cast<int>(nodeV.size()));
        nodeV.push_back(open.children[child]);
    }
}

}  // namespace engine
}  // namespace sylvora
