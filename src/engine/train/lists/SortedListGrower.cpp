// Grows a tree on sorted lists; see SortedListGrower.h.
//
// While a level has few nodes, all workers form a team that splits one large node after the other,
// a column each. Otherwise each worker takes runs of neighbouring nodes, whose slices of the lists
// are contiguous.
#include "SortedListGrower.h"

#include <algorithm>
#include <numeric>
#include <utility>

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

// A node that waits to be split, and then the outcome.
struct SortedListGrower::OpenNode {
    int idxNode = 0;
    // Column -1: the node stays a leaf.
    SplitPoint split = {};
    GrownNode children[2] = {};
    bool fOpenV[2] = {};
};

// The buffers of one worker, or of the team, for the node being split.
struct SortedListGrower::Worker {
    // Calls task(index, worker) for each index below count: alone, or with the whole team.
    template <typename Task>
    void For(int count, const Task& task) {
        if (pool != nullptr) {
            pool->For(count, [&](int i, int w) { task(i, *memberV[static_cast<size_t>(w)]); });
            return;
        }
        for (int i = 0; i < count; ++i) task(i, *this);
    }

    WorkerPool* pool = nullptr;    // null: a single worker
    std::vector<Worker*> memberV;  // the members of a team
    NodeFacts facts;
    ScanBuffers scanBuffers;
    std::vector<const Entry*> listV;  // by slot
    // Lists that are made per node.
    std::vector<Entry> madeV;
    ListBuffers buffers;
    std::vector<ListCandidate> candidateV;  // by slot
    std::vector<Entry> otherV;              // for partitioning a list
    // By position within the node: 1 if the row belongs left.
    std::vector<uint8_t> fLeftV;
};

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
        SplitBatch(batchV.data(), numBatch);
        for (const OpenNode& done : batchV) {
            if (done.split.column < 0) continue;
            AppendChildren(done, nextV);
            ++numLeaf;
            if (limits.IsFull(numLeaf)) return nextV.clear();
        }
    }
}

// Large nodes go to the team, one after the other. All others are collected into runs of at least
// runRows rows, which the workers then share.
void SortedListGrower::SplitBatch(OpenNode* batch, size_t numBatch) {
    const size_t numDrawn = drawnV.size() / numBatch;
    const auto countOf = [&](size_t b) {
        return nodeV[static_cast<size_t>(batch[b].idxNode)].countDoc;
    };
    const auto split = [&](size_t b, Worker& worker) {
        SplitNode(batch[b], drawnV.data() + b * numDrawn, worker);
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
            split(b, *team);
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
        for (size_t b = begin; b < end; ++b) split(b, *workerV[static_cast<size_t>(worker)]);
    });
}

// Splits one node: search, move the rows, make the children, partition the lists. Touches only the
// node's own positions, so nodes of a batch may be split at once.
void SortedListGrower::SplitNode(OpenNode& open, const int* columnV, Worker& worker) {
    const GrownNode& node = nodeV[static_cast<size_t>(open.idxNode)];
    worker.listV.resize(static_cast<size_t>(std::min(limits.numSelFea, lists.Data().NumColumns())));
    const NodeLists nodeLists = {
        lists, {rowV, node.startDoc, node.countDoc}, columnV, worker.listV};
    const SearchResult<ListCandidate> result = FindSplit(node, nodeLists, worker);
    if (result.Found()) {
        ApplySplit(open, nodeLists, result.winner, worker);
    } else if (!result.undecidedV.empty()) {
        AskReference(open, nodeLists, result.undecidedV, worker);
    }
    if (open.split.column < 0) return;
    MakeChildren(open, worker);
    if (lists.AreKept() && (open.fOpenV[0] || open.fOpenV[1])) {
        PartitionLists(nodeLists.rows, node.startDoc + open.split.countL, worker);
    }
}

// Scans the node's lists, one slot per task. madeV has a slice per slot, for lists that are not
// kept.
SearchResult<ListCandidate> SortedListGrower::FindSplit(const GrownNode& node,
                                                        const NodeLists& nodeLists,
                                                        Worker& worker) {
    const size_t count = static_cast<size_t>(node.countDoc);
    const size_t numSlots = worker.listV.size();
    if (!lists.AreKept()) worker.madeV.resize(std::max(worker.madeV.size(), numSlots * count));
    worker.candidateV.resize(numSlots);
    criterion.Begin(node, worker.facts);
    worker.For(nodeLists.NumSlots(), [&](int slot, Worker& member) {
        const size_t s = static_cast<size_t>(slot);
        Entry* const made = lists.AreKept() ? nullptr : worker.madeV.data() + s * count;
        worker.listV[s] = lists.List(nodeLists.columnV[s], nodeLists.rows, member.buffers, made);
        worker.candidateV[s] = criterion.Scan(nodeLists, slot, worker.facts, member.scanBuffers);
    });
    SearchResult<ListCandidate> result =
        criterion.Decide(nodeLists, worker.candidateV, worker.facts);
    criterion.End(node, worker.facts);
    return result;
}

// Sets the split to the winning candidate and moves the node's rows to their sides.
void SortedListGrower::ApplySplit(OpenNode& open, const NodeLists& nodeLists,
                                  const ListCandidate& candidate, Worker& worker) {
    const GrownNode& node = nodeV[static_cast<size_t>(open.idxNode)];
    const Entry* list = nodeLists.Of(candidate.slot);
    const double low = nodeLists.Value(list[candidate.countL - 1], candidate.slot);
    const double high = nodeLists.Value(list[candidate.countL], candidate.slot);
    SplitPoint& split = open.split;
    split.column = nodeLists.columnV[candidate.slot];
    split.countL = candidate.countL;
    if (!split.SetThreshold(low, high)) {
        MoveByValue(node, split, worker);
        return;
    }
    worker.fLeftV.resize(static_cast<size_t>(node.countDoc));
    const uint32_t first = static_cast<uint32_t>(node.startDoc);
    for (int i = 0; i < node.countDoc; ++i) {
        worker.fLeftV[PositionOf(list[i]) - first] = i < candidate.countL;
    }
    MoveRows(node, split.countL, worker);
}

// Resolves a near-tie. Only regression gets here, and its weights are all 1.
void SortedListGrower::AskReference(OpenNode& open, const NodeLists& nodeLists,
                                    const std::vector<int>& slotV, Worker& worker) {
    const GrownNode& node = nodeV[static_cast<size_t>(open.idxNode)];
    const int* const rows = rowV.data() + node.startDoc;
    std::vector<double> gradV(static_cast<size_t>(node.countDoc));
    for (size_t i = 0; i < gradV.size(); ++i) gradV[i] = targetV[rows[i]];
    open.split = reference.Search(node, {rows, gradV.data(), nullptr, node.countDoc},
                                  nodeLists.columnV, slotV);
    if (open.split.column >= 0) MoveByValue(node, open.split, worker);
}

// Marks the sides by value, as the reference cursors do, and moves the rows.
void SortedListGrower::MoveByValue(const GrownNode& node, const SplitPoint& split, Worker& worker) {
    worker.fLeftV.resize(static_cast<size_t>(node.countDoc));
    const int* const rows = rowV.data() + node.startDoc;
    for (int i = 0; i < node.countDoc; ++i) {
        const double value = lists.Data().At(rows[i], split.column);
        worker.fLeftV[static_cast<size_t>(i)] = split.BelongsLeft(value, i < split.countL);
    }
    MoveRows(node, split.countL, worker);
}

// Moves the node's rows as marked in worker.fLeftV, and records in toV where each one goes.
void SortedListGrower::MoveRows(const GrownNode& node, int countL, Worker& worker) {
    const int first = node.startDoc;
    const auto begin = toV.begin() + first;
    std::iota(begin, begin + node.countDoc, static_cast<uint32_t>(first));
    MisplacedRows left(worker.fLeftV.data(), 0, 0, countL);
    MisplacedRows right(worker.fLeftV.data(), 1, countL, node.countDoc);
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
    RecordSplit(open.split, static_cast<int>(nodeV.size()), node);
    for (int child = 0; child < 2; ++child) {
        if (open.fOpenV[child]) nextV.push_back(static_cast<int>(nodeV.size()));
        nodeV.push_back(open.children[child]);
    }
}

}  // namespace engine
}  // namespace sylvora
